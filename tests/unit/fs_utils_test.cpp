// The file engine's path, memory and error helpers.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "fs/vfm.h"
#include "unit_helpers.h"
#include "zak_file.h"

namespace {

std::vector<std::string> EngineMessages() {
    std::vector<std::string> out;
    for (const std::string &line : zakhost::log_messages("diag")) {
        const std::string prefix = "vfm record err msg fatal: ";
        size_t at = line.find(prefix);
        if (at != std::string::npos) out.push_back(line.substr(at + prefix.size()));
    }
    return out;
}

std::string Joined(const char *directory, const char *name) {
    char *joined = vfm_join_path_file(directory, name);
    std::string text = joined != nullptr ? joined : "<null>";
    if (joined != nullptr && joined != directory) vfm_free(joined);
    return text;
}

class FsUtils : public ::testing::Test {
  protected:
    void SetUp() override {
        zakhost::log_clear();
        zakhost::inject_clear();
        dir_ = unit::TempDir();
    }
    void TearDown() override { (void)std::system(("rm -rf " + dir_).c_str()); }
    std::string dir_;
};

TEST_F(FsUtils, JoinSkipsLeadingSlashesAndAddsOneSeparator) {
    for (auto [directory, name, joined] :
         {std::tuple{"/a/", "//b", "/a/b"}, {"/a", "b", "/a/b"}, {nullptr, "b", "/b"}, {"", "b", "/b"}})
        EXPECT_EQ(Joined(directory, name), joined) << name;
    const char *directory = "/a";
    EXPECT_EQ(vfm_join_path_file(directory, nullptr), directory) << "the same pointer, not a copy";
    int isDot = 0;
    EXPECT_EQ(vfm_join_childrenpath_file("/a", "..", &isDot), nullptr);
    EXPECT_EQ(isDot, 1);
    isDot = 0;
    char *child = vfm_join_childrenpath_file("/a", "...", &isDot);
    EXPECT_STREQ(child, "/a/...");
    EXPECT_EQ(isDot, 0);
    vfm_free(child);
}

TEST_F(FsUtils, JoinedTextsStopAt127Characters) {
    std::string name(124, 'n');
    EXPECT_EQ(Joined("/a", name.c_str()), "/a/" + name); // 127 characters fit
    std::string longer(125, 'n');
    EXPECT_EQ(Joined("/a", longer.c_str()), "<null>");
    EXPECT_EQ(EngineMessages(), std::vector<std::string>{"alloc failed"});
    EXPECT_EQ(vfm_ajoin("%s", std::string(128, 'x').c_str()), nullptr);
}

TEST_F(FsUtils, LastComponentDropsTrailingSlashesInPlace) {
    // path, the last component, the path left behind
    for (auto [given, last, left] :
         {std::tuple{"/x/y//", "y", "/x/y"}, {"/", "/", "/"}, {"///", "/", "/"}, {"name", "name", "name"}}) {
        std::string path = given;
        EXPECT_STREQ(vfm_get_last_dir(path.data()), last) << given;
        EXPECT_STREQ(path.c_str(), left) << given;
    }
    EXPECT_STREQ(vfm_last_char_is("ab/", '/'), "/");
    for (const char *without : {"ab", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(vfm_last_char_is(without, '/'), nullptr);
}

TEST_F(FsUtils, StatClassifiesWithoutReportingMissingPaths) {
    struct stat record {};
    std::string file = dir_ + "/f";
    ASSERT_EQ(
        std::system(("touch " + file + " && ln -s f " + dir_ + "/l && ln -s nowhere " + dir_ + "/d").c_str()),
        0);
    EXPECT_EQ(vfm_file_stat(dir_.c_str(), &record), kVfmDirectory);
    EXPECT_EQ(vfm_file_stat(file.c_str(), &record), kVfmNotDirectory);
    EXPECT_EQ(vfm_file_stat((dir_ + "/missing").c_str(), &record), kVfmMissing);
    EXPECT_EQ(vfm_file_stat((dir_ + "/d").c_str(), &record), kVfmMissing) << "a dangling link followed";
    EXPECT_EQ(vfm_file_lstat((dir_ + "/d").c_str(), &record), kVfmNotDirectory);
    EXPECT_TRUE(EngineMessages().empty());
    EXPECT_EQ(vfm_file_stat((file + "/under").c_str(), &record), -1);
    EXPECT_EQ(EngineMessages(), std::vector<std::string>{"can't stat '" + file + "/under'"});
}

TEST_F(FsUtils, AllocationFailuresAreReported) {
    EXPECT_EQ(vfm_malloc(0), nullptr);
    EXPECT_EQ(EngineMessages(), std::vector<std::string>{"alloc failed size zero."});
    zakhost::log_clear();
    zakhost::inject("ZAK_Malloc_F", 0, 0, 1);
    EXPECT_EQ(vfm_strdup("abc"), nullptr);
    EXPECT_EQ(EngineMessages(), (std::vector<std::string>{"alloc failed", "alloc failed"}))
        << "reported twice";
    EXPECT_EQ(vfm_strdup(nullptr), nullptr);
    int64_t before = zakhost::live_blocks();
    char *copy = vfm_strdup("abc");
    EXPECT_STREQ(copy, "abc");
    EXPECT_EQ(zakhost::live_blocks(), before + 1);
    vfm_free(copy);
    EXPECT_EQ(zakhost::live_blocks(), before);
}

TEST_F(FsUtils, MessagesLongerThan127CharactersAreDropped) {
    vfm_record_errmsg("%s", std::string(127, 'm').c_str());
    vfm_record_errmsg("%s", std::string(128, 'm').c_str());
    EXPECT_EQ(EngineMessages(), std::vector<std::string>{std::string(127, 'm')});
}

TEST_F(FsUtils, ReadlinkGrowsInStepsOf80) {
    for (size_t length : {1u, 79u, 80u, 200u}) {
        std::string target(length, 't');
        std::string link = dir_ + "/l" + std::to_string(length);
        ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
        char *read = vfm_readlink(link.c_str());
        ASSERT_NE(read, nullptr);
        EXPECT_EQ(std::string(read), target);
        vfm_free(read);
    }
    EXPECT_EQ(vfm_readlink((dir_ + "/none").c_str()), nullptr);
}

TEST_F(FsUtils, UnlinkKeepsTheCallersErrorNumber) {
    std::string file = dir_ + "/u";
    ASSERT_EQ(std::system(("touch " + file).c_str()), 0);
    EXPECT_EQ(vfm_unlink(file.c_str()), 1);
    errno = EEXIST;
    EXPECT_EQ(vfm_unlink(file.c_str()), -1);
    EXPECT_EQ(errno, EEXIST);
}

TEST_F(FsUtils, WriteAllAndCopyWithoutADescriptor) {
    std::string file = dir_ + "/w";
    int32_t fd = vfm_open(file.c_str(), 0x32, 0600);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(vfm_write_all(fd, "abc", 0), 0);
    EXPECT_EQ(vfm_write_all(fd, "abc", 3), 3);
    EXPECT_EQ(vfm_copyfd(-1, fd), -1);
    EXPECT_EQ(P_ZAK_Close(fd, 0), 0);
    int32_t in = vfm_open(file.c_str(), 0x01, 0);
    EXPECT_EQ(vfm_copyfd(in, -1), 3) << "a negative output only counts";
    EXPECT_EQ(P_ZAK_Close(in, 0), 0);
}

} // namespace

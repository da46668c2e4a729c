// Package path splitting, the vercfg file node records, the host's command filter, shell and digest.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "pkg/vercfg.h"
#include "frame_cmd.h"
#include "host.h"
#include "nuk_digest.h"
#include "rpm_paths.h"
#include "rpm_vercfg.h"

namespace {

TEST(PkgSplitPath, SplitsAtTheLastSeparatorOfEitherKind) {
    const struct {
        const char *path;
        uint32_t nameSize, result;
        const char *dir, *name;
    } cases[] = {
        {"/a/b/vercfg.xml", 128, 1, "/a/b/", "vercfg.xml"},
        {"/mixed\\dir/x\\y.xml", 128, 1, "/mixed\\dir/x\\", "y.xml"},
        {"vercfg.xml", 128, 1, "", "vercfg.xml"},
        {"/a/b/", 128, 1, "/a/b/", ""},
        {"/x", 128, 1, "/", "x"}, // the search runs down to index 0
        {"", 128, 0, "", ""},
        {"/dir/abcdefgh", 4, 1, "/dir/", ""}, // a name too long for its buffer is dropped
    };
    for (const auto &c : cases) {
        char dir[256], name[128];
        std::memset(dir, 'X', sizeof(dir));
        std::memset(name, 'X', sizeof(name));
        EXPECT_EQ(QAV_SplitPathFileName(c.path, dir, name, c.nameSize), c.result) << c.path;
        EXPECT_STREQ(dir, c.dir) << c.path;
        EXPECT_STREQ(name, c.name) << c.path;
    }
    EXPECT_EQ(QAV_SplitPathFileName(nullptr, nullptr, nullptr, 0), 0u);
    char name[16];
    EXPECT_EQ(QAV_SplitPathFileName("/only/name", nullptr, name, sizeof(name)), 1u);
    EXPECT_STREQ(name, "name");
}

TEST(PkgDirName, CutsAtTheFirstDot) {
    char a[] = "vnfc.v1.zip";
    EXPECT_STREQ(QAV_GetDirName(a), "vnfc");
}

class PkgFileNodes : public ::testing::Test {
  protected:
    // One file per process: ctest runs the tests of this fixture in parallel processes.
    std::string path = ::testing::TempDir() + "pkg_vercfg_nodes." + std::to_string(getpid()) + ".xml";
    void Write(const std::string &body) {
        std::ofstream(path) << "<?xml version=\"1.0\"?>\n<Product><NeType>NE</NeType><FileList>" << body
                            << "</FileList></Product>\n";
    }
    void TearDown() override { std::remove(path.c_str()); }
};

TEST_F(PkgFileNodes, RecordFieldsSitAtTheirByteOffsets) {
    Write("<File TypeCode=\"20\" DestObjType=\"risk\" NodeType=\"61\" Attr=\"0x1234\" "
          "SHA256=\"ab12\">dir/f.bin</File>"
          "<File TypeCode=\"2\">g</File>");
    unsigned char raw[2 * 524];
    auto *nodes = reinterpret_cast<RPM_FILE_NODE_INFO *>(raw);
    ASSERT_EQ(RPM_ParseXmlAllFileNodeInfo_HOOK(path.c_str(), nodes, 2), 0u);
    uint32_t word = 0;
    std::memcpy(&word, raw + 4, 4);
    EXPECT_EQ(word, 61u);
    std::memcpy(&word, raw + 8, 4);
    EXPECT_EQ(word, 0x1234u);
    EXPECT_STREQ(reinterpret_cast<const char *>(raw + 140), "ab12");
    EXPECT_STREQ(reinterpret_cast<const char *>(raw + 268), "dir/f.bin");
    EXPECT_STREQ(reinterpret_cast<const char *>(raw + 524 + 268), "g");
}

// (Selection by type code and by destination is the vercfg query tests' part.)
TEST_F(PkgFileNodes, SelectionRefusesMoreNodesThanRoom) {
    Write("<File TypeCode=\"20\">a</File><File TypeCode=\"20\">c</File>");
    RPM_FILE_NODE_INFO nodes[1];
    EXPECT_NE(RPM_ParseXmlDstTypeCodeFileNodeInfo_HOOK(path.c_str(), 20, nodes, 1), 0u);
}

TEST(PkgPaths, StandardDirectoryForm) {
    char path[16] = "a\\\\b//c";
    ASSERT_EQ(RPM_ChgPath2Standad(path, sizeof(path)), 0u);
    EXPECT_STREQ(path, "a/b/c/");
    char small[4] = "abc";
    EXPECT_NE(RPM_ChgPath2Standad(small, sizeof(small)), 0u);
    EXPECT_EQ(RPMFS_CheckFileName("V1/base/pkg.zip"), 0u);
    EXPECT_NE(RPMFS_CheckFileName(""), 0u);
    EXPECT_NE(RPMFS_CheckFileName("a*b"), 0u);
    EXPECT_NE(RPMFS_CheckFileName(std::string(256, 'a').c_str()), 0u);
}

TEST(PkgCommandFilter, RefusesEveryCharacterAShellInterprets) {
    EXPECT_EQ(Frame_CommandFilter(2, "/root/zakv8/home/pkg-1.0_a.tar.gz", "/root/zakv8/scratch+x,y=z%@"), 0u);
    for (const char *bad :
         {"a|b",  "a&b",  "a;b", "a<b", "a>b", "a(b", "a)b", "a$b", "a`b", "a\\b", "a\"b", "a'b", "a b",
          "a\tb", "a\nb", "a*b", "a?b", "a[b", "a]b", "a#b", "~a",  "a!b", "a{b",  "a}b",  "a^b"}) {
        EXPECT_NE(Frame_CommandFilter(1, bad), 0u) << bad;
        EXPECT_NE(Frame_CommandFilter(2, "ok", bad), 0u) << "second argument " << bad;
    }
    EXPECT_NE(Frame_CommandFilter(1, ""), 0u);
    EXPECT_NE(Frame_CommandFilter(1, static_cast<const char *>(nullptr)), 0u);
}

// Outside the device jail no command runs unless the host was told to allow it.
TEST(PkgCommandFilter, SystemRunsOnlyWhereCommandsAreAllowed) {
    zakhost::log_clear();
    zakhost::allow_host_commands(false);
    EXPECT_EQ(Frame_System("true"), -1);
    auto refusals = zakhost::log_messages("syslog");
    ASSERT_EQ(refusals.size(), 1u);
    EXPECT_NE(refusals[0].find("host command refused: not in a device jail, so '/bin/sh'"),
              std::string::npos);
    EXPECT_NE(refusals[0].find("ZAKHOST_ALLOW_HOST_COMMANDS=1"), std::string::npos);
    zakhost::allow_host_commands(true);
    EXPECT_EQ(Frame_System("exit 3"), 3);
    EXPECT_EQ(Frame_System(nullptr), -1);
    zakhost::allow_host_commands(false);
}

class PkgDigest : public ::testing::Test {
  protected:
    std::string path = ::testing::TempDir() + "pkg_digest_input." + std::to_string(getpid()) + ".bin";
    void TearDown() override { std::remove(path.c_str()); }
};

TEST_F(PkgDigest, Sha256AsLowerCaseHexTerminatedOnlyWhenThereIsRoom) {
    std::ofstream(path, std::ios::binary) << "abc";
    char exact[64];
    std::memset(exact, '#', sizeof(exact));
    uint32_t length = sizeof(exact);
    ASSERT_EQ(NUK_Crypt_Digest_Ex_HOOK(path.c_str(), exact, &length), 0u);
    EXPECT_EQ(length, 64u);
    EXPECT_EQ(std::string(exact, 64), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST_F(PkgDigest, LargeFilesAndFailures) {
    {
        std::ofstream out(path, std::ios::binary);
        std::string block(1 << 20, 'a');
        for (int i = 0; i < 3; ++i)
            out << block;
        out << "tail";
    }
    char digest[65] = {0};
    uint32_t length = sizeof(digest);
    ASSERT_EQ(NUK_Crypt_Digest_Ex_HOOK(path.c_str(), digest, &length), 0u);
    // sha256 of 3 MiB of 'a' followed by "tail", computed independently.
    FILE *p = popen(("sha256sum " + path).c_str(), "r");
    ASSERT_NE(p, nullptr);
    char expected[65] = {0};
    ASSERT_EQ(std::fread(expected, 1, 64, p), 64u);
    pclose(p);
    EXPECT_STREQ(digest, expected);
    length = 63;
    EXPECT_NE(NUK_Crypt_Digest_Ex_HOOK(path.c_str(), digest, &length), 0u);
    length = sizeof(digest);
    EXPECT_NE(NUK_Crypt_Digest_Ex_HOOK(::testing::TempDir().c_str(), digest, &length), 0u) << "a directory";
}

} // namespace

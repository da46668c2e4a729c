// The host's command filter, shell and file digest services.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "frame_cmd.h"
#include "host.h"
#include "nuk_digest.h"

namespace {

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
    EXPECT_EQ(Frame_System("true"), 0);
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
    char roomy[80];
    std::memset(roomy, '#', sizeof(roomy));
    length = sizeof(roomy);
    ASSERT_EQ(NUK_Crypt_Digest_Ex_HOOK(path.c_str(), roomy, &length), 0u);
    EXPECT_STREQ(roomy, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
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
    EXPECT_NE(NUK_Crypt_Digest_Ex_HOOK((path + ".absent").c_str(), digest, &length), 0u);
    EXPECT_NE(NUK_Crypt_Digest_Ex_HOOK(::testing::TempDir().c_str(), digest, &length), 0u) << "a directory";
}

} // namespace

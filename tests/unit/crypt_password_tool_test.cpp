// The password tool run of the guest OS password change: how its log is classified, and what the
// change leaves behind. The tool and ramdisk-sync are stand-in scripts first on PATH, inside a
// private device root.
#include <gtest/gtest.h>

#include "unit_helpers.h"

extern "C" {
uint32_t QAV_GetModPwdErrInfo(const char *logPath);
int32_t QAV_ModifyUserPasswd(const char *user, const char *newPassword);
}

namespace {

using unit::Slurp;
using unit::Spill;

class PasswordTool : public ::testing::Test {
  protected:
    void SetUp() override {
        root_ = unit::TempDir();
        savedRoot_ = std::getenv("ZAKHOST_ROOT") != nullptr ? std::getenv("ZAKHOST_ROOT") : "";
        savedPath_ = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "";
        ASSERT_EQ(std::system(("mkdir -p " + root_ + "/opt " + root_ + "/etc " + root_ + "/tools").c_str()),
                  0);
        // The tool prints R/script and exits with R/status.
        Spill(root_ + "/tools/passwd",
              "#!/bin/bash\nR=" + root_ +
                  "\nIFS= read -r first; IFS= read -r second\n"
                  "cat $R/script 2>/dev/null\nexit $(cat $R/status 2>/dev/null || echo 0)\n");
        Spill(root_ + "/tools/ramdisk-sync", "#!/bin/sh\necho \"$@\" >> " + root_ + "/synced\n");
        ASSERT_EQ(std::system(("chmod 755 " + root_ + "/tools/*").c_str()), 0);
        setenv("ZAKHOST_ROOT", root_.c_str(), 1);
        setenv("PATH", (root_ + "/tools:/usr/bin:/bin").c_str(), 1);
        zakhost::reset_environment();
        zakhost::allow_host_commands(true);
    }
    void TearDown() override {
        zakhost::allow_host_commands(false);
        setenv("ZAKHOST_ROOT", savedRoot_.c_str(), 1);
        setenv("PATH", savedPath_.c_str(), 1);
        zakhost::reset_environment();
        (void)std::system(("rm -rf " + root_).c_str());
    }
    std::string root_, savedRoot_, savedPath_;
};

TEST_F(PasswordTool, LogLinesAreClassified) {
    const std::pair<std::string, uint32_t> cases[] = {
        {"\r\n\nEnter new password:\r\nBAD PASSWORD: it is too short\n", 1003},
        {"Enter new password:\nPassword has been already used. Choose another.\r\n", 1004},
        {"Password has been used already\n", 1004},
        {"first\nthis one was already there", 1004}, // the last line needs no line end
        // Lines are read 511 characters at a time: a word cut at that boundary is not seen whole.
        {std::string(508, 'x') + "already\n", 1003},
        {std::string(511, 'x') + "already\n", 1004},
    };
    for (const auto &[text, code] : cases) {
        Spill(root_ + "/log", text);
        EXPECT_EQ(QAV_GetModPwdErrInfo((root_ + "/log").c_str()), code) << text.substr(0, 40);
    }
    EXPECT_EQ(QAV_GetModPwdErrInfo((root_ + "/absent").c_str()), 1003u);
}

TEST_F(PasswordTool, FailuresAreClassifiedFromTheToolsLog) {
    Spill(root_ + "/script", "passwd: Password has been already used. Choose another.\n");
    Spill(root_ + "/status", "10");
    EXPECT_EQ(QAV_ModifyUserPasswd("qavunitguest", "again"), 1004);
    Spill(root_ + "/script", "passwd: Authentication token manipulation error\n");
    EXPECT_EQ(QAV_ModifyUserPasswd("qavunitguest", "again"), 1003);
    // Output on the error stream counts as well ("&>" takes both).
    Spill(root_ + "/tools/passwd", "#!/bin/bash\necho 'Password has been used already' >&2\nexit 1\n");
    EXPECT_EQ(QAV_ModifyUserPasswd("qavunitguest", "again"), 1004);
    EXPECT_EQ(Slurp(root_ + "/opt/mod_ospwd.log"), "<missing>");
    EXPECT_EQ(std::getenv("OS_USER_PWD"), nullptr);
    // The account files are synchronised after every attempt.
    EXPECT_EQ(Slurp(root_ + "/synced").size(),
              3 * ("-s " + root_ + "/etc/passwd " + root_ + "/etc/shadow\n").size());
}

} // namespace

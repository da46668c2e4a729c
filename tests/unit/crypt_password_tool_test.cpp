// The password tool run of the guest OS password change: how its log is classified, and what the
// change leaves behind. The tool and ramdisk-sync are stand-in scripts first on PATH, inside a
// private device root.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "host.h"

extern "C" {
uint32_t QAV_GetModPwdErrInfo(const char *logPath);
int32_t QAV_ModifyUserPasswd(const char *user, const char *newPassword);
}

namespace {

std::string ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return in ? text.str() : "<missing>";
}

void WriteFile(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

class PasswordTool : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/qav-pwtool.XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root_ = pattern;
        const char *oldRoot = std::getenv("ZAKHOST_ROOT");
        savedRoot_ = oldRoot != nullptr ? oldRoot : "";
        savedPath_ = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "";
        ASSERT_EQ(std::system(("mkdir -p " + root_ + "/opt " + root_ + "/etc " + root_ + "/tools").c_str()),
                  0);
        WriteFile(root_ + "/tools/passwd", "#!/bin/bash\n"
                                           "R=" +
                                               root_ +
                                               "\n"
                                               "IFS= read -r first; IFS= read -r second\n"
                                               "printf '%s|%s|%s' \"$1\" \"$first\" \"$second\" > $R/seen\n"
                                               "cat $R/script 2>/dev/null\n"
                                               "exit $(cat $R/status 2>/dev/null || echo 0)\n");
        WriteFile(root_ + "/tools/ramdisk-sync", "#!/bin/sh\necho \"$@\" >> " + root_ + "/synced\n");
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
    // The tool prints `output` and exits with `status`.
    void ToolSays(const std::string &output, int status) {
        WriteFile(root_ + "/script", output);
        WriteFile(root_ + "/status", std::to_string(status));
    }
    std::string root_, savedRoot_, savedPath_;
};

TEST_F(PasswordTool, LogLinesAreClassified) {
    std::string log = root_ + "/log";
    WriteFile(log, "\r\n\nEnter new password:\r\nBAD PASSWORD: it is too short\n");
    EXPECT_EQ(QAV_GetModPwdErrInfo(log.c_str()), 1003u);
    WriteFile(log, "Enter new password:\nPassword has been already used. Choose another.\r\n");
    EXPECT_EQ(QAV_GetModPwdErrInfo(log.c_str()), 1004u);
    WriteFile(log, "Password has been used already\n");
    EXPECT_EQ(QAV_GetModPwdErrInfo(log.c_str()), 1004u);
    // Any line with "already" counts, and the last line needs no line end.
    WriteFile(log, "first\nthis one was already there");
    EXPECT_EQ(QAV_GetModPwdErrInfo(log.c_str()), 1004u);
    // Lines are read 511 characters at a time: a word cut at that boundary is not seen whole.
    WriteFile(log, std::string(508, 'x') + "already\n");
    EXPECT_EQ(QAV_GetModPwdErrInfo(log.c_str()), 1003u);
    WriteFile(log, std::string(511, 'x') + "already\n");
    EXPECT_EQ(QAV_GetModPwdErrInfo(log.c_str()), 1004u);
    EXPECT_EQ(QAV_GetModPwdErrInfo((root_ + "/absent").c_str()), 1003u);
}

TEST_F(PasswordTool, FailuresAreClassifiedFromTheToolsLog) {
    ToolSays("passwd: Password has been already used. Choose another.\n", 10);
    EXPECT_EQ(QAV_ModifyUserPasswd("qavunitguest", "again"), 1004);
    ToolSays("passwd: Authentication token manipulation error\n", 1);
    EXPECT_EQ(QAV_ModifyUserPasswd("qavunitguest", "again"), 1003);
    // Output on the error stream counts as well ("&>" takes both).
    WriteFile(root_ + "/script", "");
    WriteFile(root_ + "/tools/passwd", "#!/bin/bash\necho 'Password has been used already' >&2\nexit 1\n");
    EXPECT_EQ(QAV_ModifyUserPasswd("qavunitguest", "again"), 1004);
    EXPECT_EQ(ReadFile(root_ + "/opt/mod_ospwd.log"), "<missing>");
    EXPECT_EQ(std::getenv("OS_USER_PWD"), nullptr);
    // The account files are synchronised after every attempt.
    EXPECT_EQ(ReadFile(root_ + "/synced").size(),
              3 * ("-s " + root_ + "/etc/passwd " + root_ + "/etc/shadow\n").size());
}

} // namespace

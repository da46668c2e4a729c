// The host's path tidying and descriptor leak register.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <string>

#include "host.h"
#include "zak_file.h"
#include "zak_fs.h"

namespace {

std::string Cut(const char *path) {
    char buffer[64];
    snprintf(buffer, sizeof buffer, "%s", path);
    EXPECT_EQ(RPM_CutPathStr(buffer, sizeof buffer), 0u);
    return buffer;
}

TEST(HostDevicePaths, CutPathTidiesSlashesAndDots) {
    EXPECT_EQ(Cut("/a//b/./c/"), "/a/b/c");
    EXPECT_EQ(Cut("/"), "/");
    EXPECT_EQ(Cut("//./"), "/");
    EXPECT_EQ(Cut("./x/."), "x");
    EXPECT_EQ(Cut("."), ".");
    EXPECT_EQ(Cut("/a/../b"), "/a/../b") << "'..' is left to the file system";
    EXPECT_NE(RPM_CutPathStr(nullptr, 4), 0u);
}

TEST(HostLeakRegister, RegistrationNeedsADescriptor) {
    ZAK_FD_LEAK_CHECK_INFO bad = {-5, 10};
    EXPECT_EQ(P_ZAK_FdLeakCheckInfoSet(&bad), ZAK_FILE_INVALID);
    EXPECT_EQ(P_ZAK_FdLeakCheckInfoSet(nullptr), ZAK_FILE_INVALID);
    int32_t fd = P_ZAK_Open("/dev/null", ZAK_O_RDONLY, 0, 0);
    ASSERT_GE(fd, 0);
    ZAK_FD_LEAK_CHECK_INFO info = {fd, 10};
    EXPECT_EQ(P_ZAK_FdLeakCheckInfoSet(&info), 0);
    EXPECT_EQ(P_ZAK_Close(fd, 0), 0);
}

} // namespace

// The host's device-path conversion, path tidying and descriptor leak register.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <string>

#include "host.h"
#include "zak_file.h"
#include "zak_fs.h"

namespace {

std::string ToLinux(const char *device) {
    char out[256] = "unchanged";
    uint32_t code = ZAK_ZakPathToLinuxPath(device, out, sizeof out);
    return code == 0 ? std::string(out) : "code " + std::to_string(code) + " [" + out + "]";
}

std::string ToDevice(const char *linuxPath) {
    char out[256] = "unchanged";
    uint32_t code = ZAK_LinuxPathToZakPath(linuxPath, out, sizeof out);
    return code == 0 ? std::string(out) : "code " + std::to_string(code) + " [" + out + "]";
}

std::string Cut(const char *path) {
    char buffer[64];
    snprintf(buffer, sizeof buffer, "%s", path);
    EXPECT_EQ(RPM_CutPathStr(buffer, sizeof buffer), 0u);
    return buffer;
}

TEST(HostDevicePaths, StoragesMapBothWays) {
    std::string home = zakhost::common_root() + "/home";
    EXPECT_EQ(ZAK_InputPathCheck("flash0:a"), 0u);
    EXPECT_NE(ZAK_InputPathCheck("flash9:a"), 0u);
    EXPECT_NE(ZAK_InputPathCheck("/flash0:a"), 0u);
    EXPECT_NE(ZAK_InputPathCheck(":a"), 0u);
    EXPECT_NE(ZAK_InputPathCheck(nullptr), 0u);
    EXPECT_EQ(ToLinux("flash0:V1//x"), home + "/V1//x");
    EXPECT_EQ(ToLinux("flash0:///"), home);
    EXPECT_EQ(ToLinux("nope:x"), "code " + std::to_string(static_cast<uint32_t>(ZAK_FILE_NOT_FOUND)) + " []");
    EXPECT_EQ(ToDevice((home + "/V1").c_str()), "flash0:V1");
    EXPECT_EQ(ToDevice((home + "x/V1").c_str()).substr(0, 4), "code") << "a prefix of a name is no match";
    EXPECT_EQ(ToDevice("relative").substr(0, 4), "code");
    char tiny[4];
    EXPECT_NE(ZAK_ZakPathToLinuxPath("flash0:abc", tiny, sizeof tiny), 0u);
    EXPECT_EQ(tiny[0], '\0');
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

TEST(HostDevicePaths, CommonRootMustFit) {
    char buffer[512];
    EXPECT_EQ(RPM_GetCommonRootPath(sizeof buffer, buffer), 0u);
    EXPECT_EQ(std::string(buffer), zakhost::common_root());
    EXPECT_NE(RPM_GetCommonRootPath(3, buffer), 0u);
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

TEST(HostFileLayer, SeekUsesThePlatformOrigins) {
    char path[] = "/tmp/seek.XXXXXX";
    int temp = mkstemp(path);
    ASSERT_GE(temp, 0);
    ASSERT_EQ(write(temp, "0123456789", 10), 10);
    close(temp);
    int32_t fd = P_ZAK_Open(path, ZAK_O_RDONLY, 0, 0);
    unlink(path);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(P_ZAK_LSeek(fd, 3, ZAK_LSEEK_ORIGIN_SET, 0), 3);
    EXPECT_EQ(P_ZAK_LSeek(fd, 5, ZAK_LSEEK_ORIGIN_CUR, 0), 8);
    EXPECT_EQ(P_ZAK_LSeek(fd, -1, ZAK_LSEEK_ORIGIN_END, 0), 9);
    EXPECT_EQ(P_ZAK_LSeek(fd, 0, 3, 0), ZAK_FILE_INVALID);
    EXPECT_EQ(P_ZAK_Close(fd, 0), 0);
}

} // namespace

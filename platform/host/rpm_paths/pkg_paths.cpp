// Package paths, file checks and device path conversion of the package manager.
// Storages: a device path "<storage>:<relative>" names a file under the directory that the
// profile section [storage] gives for that storage (an absolute device path, inside the sandbox).
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host.h"
#include "rpm_paths.h"
#include "securec.h"
#include "zak_fs.h"

using zakhost::copy_out;
using zakhost::injected_code;

extern "C" {

uint32_t RPMFS_ProcIsFileExist(const char *path) {
    if (uint32_t code = 0; injected_code("RPMFS_ProcIsFileExist", &code)) return 0;
    return path != nullptr && access(path, F_OK) == 0 ? 1 : 0;
}

uint32_t PAT_IsFileExist(const char *path) {
    if (uint32_t code = 0; injected_code("PAT_IsFileExist", &code)) return 0;
    struct stat st {};
    return path != nullptr && stat(path, &st) == 0 && S_ISREG(st.st_mode) ? 1 : 0;
}

// A package file name: 1 to 255 printable characters, none of the characters that file systems
// or the package tools refuse.
uint32_t RPMFS_CheckFileName(const char *name) {
    if (uint32_t code = 0; injected_code("RPMFS_CheckFileName", &code)) return code;
    if (name == nullptr) return 1;
    size_t length = std::strlen(name);
    if (length == 0 || length > 255) return 1;
    for (const char *p = name; *p != '\0'; ++p) {
        auto c = static_cast<unsigned char>(*p);
        if (c < 0x20 || c == 0x7F || std::strchr("*?\"<>|", c) != nullptr) return 1;
    }
    return 0;
}

uint32_t RPMFS_DelFile(const char *path) {
    if (uint32_t code = 0; injected_code("RPMFS_DelFile", &code)) return code;
    return path != nullptr && unlink(path) == 0 ? 0 : 1;
}

uint32_t RPM_GetFullPath(const char *relative, char *out, uint32_t size, uint32_t mode) {
    if (uint32_t code = 0; injected_code("RPM_GetFullPath", &code)) return code;
    if (relative == nullptr || out == nullptr) return 1;
    std::string base;
    switch (mode) {
    case RPM_PATH_DEVICE_ROOT:
        base = zakhost::root();
        break;
    case RPM_PATH_PROGRAM:
    case RPM_PATH_COMMON:
        base = zakhost::common_root();
        break;
    default:
        return 1;
    }
    return copy_out(base + "/" + relative, out, size) ? 0 : 1;
}

uint32_t RPM_GetPktFullName(const char *package, char *out, uint32_t size) {
    if (uint32_t code = 0; injected_code("RPM_GetPktFullName", &code)) return code;
    if (package == nullptr || *package == '\0' || out == nullptr) return 1;
    if (package[0] == '/') return copy_out(package, out, size) ? 0 : 1;
    if (auto device = zakhost::split_device_path(package))
        return copy_out(device->directory + "/" + device->rest, out, size) ? 0 : 1;
    return copy_out(zakhost::common_root() + "/home/" + package, out, size) ? 0 : 1;
}

uint32_t RPM_ChgPath2Standad(char *path, uint32_t size) {
    if (uint32_t code = 0; injected_code("RPM_ChgPath2Standad", &code)) return code;
    if (path == nullptr || size == 0) return 1;
    std::string text;
    for (const char *p = path; *p != '\0'; ++p) {
        char c = *p == '\\' ? '/' : *p;
        if (c == '/' && !text.empty() && text.back() == '/') continue;
        text += c;
    }
    if (text.empty() || text.back() != '/') text += '/';
    return copy_out(text, path, size) ? 0 : 1;
}

uint32_t RPM_GetCurrDesFile_HOOK(const char *envName, char *out, uint32_t size, uint32_t *flags) {
    if (uint32_t code = 0; injected_code("RPM_GetCurrDesFile_HOOK", &code)) return code;
    if (flags != nullptr) *flags = 0;
    const char *fromEnv = envName != nullptr ? std::getenv(envName) : nullptr;
    std::string name =
        fromEnv != nullptr && *fromEnv != '\0' ? fromEnv : zakhost::profile_string("package", "des_file");
    if (name.empty()) return 1;
    return copy_out(name, out, size) ? 0 : 1;
}

uint32_t RPM_RmParentDir(const char *dir, uint32_t recursive) {
    if (uint32_t code = 0; injected_code("RPM_RmParentDir", &code)) return code;
    if (dir == nullptr || *dir == '\0') return 1;
    if (recursive != 0) return zakhost::remove_tree(dir) ? 0 : 1;
    return rmdir(dir) == 0 ? 0 : 1;
}

// The platform's service account, as the file family resolves it from the profile's [accounts].
uint32_t P_ZAK_Chown2ZAK(const char *path, uint32_t flags) {
    if (uint32_t code = 0; injected_code("P_ZAK_Chown2ZAK", &code)) return code;
    return P_BOOT_Chown2ZAK(path, flags) == 0 ? 0 : 1;
}

} // extern "C"

// Device paths ("<storage>:<relative path>") and the package manager's path helpers. Storages
// are the keys of the profile's [storage] section, each naming its directory under the device
// root. The one reader of the device path grammar, split_device_path, lives here.
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "host.h"
#include "securec.h"
#include "zak_file.h"
#include "zak_fs.h"

namespace {

uint32_t copy_out(const std::string &text, char *out, uint32_t size) {
    if (out == nullptr || size == 0) return static_cast<uint32_t>(ZAK_FILE_INVALID);
    if (text.size() + 1 > size) {
        out[0] = '\0';
        return static_cast<uint32_t>(ZAK_FILE_INVALID);
    }
    std::memcpy(out, text.c_str(), text.size() + 1);
    return 0;
}

// "a//b/./c/" -> "a/b/c"; "/" stays "/", and a path of only "." parts becomes ".".
std::string tidy(const std::string &path) {
    bool absolute = !path.empty() && path[0] == '/';
    std::string out = absolute ? "/" : "";
    size_t i = 0;
    while (i <= path.size()) {
        size_t end = path.find('/', i);
        if (end == std::string::npos) end = path.size();
        std::string part = path.substr(i, end - i);
        if (!part.empty() && part != ".") {
            if (!out.empty() && out.back() != '/') out += '/';
            out += part;
        }
        i = end + 1;
    }
    return out.empty() ? "." : out;
}

} // namespace

std::optional<zakhost::DevicePath> zakhost::split_device_path(std::string_view path) {
    size_t colon = path.find(':');
    if (colon == std::string_view::npos || colon == 0) return std::nullopt;
    DevicePath parts;
    parts.storage = path.substr(0, colon);
    if (parts.storage.find_first_of("/\\") != std::string::npos) return std::nullopt;
    std::optional<std::string> dir = profile_value("storage", parts.storage);
    if (!dir || dir->empty()) return std::nullopt;
    parts.directory = in_root(*dir);
    parts.rest = path.substr(colon + 1);
    return parts;
}

extern "C" {

uint32_t ZAK_InputPathCheck(const char *path) {
    int64_t result = 0;
    if (zakhost::injected("ZAK_InputPathCheck", &result))
        return result == 0 ? 1 : static_cast<uint32_t>(result);
    return path != nullptr && zakhost::split_device_path(path) ? 0 : 1;
}

uint32_t ZAK_ZakPathToLinuxPath(const char *zakPath, char *linuxPath, uint32_t size) {
    int64_t result = 0;
    if (zakhost::injected("ZAK_ZakPathToLinuxPath", &result))
        return result == 0 ? static_cast<uint32_t>(ZAK_FILE_ERROR) : static_cast<uint32_t>(result);
    if (linuxPath != nullptr && size > 0) linuxPath[0] = '\0';
    std::optional<zakhost::DevicePath> device;
    if (zakPath == nullptr || !(device = zakhost::split_device_path(zakPath)))
        return static_cast<uint32_t>(ZAK_FILE_NOT_FOUND);
    size_t skip = device->rest.find_first_not_of('/');
    std::string linux = device->directory;
    if (skip != std::string::npos) linux += "/" + device->rest.substr(skip);
    return copy_out(linux, linuxPath, size);
}

uint32_t ZAK_LinuxPathToZakPath(const char *linuxPath, char *zakPath, uint32_t size) {
    int64_t result = 0;
    if (zakhost::injected("ZAK_LinuxPathToZakPath", &result))
        return result == 0 ? static_cast<uint32_t>(ZAK_FILE_ERROR) : static_cast<uint32_t>(result);
    if (zakPath != nullptr && size > 0) zakPath[0] = '\0';
    if (linuxPath == nullptr || linuxPath[0] != '/') return static_cast<uint32_t>(ZAK_FILE_INVALID);
    std::string path = tidy(linuxPath);
    // Both the sandboxed form (R/zakv8/...) and the device's own form (/zakv8/...) are accepted.
    for (bool sandboxed : {true, false}) {
        for (const auto &[storage, dir] : zakhost::profile_section("storage")) {
            if (dir.empty()) continue;
            std::string base = tidy(sandboxed ? zakhost::in_root(dir) : dir);
            if (path == base) return copy_out(storage + ":", zakPath, size);
            if (path.size() > base.size() && path.compare(0, base.size(), base) == 0 &&
                path[base.size()] == '/')
                return copy_out(storage + ":" + path.substr(base.size() + 1), zakPath, size);
        }
    }
    return static_cast<uint32_t>(ZAK_FILE_NOT_FOUND);
}

uint32_t RPM_CutPathStr(char *path, uint32_t size) {
    int64_t result = 0;
    if (zakhost::injected("RPM_CutPathStr", &result)) return result == 0 ? 1 : static_cast<uint32_t>(result);
    if (path == nullptr || size == 0) return 1;
    std::string tidied = tidy(std::string(path, strnlen(path, size)));
    return copy_out(tidied, path, size) == 0 ? 0 : 1;
}

uint32_t RPM_GetCommonRootPath(uint32_t size, char *buffer) {
    int64_t result = 0;
    if (zakhost::injected("RPM_GetCommonRootPath", &result))
        return result == 0 ? 1 : static_cast<uint32_t>(result);
    return copy_out(zakhost::common_root(), buffer, size) == 0 ? 0 : 1;
}

uint32_t RPM_IsExistFile(const char *path) {
    if (zakhost::injected("RPM_IsExistFile")) return 0;
    return path != nullptr && access(path, F_OK) == 0 ? 1 : 0;
}

uint32_t RPM_NeedCMSCheck_HOOK(const char *text) {
    int64_t result = 0;
    if (zakhost::injected("RPM_NeedCMSCheck_HOOK", &result)) return static_cast<uint32_t>(result);
    if (text == nullptr || text[0] == '\0' || !zakhost::profile_bool("cms", "need_check")) return 0;
    std::string name = text;
    std::string suffixes = zakhost::profile_string("cms", "check_suffixes");
    size_t start = 0;
    while (start <= suffixes.size()) {
        size_t end = suffixes.find(',', start);
        std::string suffix =
            suffixes.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!suffix.empty() && name.size() >= suffix.size() &&
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
            return 1;
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return 0;
}

} // extern "C"

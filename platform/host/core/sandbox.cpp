// The device sandbox: every fixed absolute device path lands under the root R (ZAKHOST_ROOT).
#include <cstdlib>
#include <mutex>
#include <shared_mutex>

#include "host.h"
#include "os_env.h"
#include "securec.h"

namespace zakhost {
namespace {

std::shared_mutex g_rootLock;
std::string g_root;
bool g_rootRead = false;

std::string read_root() {
    const char *env = std::getenv("ZAKHOST_ROOT");
    std::string value = env != nullptr ? env : "/";
    while (!value.empty() && value.back() == '/')
        value.pop_back();
    return value;
}

} // namespace

std::string root() {
    {
        std::shared_lock lock(g_rootLock);
        if (g_rootRead) return g_root;
    }
    std::unique_lock lock(g_rootLock);
    if (!g_rootRead) {
        g_root = read_root();
        g_rootRead = true;
    }
    return g_root;
}

std::string in_root(std::string_view absolute_path) {
    std::string path = root();
    if (absolute_path.empty() || absolute_path.front() != '/') path += '/';
    path += absolute_path;
    return path;
}

std::string common_root() {
    return in_root(kCommonRoot);
}

void profile_reload();

void reset_environment() {
    {
        std::unique_lock lock(g_rootLock);
        g_rootRead = false;
    }
    profile_reload();
    apply_profile_settings();
}

} // namespace zakhost

extern "C" char *ZAK_OsDevicePath(const char *devicePath, char *buffer, uint32_t size) {
    if (devicePath == nullptr || buffer == nullptr || size == 0) return nullptr;
    std::string path = devicePath[0] == '/' ? zakhost::in_root(devicePath) : std::string(devicePath);
    if (strcpy_s(buffer, size, path.c_str()) != EOK) return nullptr;
    return buffer;
}

// The descriptor leak register: callers register a descriptor with the time after which it
// counts as leaked; `zakhost.fd_leaks()` lists the registered descriptors still open past their
// time, measured on the host's monotonic clock (so `zakhost.clock_advance` ages them).
#include <time.h>

#include <map>
#include <mutex>

extern "C" {
#include <lua.h>
}

#include "fd_register.h"
#include "host.h"
#include "zak_file.h"
#include "zak_fs.h"

namespace zakhost {
namespace {

struct Registered {
    int64_t since_ms;
    uint32_t timeout_ms;
};

std::mutex g_lock;
std::map<int32_t, Registered> g_registered;
std::map<int32_t, std::string> g_paths;

int64_t now_ms() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (static_cast<int64_t>(ts.tv_sec) + clock_offset()) * 1000 + ts.tv_nsec / 1000000;
}

// zakhost.fd_leaks([all]): array of {fd, path, timeout_ms, age_ms} of the registered descriptors
// open longer than their time; with `all` true, every registered descriptor.
int lua_fd_leaks(lua_State *state) {
    bool all = lua_toboolean(state, 1) != 0;
    int64_t now = now_ms();
    std::lock_guard lock(g_lock);
    lua_newtable(state);
    int n = 0;
    for (const auto &[fd, info] : g_registered) {
        int64_t age = now - info.since_ms;
        if (!all && age <= static_cast<int64_t>(info.timeout_ms)) continue;
        lua_createtable(state, 0, 4);
        lua_pushinteger(state, fd);
        lua_setfield(state, -2, "fd");
        auto path = g_paths.find(fd);
        lua_pushstring(state, path == g_paths.end() ? "" : path->second.c_str());
        lua_setfield(state, -2, "path");
        lua_pushinteger(state, info.timeout_ms);
        lua_setfield(state, -2, "timeout_ms");
        lua_pushinteger(state, static_cast<lua_Integer>(age));
        lua_setfield(state, -2, "age_ms");
        lua_rawseti(state, -2, ++n);
    }
    return 1;
}

const ControlFunction kFdLeaks{"fd_leaks", &lua_fd_leaks};

} // namespace

void fd_opened(int32_t fd, const std::string &path) {
    if (fd < 0) return;
    std::lock_guard lock(g_lock);
    g_paths[fd] = path;
    g_registered.erase(fd); // a reused number starts afresh
}

bool fd_closing(int32_t fd) {
    std::lock_guard lock(g_lock);
    g_registered.erase(fd);
    return g_paths.erase(fd) != 0;
}

bool fd_is_open(int32_t fd) {
    std::lock_guard lock(g_lock);
    return g_paths.count(fd) != 0;
}

} // namespace zakhost

extern "C" int32_t P_ZAK_FdLeakCheckInfoSet(const ZAK_FD_LEAK_CHECK_INFO *info) {
    int64_t result = 0;
    if (zakhost::injected("P_ZAK_FdLeakCheckInfoSet", &result))
        return result == 0 ? ZAK_FILE_ERROR : static_cast<int32_t>(result);
    if (info == nullptr || info->iFd < 0) return ZAK_FILE_INVALID;
    std::lock_guard lock(zakhost::g_lock);
    zakhost::g_registered[info->iFd] = {zakhost::now_ms(), info->uiTimeOutMs};
    return 0;
}

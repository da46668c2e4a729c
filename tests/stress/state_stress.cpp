// Load: 16 script states on 8 threads run a mixed workload and check the invariants of each part.
// usage: state_stress [seconds]   (default 2: below the 5 s slice after which a waiter takes over)
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

extern "C" {
#include <lauxlib.h>
#include <lualib.h>
int luaopen_libqavluacommon(lua_State *state);
}

#include "host.h"

namespace {

constexpr int kStates = 16;
constexpr int kThreads = 8;
constexpr int kNamedLocks = 3;

std::atomic<bool> g_done{false};
std::atomic<int> g_violations{0};

void Violation(const std::string &what) {
    std::fprintf(stderr, "violation: %s\n", what.c_str());
    ++g_violations;
}

// A named lock's holders: an atomic count, and a plain counter only the holder touches (a lock
// admitting two holders, or giving no ordering, loses updates or is reported by ThreadSanitizer).
struct LockSlot {
    std::atomic<int> holders{0};
    long guarded = 0;
    std::atomic<long> entries{0};
};
LockSlot g_locks[kNamedLocks + 1];

// Holders of the upgrade lock as the scripts see them: counted after a successful take and
// uncounted before the release, so they are never more than the real holders.
std::mutex g_upgradeMutex;
int g_writers = 0;
int g_readers = 0;

int Enter(lua_State *L) {
    LockSlot &slot = g_locks[luaL_checkinteger(L, 1) % (kNamedLocks + 1)];
    if (slot.holders.fetch_add(1) != 0)
        Violation("two holders of named lock " + std::to_string(&slot - g_locks));
    ++slot.guarded;
    ++slot.entries;
    std::this_thread::yield();
    return 0;
}

int Leave(lua_State *L) {
    g_locks[luaL_checkinteger(L, 1) % (kNamedLocks + 1)].holders.fetch_sub(1);
    return 0;
}

// stress.upgrade(role, delta): role "w" or "r", delta +1 after a take, -1 before a release.
int Upgrade(lua_State *L) {
    bool writer = std::strcmp(luaL_checkstring(L, 1), "w") == 0;
    auto delta = static_cast<int>(luaL_checkinteger(L, 2));
    std::lock_guard guard(g_upgradeMutex);
    (writer ? g_writers : g_readers) += delta;
    if (g_writers > 1 || (g_writers > 0 && g_readers > 0))
        Violation("upgrade lock held by " + std::to_string(g_writers) + " writers and " +
                  std::to_string(g_readers) + " readers");
    return 0;
}

const char *const kWorkload = R"lua(
local m, h, i = libqavluacommon, stress, STRESS_INDEX
local rounds = 0
local dir = string.format("stress/s%02d", i)
local vm = string.format("vmA%02d", i)
local node = 0x100 + i
local nextPort = 41004
local RECURSIVE, FORCE = 0x2, 0x8

local tables = {
    { lock = m.qav_luaPatchErrTblLock, unlock = m.qav_luaPatchErrTblUnlock,
      set = m.qav_set_patch_errinfo, query = m.qav_query_patch_errinfo, items = 5, texts = { [3] = true } },
    { lock = m.qav_luaFlhSyncTblLock, unlock = m.qav_luaFlhSyncTblUnlock,
      set = m.qav_set_flh_syncinfo, query = m.qav_query_flh_syncinfo, items = 8,
      texts = { [4] = true, [5] = true, [6] = true, [7] = true } },
    { lock = m.qav_luaLoadPatchTblLock, unlock = m.qav_luaLoadPatchTblUnlock,
      set = m.qav_set_load_patchinfo, query = m.qav_query_load_patchinfo, items = 6, texts = { [4] = true } },
}

local function groups(t, n, k)
    local out = {}
    for g = 1, n do
        local items = {}
        for j = 1, t.items do
            items[j] = { fid = 1000 + j, value = t.texts[j] and ("s" .. i .. "." .. k .. "." .. g)
                                                 or (i * 100000 + (k % 1000) * 10 + g) }
        end
        out[g] = items
    end
    return out
end

local function same(a, b)
    if type(a) ~= "table" or type(b) ~= "table" then return a == b end
    for key, v in pairs(a) do if not same(v, b[key]) then return false end end
    for key in pairs(b) do if a[key] == nil then return false end end
    return true
end

local function check(cond, what) if not cond then error("state " .. i .. ": " .. what, 2) end end

function round()
    rounds = rounds + 1
    local k = rounds

    -- A record table under its named lock.
    local which = k % #tables + 1
    local t = tables[which]
    check(t.lock() == 0, "named lock " .. which)
    h.enter(which)
    local data = groups(t, 1 + k % 3, k)
    check(t.set(#data, data) == 0, "set table " .. which)
    local s, got = t.query()
    check(s == 0 and same(got, data), "table " .. which .. " lost or mixed records")
    h.leave(which)
    check(t.unlock() == 0, "named unlock " .. which)

    -- Ports: this state's own node, then the node every state shares.
    local st, port = m.qav_luaAssignPortID(node)
    check(st == 0 and port == nextPort, "own port " .. tostring(port) .. " instead of " .. nextPort)
    nextPort = nextPort == 41128 and 41004 or nextPort + 1
    check(m.qav_luaAssignPortID(0x777) == 0, "shared port")

    -- The upgrade lock: a read lock on this state's VM, every eighth round a write lock.
    local mode, list, role = 2, vm, "r"
    if k % 8 == 0 then mode, list, role = 1, "", "w" end
    local r = m.qav_Lock(600, mode, list)
    if r == 0 then
        h.upgrade(role, 1); h.upgrade(role, -1)
        check(m.qav_UnLock(mode, list) == 0, role .. " unlock")
    else
        check(r == 2, role .. " lock gave " .. tostring(r))
    end

    -- The file engine and the script file handles, in this state's own directory.
    local d = dir .. "/r" .. k
    check(m.luafs_mkdir(d .. "/sub", -1, RECURSIVE) == 0, "mkdir " .. d)
    local fd, handle = m.qav_spt_fopen(0, d .. "/sub/f.txt", "w")
    check(fd >= 0, "fopen gave " .. tostring(fd))
    local payload = "payload " .. i .. "." .. k
    check(m.qav_spt_fwrite(handle, fd, payload) == #payload, "fwrite")
    m.qav_spt_fclose(handle, fd)
    -- (File copies only: a directory copied once stays in the engine's seen-directory table for
    -- the life of the process, and a later directory reusing its inode would be refused.)
    check(m.luafs_cp(d .. "/sub/f.txt", d .. "/f.copy", 0) == 0, "cp in " .. d)
    local copy = io.open(d .. "/f.copy", "rb")
    check(copy and copy:read("a") == payload and copy:close(), "copy in " .. d .. " differs")
    check(m.luafs_mv(d .. "/f.copy", d .. "/sub/g.txt", 0) == 0, "mv in " .. d)
    -- Directory streams of all states share one register; a value never handed out is refused.
    local listing, entries = m.luafs_opendir(d .. "/sub"), 0
    while m.luafs_readdir(listing) == 0 do entries = entries + 1 end
    check(entries == 4 and m.luafs_closedir(listing) == 0, "listing of " .. d)
    check(m.luafs_readdir(debug.upvalueid(check, 1)) == -1, "readdir of a foreign value")
    check(m.luafs_rm(d, RECURSIVE + FORCE) == 0, "rm " .. d)
end
)lua";

lua_State *NewState(int index) {
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    luaL_requiref(L, "libqavluacommon", luaopen_libqavluacommon, 1);
    lua_pop(L, 1);
    const luaL_Reg hooks[] = {{"enter", Enter}, {"leave", Leave}, {"upgrade", Upgrade}, {nullptr, nullptr}};
    luaL_newlib(L, hooks);
    lua_setglobal(L, "stress");
    lua_pushinteger(L, index);
    lua_setglobal(L, "STRESS_INDEX");
    if (luaL_dostring(L, kWorkload) != LUA_OK) {
        std::fprintf(stderr, "workload: %s\n", lua_tostring(L, -1));
        std::exit(2);
    }
    return L;
}

// Runs a chunk; false after an error (reported).
bool Lua(lua_State *L, const char *chunk) {
    if (luaL_dostring(L, chunk) == LUA_OK) return true;
    Violation(lua_tostring(L, -1) != nullptr ? lua_tostring(L, -1) : chunk);
    lua_pop(L, 1);
    return false;
}

} // namespace

int main(int argc, char **argv) {
    double seconds = argc > 1 ? std::atof(argv[1]) : 2.0;
    if (seconds <= 0 || seconds > 4.5) {
        std::fprintf(stderr, "usage: state_stress [seconds], at most 4.5\n");
        return 2;
    }
    char root[] = "/tmp/qavstress.XXXXXX";
    if (mkdtemp(root) == nullptr) return 2;
    setenv("ZAKHOST_ROOT", root, 1);
    unsetenv("ZAKHOST_LOG_DIR");
    zakhost::reset_environment();
    std::string error = zakhost::init_sandbox(root);
    std::string work = std::string(root) + "/zakv8/main/bin";
    if (!error.empty() || chdir(work.c_str()) != 0 || mkdir("stress", 0755) != 0) {
        std::fprintf(stderr, "sandbox: %s\n", error.c_str());
        return 2;
    }

    std::vector<lua_State *> states;
    for (int i = 0; i < kStates; ++i)
        states.push_back(NewState(i + 1));
    Lua(states[0], "assert(select(2, libqavluacommon.qav_luaTblInit()) == 0, 'qav_luaTblInit failed')");

    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&states, t] {
            lua_State *mine[] = {states[2 * t], states[2 * t + 1]};
            bool ok = true;
            while (ok && !g_done.load()) {
                for (lua_State *L : mine)
                    ok = ok && Lua(L, "round()");
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    g_done = true;
    for (auto &t : threads)
        t.join();

    // Every round entered one named lock once and assigned one port on the shared node.
    long rounds = 0;
    for (int k = 1; k <= kNamedLocks; ++k) {
        if (g_locks[k].guarded != g_locks[k].entries.load())
            Violation("named lock " + std::to_string(k) +
                      " lost updates: " + std::to_string(g_locks[k].guarded) + " of " +
                      std::to_string(g_locks[k].entries.load()));
        rounds += g_locks[k].entries.load();
    }

    // The shared node's cursor moved once per assignment: the next port follows from the total.
    lua_State *L = states[0];
    lua_newtable(L);
    for (const auto &[name, function] : zakhost::control_functions()) {
        lua_pushcfunction(L, function);
        lua_setfield(L, -2, name);
    }
    lua_setglobal(L, "zh");
    lua_pushinteger(L, 41004 + rounds % 125);
    lua_setglobal(L, "NEXT_SHARED_PORT");
    Lua(L, R"lua(
        local m = libqavluacommon
        local _, port = m.qav_luaAssignPortID(0x777)
        assert(port == NEXT_SHARED_PORT, "shared node's next port " .. port .. ", expected " .. NEXT_SHARED_PORT)
        assert(not m.qav_IsLocked(), "upgrade lock still held at the end")
        assert(#zh.fd_leaks(true) == 0, #zh.fd_leaks(true) .. " descriptors left open"))lua");

    for (int i = 1; i <= kStates; ++i) {
        char path[64];
        std::snprintf(path, sizeof path, "stress/s%02d", i);
        struct stat st {};
        if (stat(path, &st) == 0 && rmdir(path) != 0) Violation(std::string(path) + " not empty at the end");
    }

    for (lua_State *s : states)
        lua_close(s);
    std::printf("%d states on %d threads for %.1f s: %ld rounds\n", kStates, kThreads, seconds, rounds);
    if (chdir("/") == 0) {
        std::string command = std::string("rm -rf ") + root;
        (void)std::system(command.c_str());
    }
    if (g_violations != 0) {
        std::printf("%d violations\n", g_violations.load());
        return 1;
    }
    std::printf("invariants hold\n");
    return 0;
}

// Shared state used from several script states on several threads of one process, as the
// device's engine runs them: named locks never admit two live holders and the upgrade lock never
// admits overlapping VM lists.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
}

#include "nuk_sync.h"
#include "state/named_locks.h"
#include "state/upgrade_lock.h"

extern "C" int luaopen_libqavluacommon(lua_State *state);

namespace {

// Counts how many script states are inside a critical section at once.
struct Occupancy {
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    std::atomic<int> entries{0};
};

int Enter(lua_State *state) {
    auto *occupancy = static_cast<Occupancy *>(lua_touserdata(state, lua_upvalueindex(1)));
    if (occupancy->inside.fetch_add(1) != 0) occupancy->overlaps++;
    occupancy->entries++;
    std::this_thread::yield(); // give another holder the chance to slip in if the lock lets it
    return 0;
}

int Leave(lua_State *state) {
    auto *occupancy = static_cast<Occupancy *>(lua_touserdata(state, lua_upvalueindex(1)));
    occupancy->inside.fetch_sub(1);
    return 0;
}

// A script state with the library loaded, like the engine's.
class ScriptState {
  public:
    ScriptState() : state_(luaL_newstate()) {
        luaL_openlibs(state_);
        luaL_requiref(state_, "libqavluacommon", luaopen_libqavluacommon, 1);
        lua_pop(state_, 1);
    }
    ~ScriptState() { lua_close(state_); }
    ScriptState(const ScriptState &) = delete;
    ScriptState &operator=(const ScriptState &) = delete;

    void AddFunction(const char *name, lua_CFunction function, void *upvalue) {
        lua_pushlightuserdata(state_, upvalue);
        lua_pushcclosure(state_, function, 1);
        lua_setglobal(state_, name);
    }

    // Runs a chunk; the error text, or "" when it ran to the end.
    std::string Run(const std::string &chunk) {
        if (luaL_dostring(state_, chunk.c_str()) == 0) return "";
        std::string error = lua_tostring(state_, -1);
        lua_pop(state_, 1);
        return error;
    }

  private:
    lua_State *state_;
};

// Opens `count` states on this thread (opening re-initialises the TPM tables, which the engine
// does before scripts run), then runs `chunk` in each on its own thread, all at once.
std::vector<std::string> RunConcurrently(int count, const std::string &setup, const std::string &chunk,
                                         void (*prepare)(ScriptState &, void *), void *context) {
    std::vector<std::unique_ptr<ScriptState>> states;
    for (int i = 0; i < count; ++i) {
        states.push_back(std::make_unique<ScriptState>());
        if (prepare != nullptr) prepare(*states.back(), context);
    }
    std::vector<std::string> errors(count);
    if (!setup.empty()) errors[0] = states[0]->Run(setup);
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            ready++;
            while (ready.load() < count)
                std::this_thread::yield();
            std::string error = states[i]->Run("local id = " + std::to_string(i) + "\n" + chunk);
            if (!error.empty()) errors[i] = error;
        });
    }
    for (auto &thread : threads)
        thread.join();
    return errors;
}

void AddProbes(ScriptState &state, void *occupancy) {
    state.AddFunction("enter", Enter, occupancy);
    state.AddFunction("leave", Leave, occupancy);
}

void ExpectNoErrors(const std::vector<std::string> &errors) {
    for (size_t i = 0; i < errors.size(); ++i)
        EXPECT_EQ(errors[i], "") << "script state " << i;
}

// Exactly one unit left on the lock's semaphore (taken and given back to look).
void ExpectOneSemaphoreUnit(uint32_t semaId) {
    ASSERT_EQ(NUK_SemaP(semaId, 0), 0u);
    EXPECT_EQ(NUK_SemaP(semaId, 0), NUK_SEMA_TIMEOUT);
    NUK_SemaV(semaId);
}

TEST(StateConcurrency, NamedLockAdmitsOneLiveHolderAtATime) {
    Occupancy occupancy;
    auto errors = RunConcurrently(4, "assert(select(2, libqavluacommon.qav_luaTblInit()) == 0)", R"(
        local m = libqavluacommon
        for i = 1, 1500 do
            assert(m.qav_download_lock_Lock() == 0)
            enter()
            m.qav_set_download_lock_info { sessionId = id, startTime = i }
            local info = {}
            m.qav_query_download_lock_info(info)
            assert(info.sessionId == id and info.startTime == i, "another holder wrote the lock-info")
            leave()
            assert(m.qav_download_lock_Unlock() == 0)
        end)",
                                  AddProbes, &occupancy);
    ExpectNoErrors(errors);
    EXPECT_EQ(occupancy.entries.load(), 4 * 1500);
    EXPECT_EQ(occupancy.overlaps.load(), 0);
    EXPECT_EQ(g_stDownLoadLockTable.lock.count, 0);
    ExpectOneSemaphoreUnit(g_stDownLoadLockTable.lock.semaId);
}

TEST(StateConcurrency, CrlLockIsCreatedOnceByRacingFirstTakes) {
    Occupancy occupancy;
    auto errors = RunConcurrently(4, "", R"(
        local m = libqavluacommon
        for i = 1, 500 do
            assert(m.qav_crlLock_lock() == 0)
            enter()
            leave()
            assert(m.qav_crlLock_unlock() == 0)
        end)",
                                  AddProbes, &occupancy);
    ExpectNoErrors(errors);
    EXPECT_EQ(occupancy.overlaps.load(), 0);
    EXPECT_EQ(occupancy.entries.load(), 4 * 500);
    EXPECT_EQ(g_stCrlLockTable.initFlag, 1u);
    ExpectOneSemaphoreUnit(g_stCrlLockTable.lock.semaId);
}

// Per-VM holder counts behind the upgrade lock.
struct VmHolders {
    std::atomic<int> holders[4] = {};
    std::atomic<int> overlaps{0};
    std::atomic<int> granted{0};
    std::atomic<int> refused{0};
};

int Claim(lua_State *state) {
    auto *vms = static_cast<VmHolders *>(lua_touserdata(state, lua_upvalueindex(1)));
    const char *names = luaL_checkstring(state, 1);
    for (const char *c = names; *c != '\0'; ++c)
        if (*c >= 'a' && *c <= 'd' && vms->holders[*c - 'a'].fetch_add(1) != 0) vms->overlaps++;
    vms->granted++;
    std::this_thread::yield();
    return 0;
}

int Release(lua_State *state) {
    auto *vms = static_cast<VmHolders *>(lua_touserdata(state, lua_upvalueindex(1)));
    const char *names = luaL_checkstring(state, 1);
    for (const char *c = names; *c != '\0'; ++c)
        if (*c >= 'a' && *c <= 'd') vms->holders[*c - 'a'].fetch_sub(1);
    return 0;
}

int Refused(lua_State *state) {
    static_cast<VmHolders *>(lua_touserdata(state, lua_upvalueindex(1)))->refused++;
    return 0;
}

void AddVmProbes(ScriptState &state, void *vms) {
    state.AddFunction("claim", Claim, vms);
    state.AddFunction("release", Release, vms);
    state.AddFunction("refused", Refused, vms);
}

TEST(StateConcurrency, UpgradeLockNeverAdmitsOverlappingVmLists) {
    VmHolders vms;
    // Four lists around a ring of four VMs: each overlaps its two neighbours.
    auto errors = RunConcurrently(4, "", R"(
        local m = libqavluacommon
        local lists = { '"a"b"', '"b"c"', '"c"d"', '"d"a"' }
        for i = 1, 1500 do
            local list = lists[(id + i) % 4 + 1]
            local rc = m.qav_Lock(100000, 2, list)
            if rc == 0 then
                claim(list)
                release(list)
                assert(m.qav_UnLock(2, list) == 0)
            else
                assert(rc == 3, "unexpected lock result " .. rc)
                refused()
            end
        end)",
                                  AddVmProbes, &vms);
    ExpectNoErrors(errors);
    EXPECT_EQ(vms.overlaps.load(), 0);
    EXPECT_EQ(vms.granted.load() + vms.refused.load(), 4 * 1500);
    EXPECT_GT(vms.granted.load(), 0);
    EXPECT_EQ(g_stUpgradeLock.state, 0u) << "the last reader's unlock ends the read lock";
    EXPECT_EQ(g_stUpgradeLock.vmLists.count, 0u);
}

} // namespace

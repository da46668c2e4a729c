// Shared state used from several threads at once, and paths only other libraries reach.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "nuk_sync.h"
#include "state/named_locks.h"
#include "state/tpm_tables.h"
#include "state/upgrade_lock.h"
#include "unit_helpers.h"

extern "C" {
int QAV_luaCrlLock_lock(lua_State *state);
int QAV_luaCrlLock_unlock(lua_State *state);
int l_get_hardtypeOfColdPatHardRst(lua_State *state);
int l_issu_log(lua_State *state);
}

namespace {

// Holders of each of the places 'a' to 'd' (a named lock is place 'a', a VM list several).
struct Holders {
    std::atomic<int> holders[4] = {};
    std::atomic<int> overlaps{0};
    std::atomic<int> granted{0};
    std::atomic<int> refused{0};
};

Holders *Of(lua_State *state) {
    return static_cast<Holders *>(lua_touserdata(state, lua_upvalueindex(1)));
}

// claim(places) and release(places) around a critical section; refused() counts a refusal.
int Claim(lua_State *state) {
    for (const char *c = luaL_checkstring(state, 1); *c != '\0'; ++c)
        if (*c >= 'a' && *c <= 'd' && Of(state)->holders[*c - 'a'].fetch_add(1) != 0) Of(state)->overlaps++;
    Of(state)->granted++;
    std::this_thread::yield(); // give another holder the chance to slip in if the lock lets it
    return 0;
}

int Release(lua_State *state) {
    for (const char *c = luaL_checkstring(state, 1); *c != '\0'; ++c)
        if (*c >= 'a' && *c <= 'd') Of(state)->holders[*c - 'a'].fetch_sub(1);
    return 0;
}

int Refused(lua_State *state) {
    Of(state)->refused++;
    return 0;
}

// Runs a chunk; the error text, or "" when it ran to the end.
std::string Run(lua_State *L, const std::string &chunk) {
    if (luaL_dostring(L, chunk.c_str()) == 0) return "";
    std::string error = lua_tostring(L, -1);
    lua_pop(L, 1);
    return error;
}

// Opens four states on this thread (opening re-initialises the TPM tables, which the engine does
// before scripts run), runs `setup` in the first, then `chunk` in each on its own thread at once.
struct Counts {
    int overlaps, granted, refused;
};
Counts RunConcurrently(const std::string &setup, const std::string &chunk) {
    Holders probes;
    std::vector<lua_State *> states;
    for (int i = 0; i < 4; ++i) {
        states.push_back(unit::OpenState());
        for (auto [name, function] : {std::pair<const char *, lua_CFunction>{"claim", Claim},
                                      {"release", Release},
                                      {"refused", Refused}}) {
            lua_pushlightuserdata(states.back(), &probes);
            lua_pushcclosure(states.back(), function, 1);
            lua_setglobal(states.back(), name);
        }
    }
    EXPECT_EQ(Run(states[0], setup), "");
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (ready++; ready.load() < 4;)
                std::this_thread::yield();
            EXPECT_EQ(Run(states[i], "local id = " + std::to_string(i) + "\n" + chunk), "") << "state " << i;
        });
    }
    for (auto &thread : threads)
        thread.join();
    for (lua_State *L : states)
        lua_close(L);
    return {probes.overlaps.load(), probes.granted.load(), probes.refused.load()};
}

// Exactly one unit left on the lock's semaphore (taken and given back to look).
void ExpectOneSemaphoreUnit(uint32_t semaId) {
    ASSERT_EQ(NUK_SemaP(semaId, 0), 0u);
    EXPECT_EQ(NUK_SemaP(semaId, 0), NUK_SEMA_TIMEOUT);
    NUK_SemaV(semaId);
}

TEST(StateConcurrency, NamedLockAdmitsOneLiveHolderAtATime) {
    Counts probes = RunConcurrently("assert(select(2, libqavluacommon.qav_luaTblInit()) == 0)", R"(
        local m = libqavluacommon
        for i = 1, 1500 do
            assert(m.qav_download_lock_Lock() == 0)
            claim("a")
            m.qav_set_download_lock_info { sessionId = id, startTime = i }
            local info = {}
            m.qav_query_download_lock_info(info)
            assert(info.sessionId == id and info.startTime == i, "another holder wrote the lock-info")
            release("a")
            assert(m.qav_download_lock_Unlock() == 0)
        end)");
    EXPECT_EQ(probes.granted, 4 * 1500);
    EXPECT_EQ(probes.overlaps, 0);
    EXPECT_EQ(g_stDownLoadLockTable.lock.count, 0);
    ExpectOneSemaphoreUnit(g_stDownLoadLockTable.lock.semaId);
}

TEST(StateConcurrency, CrlLockIsCreatedOnceByRacingFirstTakes) {
    Counts probes = RunConcurrently("", R"(
        for i = 1, 500 do
            assert(libqavluacommon.qav_crlLock_lock() == 0)
            claim("a")
            release("a")
            assert(libqavluacommon.qav_crlLock_unlock() == 0)
        end)");
    EXPECT_EQ(probes.overlaps, 0);
    EXPECT_EQ(probes.granted, 4 * 500);
    ExpectOneSemaphoreUnit(g_stCrlLockTable.lock.semaId);
}

TEST(StateConcurrency, UpgradeLockNeverAdmitsOverlappingVmLists) {
    // Four lists around a ring of four VMs: each overlaps its two neighbours.
    Counts probes = RunConcurrently("", R"(
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
        end)");
    EXPECT_EQ(probes.overlaps, 0);
    EXPECT_EQ(probes.granted + probes.refused, 4 * 1500);
    EXPECT_GT(probes.granted, 0);
    EXPECT_EQ(g_stUpgradeLock.state, 0u) << "the last reader's unlock ends the read lock";
    EXPECT_EQ(g_stUpgradeLock.vmLists.count, 0u);
}

TEST(StateEntry, CrlLockWithoutScriptStateLogsAndPushesNothing) {
    zakhost::log_clear();
    EXPECT_EQ(QAV_luaCrlLock_lock(nullptr), 1);
    EXPECT_EQ(QAV_luaCrlLock_unlock(nullptr), 1);
    // The unlock reuses the lock's text; neither call creates the lock.
    EXPECT_EQ(zakhost::log_messages("upgrade"),
              (std::vector<std::string>{"Lock Crl lock failed, pstSc is null",
                                        "Lock Crl lock failed, pstSc is null"}));
    EXPECT_EQ(g_stCrlLockTable.initFlag, 0u);
}

TEST(StateEntry, TpmTableInitFailureLogsAndDropsTheMutex) {
    QavTpmQueryTable table{};
    zakhost::log_clear();
    zakhost::inject("NUK_SemaCreate", 7, 0, 1);
    EXPECT_EQ(QAV_TPM_InitTpmQueryTable(&table, "tpmreportsema"), 7u);
    EXPECT_EQ(zakhost::log_messages("upgrade"),
              (std::vector<std::string>{"TPM Init Tpm Query Table entry",
                                        "TPM Init Tpm Query Table failed, ret(7)"}));
    EXPECT_EQ(table.lock.mutex, 0u);
    EXPECT_EQ(table.lock.semaId, 0u);
    EXPECT_EQ(QAV_LuaCommLock(&table.lock), -1) << "a table whose init failed cannot be locked";
    ASSERT_EQ(QAV_TPM_InitTpmQueryTable(&table, "tpmreportsema"), 0u);
    EXPECT_EQ(QAV_TPM_NeedRefreshTable(&table), 1u);
    EXPECT_EQ(QAV_TPM_NeedRefreshTable(nullptr), 0u) << "a missing table is never stale";
    EXPECT_EQ(QAV_LuaCommLock(&table.lock), 0);
    EXPECT_EQ(QAV_LuaCommUnLock(&table.lock), 0u);
    EXPECT_EQ(QAV_LuaCommUnLock(nullptr), 1u);
}

TEST(PkgmgrEntry, CallsWithoutAScriptStateOnlyLog) {
    zakhost::log_clear();
    EXPECT_EQ(l_get_hardtypeOfColdPatHardRst(nullptr), 0);
    EXPECT_EQ(l_issu_log(nullptr), 1);
    for (const char *text : {"Get hardtypes of cold pat using hard reset policy func enter",
                             "Get hardtypes of cold pat using hard reset policy func, pstSc is null",
                             "print issu log func, pstSc is null"})
        EXPECT_EQ(unit::Logged("upgrade", text), 1u) << text;
    EXPECT_TRUE(zakhost::log_messages("issu").empty());
}

} // namespace

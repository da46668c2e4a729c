// Paths that only other libraries of the process reach: entry functions called without a script
// state, and the TPM table initialisation the open function runs.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit_helpers.h"
#include "state/named_locks.h"
#include "state/tpm_tables.h"

extern "C" {
int QAV_luaCrlLock_lock(lua_State *state);
int QAV_luaCrlLock_unlock(lua_State *state);
int l_get_hardtypeOfColdPatHardRst(lua_State *state);
int l_issu_log(lua_State *state);
}

namespace {

std::vector<std::string> UpgradeLog() {
    return zakhost::log_messages("upgrade");
}

TEST(StateEntry, CrlLockWithoutScriptStateLogsAndPushesNothing) {
    zakhost::log_clear();
    EXPECT_EQ(QAV_luaCrlLock_lock(nullptr), 1);
    EXPECT_EQ(QAV_luaCrlLock_unlock(nullptr), 1);
    // The unlock reuses the lock's text; neither call creates the lock.
    EXPECT_EQ(UpgradeLog(), (std::vector<std::string>{"Lock Crl lock failed, pstSc is null",
                                                      "Lock Crl lock failed, pstSc is null"}));
    EXPECT_EQ(g_stCrlLockTable.initFlag, 0u);
}

TEST(StateEntry, TpmTableInitFailureLogsAndDropsTheMutex) {
    QavTpmQueryTable table{};
    zakhost::log_clear();
    zakhost::inject("NUK_SemaCreate", 7, 0, 1);
    EXPECT_EQ(QAV_TPM_InitTpmQueryTable(&table, "tpmreportsema"), 7u);
    EXPECT_EQ(UpgradeLog(), (std::vector<std::string>{"TPM Init Tpm Query Table entry",
                                                      "TPM Init Tpm Query Table failed, ret(7)"}));
    EXPECT_EQ(table.lock.mutex, 0u);
    EXPECT_EQ(table.lock.semaId, 0u);
    EXPECT_EQ(QAV_LuaCommLock(&table.lock), -1) << "a table whose init failed cannot be locked";

    ASSERT_EQ(QAV_TPM_InitTpmQueryTable(&table, "tpmreportsema"), 0u);
    EXPECT_EQ(table.forceRefresh, 1u);
    EXPECT_EQ(table.refreshInterval, 5u);
    EXPECT_EQ(table.refreshTime, 0u);
    EXPECT_EQ(table.entries.next, &table.entries);
    EXPECT_EQ(table.entries.prev, &table.entries);
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

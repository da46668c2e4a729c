// The open function: prepares the process-wide objects once, under the platform's shared
// initialisation mutex, and registers the script functions for every script state.
#include <algorithm>
#include <iterator>

#include "binding/registry.h"
#include "binding/script_frame.h"
#include "state/port_ids.h"
#include "state/swm_locks.h"
#include "state/tpm_tables.h"
#include "state/upgrade_lock.h"

extern "C" {
#include <lauxlib.h>
}

namespace {

int CheckVersion(lua_State *state) {
    luaL_checkversion(state);
    return 0;
}

// Creates a process-wide mutex on first use; a failed creation leaves 0 for the next open.
void CreateOnce(uint32_t *mutex) {
    if (*mutex == 0) NUK_MutexInit(mutex, 0);
}

} // namespace

extern "C" __attribute__((visibility("default"))) int luaopen_libqavluacommon(lua_State *state) {
    // A state of another Lua version, or of another Lua core in the process, is refused before
    // anything is touched: the check raises, which `require` reports as the loader's error (a
    // library built for one version would otherwise misread the other's stack). The entry
    // functions themselves never raise.
    lua_pushcfunction(state, CheckVersion);
    if (lua_pcall(state, 0, 0, 0) != LUA_OK) {
        lua_pushfstring(state,
                        "libqavluacommon is built for Lua " LUA_VERSION_MAJOR "." LUA_VERSION_MINOR ": %s",
                        lua_tostring(state, -1));
        lua_error(state);
    }
    // The engine reads the registry during Script_OpenLib only; it gets a private copy.
    SCRIPT_REG_ENTRY registry[qav::kRegistryEntries + 1];
    std::copy(std::begin(qav::kRegistry), std::end(qav::kRegistry), registry);

    if (NUK_MutexLock(g_pLuaInitMutex) != 0) return 1;
    (void)QAV_LuaAssignPortID_Init();
    CreateOnce(&g_pUpgradeMutex);
    if (pstUpgradeLock == nullptr) {
        pstUpgradeLock = &g_stUpgradeLock;
        QAV_SuLockInit();
    }
    CreateOnce(&g_pHaVnodeDeployMutex);
    CreateOnce(&g_pSoftwareManageMutex);
    RPM_LogToFile(qav::kUpgradeLogId, qav::kLogProgress, "init tpm table in open luacommon so");
    NUK_MutexUnlock(g_pLuaInitMutex);

    (void)QAV_TPM_InitTpmQueryTable(&g_stTpmReportTable, "tpmreportsema");
    (void)QAV_TPM_InitTpmQueryTable(&g_stTpmStatusTable, "tpmstatussema");
    (void)Script_OpenLib(state, "libqavluacommon", registry);
    return 1;
}

// The software-management lock, which ages out by itself, and the HA vnode deployment lock, a
// mutex that is only ever tried.
#include "state/swm_locks.h"

#include "binding/script_frame.h"
#include "state/upgrade_lock.h"

extern "C" {
uint32_t g_pHaVnodeDeployMutex = 0;
uint32_t g_pSoftwareManageMutex = 0;
uint32_t g_uiSWMLockTime = 0;
uint32_t g_uiSWMAgingTime = 0;

// The end second is still locked.
uint32_t QAV_IsSWMLocked(uint32_t now) {
    if (g_uiSWMLockTime == 0) return 0;
    return now - g_uiSWMLockTime <= g_uiSWMAgingTime ? 1 : 0;
}

void QAV_SetSWMLock(uint32_t lockTime, uint32_t agingTime) {
    g_uiSWMLockTime = lockTime;
    g_uiSWMAgingTime = agingTime;
}
}

QAV_ENTRY_FUNCTION QAV_SWMLock(lua_State *state) {
    if (!qav::ArgsMatch(state, ".")) return qav::ReturnUInt(state, qav::kFailed);
    uint32_t agingTime = SYSDT_SPTI_ToUInt(state, 1);
    if (NUK_MutexLock(g_pSoftwareManageMutex) != 0) return qav::ReturnUInt(state, 1);
    // Read under the mutex: a time read before waiting for it can be older than the lock time
    // another holder has just set, and the unsigned age would wrap into "expired".
    uint32_t now = 0;
    uint32_t rc = 1;
    if (QAV_GetSysTime(&now) == 0) {
        rc = 2;
        // An expired lock is silently taken over.
        if (QAV_IsSWMLocked(now) == 0) {
            QAV_SetSWMLock(now, agingTime);
            rc = 0;
        }
    }
    (void)NUK_MutexUnlock(g_pSoftwareManageMutex);
    return qav::ReturnUInt(state, rc);
}

// No owner check: any script may unlock, and unlocking a free lock succeeds too.
QAV_ENTRY_FUNCTION QAV_SWMUnLock(lua_State *state) {
    if (NUK_MutexLock(g_pSoftwareManageMutex) != 0) return qav::ReturnUInt(state, 1);
    QAV_SetSWMLock(0, 0);
    (void)NUK_MutexUnlock(g_pSoftwareManageMutex);
    return qav::ReturnUInt(state, 0);
}

QAV_ENTRY_FUNCTION QAV_HaVnodeLock(lua_State *state) {
    return qav::ReturnUInt(state, NUK_MutexTrylock(g_pHaVnodeDeployMutex) == 0 ? 0 : 1);
}

QAV_ENTRY_FUNCTION QAV_HaVnodeUnlock(lua_State *state) {
    (void)NUK_MutexUnlock(g_pHaVnodeDeployMutex);
    return qav::ReturnUInt(state, 0);
}

#include "state/upgrade_lock.h"

#include <ctime>

#include "os_env.h"

extern "C" {

QavUpgradeLock g_stUpgradeLock;
QavUpgradeLock *pstUpgradeLock = nullptr;
uint32_t g_pUpgradeMutex = 0;
const char cVmSpliter = '"';

void QAV_SuLockInit(void) {
    g_stUpgradeLock.state = 0;
    g_stUpgradeLock.startTime = 0;
    g_stUpgradeLock.duration = 0;
    SLL_Init(&g_stUpgradeLock.vmLists);
}

uint32_t QAV_GetSysTime(uint32_t *seconds) {
    if (seconds == nullptr) return 1;
    struct timespec now {};
    if (ZAK_OsClockGetTime(CLOCK_MONOTONIC_RAW, &now) != 0) return 1;
    *seconds = static_cast<uint32_t>(now.tv_sec);
    return 0;
}

} // extern "C"

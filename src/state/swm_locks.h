// The software-management and HA vnode locks.
#pragma once

#include <cstdint>

extern "C" {
extern uint32_t g_pHaVnodeDeployMutex;
extern uint32_t g_pSoftwareManageMutex;
// Raw monotonic seconds at which the software-management lock was taken; 0 = not locked.
extern uint32_t g_uiSWMLockTime;
// How many seconds the software-management lock lasts.
extern uint32_t g_uiSWMAgingTime;

uint32_t QAV_IsSWMLocked(uint32_t now);
void QAV_SetSWMLock(uint32_t lockTime, uint32_t agingTime);
}

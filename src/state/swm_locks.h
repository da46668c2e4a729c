// The software-management and HA vnode locks.
#pragma once

#include <cstdint>

extern "C" {
extern uint32_t g_pHaVnodeDeployMutex;
extern uint32_t g_pSoftwareManageMutex;
}

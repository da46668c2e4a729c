#include "state/swm_locks.h"

extern "C" {
uint32_t g_pHaVnodeDeployMutex = 0;
uint32_t g_pSoftwareManageMutex = 0;
}

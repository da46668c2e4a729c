// The process-wide read/write upgrade lock with its VM lists.
#pragma once

#include <cstdint>

#include "sll.h"

extern "C" {

typedef struct QavUpgradeLock {
    uint32_t state;     // 0 idle, 1 write-locked, 2 read-locked
    uint32_t startTime; // raw monotonic seconds at which the lock period began; 0 = none
    uint32_t duration;  // lock period in seconds
    SLL_LIST vmLists;   // VmLockNode entries
} QavUpgradeLock;

typedef struct VmLockNode {
    SLL_NODE link;
    char *vmList;
} VmLockNode;

extern QavUpgradeLock g_stUpgradeLock;
extern QavUpgradeLock *pstUpgradeLock;
extern uint32_t g_pUpgradeMutex;
extern const char cVmSpliter;

// Resets the record to idle with an empty list; nodes it held are dropped, not freed.
void QAV_SuLockInit(void);
// Whole seconds of the raw monotonic clock; 0 on success, 1 on a null pointer or clock failure.
uint32_t QAV_GetSysTime(uint32_t *seconds);
}

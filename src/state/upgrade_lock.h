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
// Frees a VM-list node and its string.
void QAV_SuFreeAllVmlist(SLL_NODE *node);
// Resets the record to idle and frees every node.
void QAV_SuLockClear(void);
// 1 when `now` lies inside the lock period (end inclusive), 0 otherwise or without a period.
uint32_t QAV_IsInLockTime(uint32_t now);
// 1 when any name of `vmlist` is in a locked list.
uint32_t QAV_IsAnyVmLocked(const char *vmlist);
// 0 appended, 3 overlap, -1 out of memory.
int32_t QAV_SuLockVmList(const char *vmlist);
// 0 removed, 3 not found (the exact string is needed).
uint32_t QAV_SuUnlockVmList(const char *vmlist);
uint32_t QAV_Lock_applywrite(uint32_t duration, uint32_t now);
uint32_t QAV_Lock_applyread(uint32_t duration, uint32_t now, const char *vmlist);
uint32_t QAV_UnLock_checkable(uint32_t type, const char *vmlist, uint32_t *now);
uint32_t QAV_UnLock_statusread(uint32_t type, const char *vmlist);
}

// The three patch record tables: fixed-size binary records in one heap buffer each, written and
// read a whole table at a time by the patch scripts.
#pragma once

#include <cstdint>

#include "state/comm_lock.h"

extern "C" {

typedef struct QavPatchErrTable {
    uint32_t maxNum; // logical capacity
    uint32_t count;  // stored record count (may exceed maxNum, see the set)
    QavCommLock lock;
    uint32_t unused; // zeroed at init
    void *records;
} QavPatchErrTable;
QAV_DEVICE_LAYOUT(QavPatchErrTable, 28)

typedef struct QavFlhSyncTable {
    QavCommLock lock;
    uint32_t reserved;
    uint32_t count;
    void *records;
} QavFlhSyncTable;
QAV_DEVICE_LAYOUT(QavFlhSyncTable, 24)

typedef struct QavLoadPatchTable {
    uint32_t count;
    QavCommLock lock;
    uint32_t reserved;
    void *records;
} QavLoadPatchTable;
QAV_DEVICE_LAYOUT(QavLoadPatchTable, 24)

extern QavPatchErrTable g_stPatchErrTable;
extern QavFlhSyncTable g_stFlhSyncTable;
extern QavLoadPatchTable g_stLoadPatchTable;

// Each yields the table's buffer (allocating it when absent; null when that fails) and then
// stores *count into the table (write non-zero) or yields the table's count. Always 0.
uint32_t QAV_PatchErrInfoAddrProc(uint32_t write, uint32_t *count, void **records);
uint32_t QAV_FlhSyncInfoAddrProc(uint32_t write, uint32_t *count, void **records);
uint32_t QAV_LoadPatchInfoAddrProc(uint32_t write, uint32_t *count, void **records);
uint32_t QAV_GetPatchErrMaxNum(void);
uint32_t QAV_GetFlhSyncNum(void);
uint32_t QAV_GetLoadPatchNum(void);
// Grows the patch error buffer when n exceeds the capacity; the capacity becomes n unless the
// growth fails.
void QAV_SetPatchErrMaxNum(uint32_t n);
}

// Process-wide named locks: the lock record's take/release algorithm and the tables that carry a
// lock of their own together with the holder's lock-info.
#pragma once

#include <cstdint>

#include "state/comm_lock.h"

extern "C" {

typedef struct QavPatLockInfo {
    uint32_t sessionId;
    char *traceback; // 512-byte text buffer, allocated on demand
    uint32_t startTime;
} QavPatLockInfo;

typedef struct QavPatchLockTable {
    uint32_t initFlag;
    QavCommLock lock;
    uint32_t reserved;
    QavPatLockInfo info;
    uint32_t autoLoadLock; // plain marker, nothing waits on it
} QavPatchLockTable;
QAV_DEVICE_LAYOUT(QavPatchLockTable, 36)

// The download, NV patch and patch-debug tables.
typedef struct QavSessionLockTable {
    QavCommLock lock;
    uint32_t reserved;
    uint32_t sessionId;
    uint32_t startTime;
    uint32_t initFlag;
    uint32_t reserved2;
} QavSessionLockTable;
QAV_DEVICE_LAYOUT(QavSessionLockTable, 32)

typedef struct QavCollectLogLockTable {
    QavCommLock lock;
    uint32_t reserved;
    uint32_t initFlag;
    uint32_t info;
} QavCollectLogLockTable;
QAV_DEVICE_LAYOUT(QavCollectLogLockTable, 24)

typedef struct QavCrlLockTable {
    uint32_t initFlag;
    QavCommLock lock;
    uint32_t reserved;
} QavCrlLockTable;
QAV_DEVICE_LAYOUT(QavCrlLockTable, 20)

extern QavPatchLockTable g_stPatchLockTable;
extern QavSessionLockTable g_stDownLoadLockTable;
extern QavSessionLockTable g_stNvPatchLockTable;
extern QavSessionLockTable g_stPatchDbgLockTable;
extern QavCollectLogLockTable g_stCollectLogLockTable;
extern QavCrlLockTable g_stCrlLockTable;

// Takes the lock, waiting in 5000 ms slices and breaking a lock whose holder outstays a slice;
// 0 when taken, -1 when the record's mutex or semaphore was never created.
int32_t QAV_LuaCommLock(QavCommLock *record);
// Releases one hold; releasing a free lock does nothing. 1 for a null record, else 0.
uint32_t QAV_LuaCommUnLock(QavCommLock *record);
// The patch lock-info, its traceback buffer allocated on first use; null when that fails.
void QAV_PatchLockAddrGet(QavPatLockInfo **out);
// Creates the CRL lock on first use; 0 when it exists or was created, -1 on failure.
int32_t QAV_CrlLockInit(void);
}

namespace qav {

// How a lock creation treats the record's mutex.
enum class MutexMode {
    Fresh,       // always initialise a new mutex
    KeepExisting // initialise only when the word is still 0
};

// Initialises the mutex, creates the counting semaphore (initial count 1) and sets the holder
// count to 0. On a semaphore failure the mutex is destroyed when `destroyOnFailure`. True on
// success.
bool CreateCommLock(QavCommLock *lock, const char *semaName, MutexMode mode, bool destroyOnFailure);

} // namespace qav

// Named locks: one lock record and one take/release algorithm shared by every table that carries
// a lock, and the script functions that create, take, release and describe them.
#include "state/named_locks.h"

#include <atomic>
#include <cstring>
#include <mutex>

#include "binding/memory.h"
#include "binding/script_frame.h"
#include "securec.h"
#include "state/dropped_memory.h"
#include "state/ntp_table.h"
#include "state/patch_records.h"
#include "state/tpm_tables.h"
#include "state/upgrade_registers.h"

extern "C" {
QavPatchLockTable g_stPatchLockTable;
QavSessionLockTable g_stDownLoadLockTable;
QavSessionLockTable g_stNvPatchLockTable;
QavSessionLockTable g_stPatchDbgLockTable;
QavCollectLogLockTable g_stCollectLogLockTable;
QavCrlLockTable g_stCrlLockTable;
}

namespace {

constexpr uint32_t kSliceMs = 5000;
constexpr uint32_t kTracebackSize = 512;

// Named-lock status results are unsigned; the take's -1 reads as 0xFFFFFFFF.
int PushLockResult(lua_State *state, QavCommLock *lock) {
    return qav::ReturnUInt(state, static_cast<uint32_t>(QAV_LuaCommLock(lock)));
}
int PushUnlockResult(lua_State *state, QavCommLock *lock) {
    return qav::ReturnUInt(state, QAV_LuaCommUnLock(lock));
}

// The download, NV patch and patch-debug locks (session_locks.def) are created the same way; only
// the patch-debug one keeps a mutex it already has, and only its create function does nothing
// once the lock exists. The others are not guarded against a second call: it makes a new
// semaphore over the old one.
struct SessionLock {
    QavSessionLockTable *table;
    const char *semaName;
    qav::MutexMode mode;
    bool createOnce;
};
constexpr SessionLock kDownloadLock{&g_stDownLoadLockTable, "downloadlocksema", qav::MutexMode::Fresh, false};
constexpr SessionLock kNvPatchLock{&g_stNvPatchLockTable, "nvpatlocksema", qav::MutexMode::Fresh, false};
constexpr SessionLock kPatchDebugLock{&g_stPatchDbgLockTable, "patdbglocksema", qav::MutexMode::KeepExisting,
                                      true};

bool CreateSessionLock(const SessionLock &lock) {
    if (!qav::CreateCommLock(&lock.table->lock, lock.semaName, lock.mode, true)) return false;
    lock.table->startTime = 0;
    lock.table->sessionId = 0;
    lock.table->initFlag = 1;
    return true;
}

int PushSessionLockCreation(lua_State *state, const SessionLock &lock) {
    if (lock.createOnce && lock.table->initFlag == 1) return qav::ReturnUInt(state, qav::kOk);
    return qav::ReturnUInt(state, CreateSessionLock(lock) ? qav::kOk : qav::kInvalidCall);
}

int PushSessionLockInfo(lua_State *state, const SessionLock &lock) {
    if (!qav::ArgsMatch(state, "t")) return qav::ReturnUInt(state, qav::kInvalidCall);
    SYSDT_SPTI_PushUInt(state, lock.table->sessionId);
    SYSDT_SPTI_SetField(state, 1, "sessionId");
    SYSDT_SPTI_PushUInt(state, lock.table->startTime);
    SYSDT_SPTI_SetField(state, 1, "startTime");
    return qav::ReturnUInt(state, qav::kOk);
}

// The caller is expected to hold the lock while it writes the info; the set takes none.
int StoreSessionLockInfo(lua_State *state, const SessionLock &lock) {
    if (!qav::ArgsMatch(state, "t")) return qav::ReturnUInt(state, qav::kInvalidCall);
    lock.table->sessionId = qav::FieldUInt(state, 1, "sessionId");
    lock.table->startTime = qav::FieldUInt(state, 1, "startTime");
    return qav::ReturnUInt(state, qav::kOk);
}

// Destroy forgets the holder's lock-info; the lock itself stays.
int ForgetSessionHolder(lua_State *state, const SessionLock &lock) {
    lock.table->startTime = 0;
    lock.table->sessionId = 0;
    return qav::ReturnUInt(state, qav::kOk);
}

// The patch lock-info for the two info functions, whose one argument is a table; null for any other
// call or when the traceback buffer cannot be had.
QavPatLockInfo *PatchLockInfoOf(lua_State *state) {
    if (!qav::ArgsMatch(state, "t")) return nullptr;
    QavPatLockInfo *info = nullptr;
    QAV_PatchLockAddrGet(&info);
    return info;
}

int PushInitFlag(lua_State *state, uint32_t initFlag) {
    return qav::ReturnUIntPair(state, qav::kOk, initFlag);
}

// Serialises the lazy creation of the CRL lock between script states that take it for the
// first time at once; afterwards the published flag is read without it.
std::mutex g_crlCreation;

uint32_t CrlInitFlag() {
    return std::atomic_ref<uint32_t>(g_stCrlLockTable.initFlag).load(std::memory_order_acquire);
}

} // namespace

namespace qav {

bool CreateCommLock(QavCommLock *lock, const char *semaName, MutexMode mode, bool destroyOnFailure) {
    if (mode == MutexMode::Fresh || lock->mutex == 0) (void)NUK_MutexInit(&lock->mutex, 0);
    if (NUK_SemaCreate(semaName, 1, 0, &lock->semaId) != 0) {
        if (destroyOnFailure) (void)NUK_MutexDestroy(lock->mutex);
        return false;
    }
    lock->count = 0;
    return true;
}

} // namespace qav

extern "C" {

int32_t QAV_LuaCommLock(QavCommLock *record) {
    if (record == nullptr || record->mutex == 0 || record->semaId == 0) return -1;
    for (;;) {
        uint32_t waited = NUK_SemaP(record->semaId, kSliceMs);
        (void)NUK_MutexLock(record->mutex);
        if (waited == 0) {
            record->count++;
            (void)NUK_MutexUnlock(record->mutex);
            return 0;
        }
        // The slice ran out while someone holds the lock: that holder is taken to have abandoned
        // it. Its claim is dropped and its semaphore unit handed back, then the wait starts over.
        if (record->count > 0) {
            record->count--;
            (void)NUK_SemaV(record->semaId);
        }
        if (record->count < 0) {
            (void)NUK_MutexUnlock(record->mutex);
            return 0;
        }
        (void)NUK_MutexUnlock(record->mutex);
    }
}

uint32_t QAV_LuaCommUnLock(QavCommLock *record) {
    if (record == nullptr) return 1;
    (void)NUK_MutexLock(record->mutex);
    // Only a held lock posts, so a second unlock never leaves the semaphore above one.
    if (record->count > 0) {
        record->count--;
        (void)NUK_SemaV(record->semaId);
    }
    (void)NUK_MutexUnlock(record->mutex);
    return 0;
}

void QAV_PatchLockAddrGet(QavPatLockInfo **out) {
    QavPatLockInfo *info = &g_stPatchLockTable.info;
    if (info->traceback == nullptr) {
        auto *buffer = static_cast<char *>(qav::PlatformAllocZeroed(kTracebackSize));
        if (buffer == nullptr) {
            *out = nullptr;
            return;
        }
        info->traceback = buffer;
        info->startTime = 0;
        info->sessionId = 0;
    }
    *out = info;
}

int32_t QAV_CrlLockInit(void) {
    if (CrlInitFlag() != 0) return 0;
    std::lock_guard guard(g_crlCreation);
    if (g_stCrlLockTable.initFlag != 0) return 0;
    QavCommLock *lock = &g_stCrlLockTable.lock;
    if (NUK_MutexInit(&lock->mutex, 0) != 0 || lock->mutex == 0) return -1;
    if (NUK_SemaCreate("crllocksema", 1, 0, &lock->semaId) == 0 && lock->semaId != 0) {
        lock->count = 0;
        std::atomic_ref<uint32_t>(g_stCrlLockTable.initFlag).store(1, std::memory_order_release);
        return 0;
    }
    (void)NUK_MutexDestroy(lock->mutex);
    lock->mutex = 0;
    return -1;
}

} // extern "C"

// ---- Lock and unlock ---------------------------------------------------------------------------

#define QAV_NAMED_LOCK(take, release, lock)                                                                  \
    QAV_ENTRY_FUNCTION take(lua_State *state) {                                                              \
        return PushLockResult(state, &lock);                                                                 \
    }                                                                                                        \
    QAV_ENTRY_FUNCTION release(lua_State *state) {                                                           \
        return PushUnlockResult(state, &lock);                                                               \
    }
#include "state/named_locks.def"
#undef QAV_NAMED_LOCK

// The CRL lock is the one pair that logs, and the one lock created by its first take.
QAV_ENTRY_FUNCTION QAV_luaCrlLock_lock(lua_State *state) {
    if (state == nullptr) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "Lock Crl lock failed, pstSc is null");
        return 1;
    }
    int32_t rc = QAV_CrlLockInit();
    if (rc != 0) {
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "Init Crl lock failed");
        return qav::ReturnUInt(state, static_cast<uint32_t>(rc));
    }
    rc = QAV_LuaCommLock(&g_stCrlLockTable.lock);
    RPM_LogToFile(qav::kUpgradeLogId, qav::kLogProgress, "Crl lock locked");
    return qav::ReturnUInt(state, static_cast<uint32_t>(rc));
}

QAV_ENTRY_FUNCTION QAV_luaCrlLock_unlock(lua_State *state) {
    if (state == nullptr) {
        // The unlock reuses the lock's text.
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "Lock Crl lock failed, pstSc is null");
        return 1;
    }
    if (CrlInitFlag() == 0) {
        SYSDT_SPTI_PushUInt(state, qav::kInvalidCall);
        RPM_LogToFile(qav::kUpgradeLogId, qav::kLogFailure, "Crl lock is not created");
        return 1;
    }
    uint32_t rc = QAV_LuaCommUnLock(&g_stCrlLockTable.lock);
    RPM_LogToFile(qav::kUpgradeLogId, qav::kLogProgress, "Crl lock unlocked");
    return qav::ReturnUInt(state, rc);
}

// ---- Creation ----------------------------------------------------------------------------------

QAV_ENTRY_FUNCTION QAV_PatLockInit(lua_State *state) {
    QavCommLock *lock = &g_stPatchLockTable.lock;
    if (!qav::CreateCommLock(lock, "patlocksema", qav::MutexMode::Fresh, true))
        return qav::ReturnUInt(state, qav::kInvalidCall);
    QavPatLockInfo *info = nullptr;
    QAV_PatchLockAddrGet(&info);
    if (info == nullptr) {
        (void)NUK_MutexDestroy(lock->mutex);
        (void)NUK_SemaDelete(lock->semaId);
        return qav::ReturnUInt(state, qav::kInvalidCall);
    }
    (void)memset_s(info->traceback, kTracebackSize, 0, kTracebackSize);
    info->startTime = 0;
    info->sessionId = 0;
    g_stPatchLockTable.initFlag = 1;
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_CollectLogLockInit(lua_State *state) {
    // A failed semaphore leaves the new mutex in place.
    if (!qav::CreateCommLock(&g_stCollectLogLockTable.lock, "collectloglocksema", qav::MutexMode::Fresh,
                             false))
        return qav::ReturnUInt(state, qav::kInvalidCall);
    g_stCollectLogLockTable.initFlag = 1;
    g_stCollectLogLockTable.info = 0;
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_LuaTableInit(lua_State *state) {
    using qav::MutexMode;
    bool ok = qav::CreateCommLock(&g_stPatchErrTable.lock, "paterrlocksema", MutexMode::Fresh, true);
    if (ok) {
        g_stPatchErrTable.maxNum = 200;
        g_stPatchErrTable.count = 0;
        g_stPatchErrTable.unused = 0;
        // The record buffers are forgotten, not freed: the next use allocates afresh.
        qav::KeepDropped(g_stPatchErrTable.records);
        g_stPatchErrTable.records = nullptr;
        ok = qav::CreateCommLock(&g_stFlhSyncTable.lock, "flhsynclocksema", MutexMode::Fresh, true);
    }
    if (ok) {
        g_stFlhSyncTable.count = 0;
        qav::KeepDropped(g_stFlhSyncTable.records);
        g_stFlhSyncTable.records = nullptr;
        ok = qav::CreateCommLock(&g_stLoadPatchTable.lock, "loadpatchclocksema", MutexMode::Fresh, true);
    }
    if (ok) {
        g_stLoadPatchTable.count = 0;
        qav::KeepDropped(g_stLoadPatchTable.records);
        g_stLoadPatchTable.records = nullptr;
        ok = CreateSessionLock(kDownloadLock) && CreateSessionLock(kNvPatchLock) &&
             CreateSessionLock(kPatchDebugLock) &&
             qav::CreateCommLock(&g_stNTPUCastTable.lock, "ntpucastsema", MutexMode::Fresh, true);
    }
    if (!ok) return qav::ReturnUInt(state, qav::kInvalidCall);
    qav::DListInit(&g_stNTPUCastTable.entries);
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    // Two results declared for the one pushed: the scripts read the value below as the second.
    return 2;
}

QAV_ENTRY_FUNCTION QAV_SU_LuaTableInit(lua_State *) {
    if (g_uiSumExceptLock.mutex == 0) {
        (void)NUK_MutexInit(&g_uiSumExceptLock.mutex, 0);
        g_uiSumExceptLock.value = 0;
    }
    if (g_uiSumFaultBoard.mutex == 0) {
        (void)NUK_MutexInit(&g_uiSumFaultBoard.mutex, 0);
        (void)memset_s(g_uiSumFaultBoard.boards, sizeof g_uiSumFaultBoard.boards, 0,
                       sizeof g_uiSumFaultBoard.boards);
    }
    return 0;
}

// ---- The session locks ---------------------------------------------------------------------------

#define QAV_SESSION_LOCK(lock, create, destroy, queryInitFlag, queryInfo, setInfo)                           \
    QAV_ENTRY_FUNCTION create(lua_State *state) {                                                            \
        return PushSessionLockCreation(state, lock);                                                         \
    }                                                                                                        \
    QAV_ENTRY_FUNCTION destroy(lua_State *state) {                                                           \
        return ForgetSessionHolder(state, lock);                                                             \
    }                                                                                                        \
    QAV_ENTRY_FUNCTION queryInitFlag(lua_State *state) {                                                     \
        return PushInitFlag(state, lock.table->initFlag);                                                    \
    }                                                                                                        \
    QAV_ENTRY_FUNCTION queryInfo(lua_State *state) {                                                         \
        return PushSessionLockInfo(state, lock);                                                             \
    }                                                                                                        \
    QAV_ENTRY_FUNCTION setInfo(lua_State *state) {                                                           \
        return StoreSessionLockInfo(state, lock);                                                            \
    }
#include "state/session_locks.def"
#undef QAV_SESSION_LOCK

// ---- Destroy: forgets the holder's lock-info; the lock itself stays ------------------------------

QAV_ENTRY_FUNCTION QAV_PatLockDestroy(lua_State *state) {
    QavPatLockInfo *info = &g_stPatchLockTable.info;
    info->startTime = 0;
    info->sessionId = 0;
    if (info->traceback != nullptr) {
        // NUK_MemFree is the platform allocator's short free: it takes ZAK_Malloc_F blocks such as
        // this one, and the destroy has always given the buffer back through it.
        (void)NUK_MemFree(info->traceback);
        info->traceback = nullptr;
    }
    return qav::ReturnUInt(state, qav::kOk);
}
QAV_ENTRY_FUNCTION QAV_CollectLogLockDestroy(lua_State *state) {
    g_stCollectLogLockTable.info = 0;
    return qav::ReturnUInt(state, qav::kOk);
}

// ---- Init flags and the auto-load marker ---------------------------------------------------------

QAV_ENTRY_FUNCTION QAV_QueryPatLockInitFlag(lua_State *state) {
    PushInitFlag(state, g_stPatchLockTable.initFlag);
    SYSDT_SPTI_PushUInt(state, g_stPatchLockTable.autoLoadLock);
    return 3;
}
QAV_ENTRY_FUNCTION QAV_QueryCollectLogLockInitFlag(lua_State *state) {
    return PushInitFlag(state, g_stCollectLogLockTable.initFlag);
}
QAV_ENTRY_FUNCTION QAV_PatAutoLoadLockInit(lua_State *state) {
    g_stPatchLockTable.autoLoadLock = 0;
    return qav::ReturnUInt(state, qav::kOk);
}
QAV_ENTRY_FUNCTION QAV_PatSetLoadLock(lua_State *state) {
    g_stPatchLockTable.autoLoadLock = 1;
    return qav::ReturnUInt(state, qav::kOk);
}

// ---- Lock-info -----------------------------------------------------------------------------------

QAV_ENTRY_FUNCTION QAV_QueryCollectLogLockInfo(lua_State *state) {
    return qav::ReturnUIntPair(state, qav::kOk, g_stCollectLogLockTable.info);
}
QAV_ENTRY_FUNCTION QAV_SetCollectLogLockInfo(lua_State *state) {
    if (!qav::ArgsMatch(state, ".")) return qav::ReturnUInt(state, qav::kInvalidCall);
    g_stCollectLogLockTable.info = SYSDT_SPTI_ToUInt(state, 1);
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_QueryPatLockInfo(lua_State *state) {
    QavPatLockInfo *info = PatchLockInfoOf(state);
    if (info == nullptr) return qav::ReturnUInt(state, qav::kInvalidCall);
    SYSDT_SPTI_PushUInt(state, info->sessionId);
    SYSDT_SPTI_SetField(state, 1, "sessionId");
    SYSDT_SPTI_PushUInt(state, info->startTime);
    SYSDT_SPTI_SetField(state, 1, "startTime");
    SYSDT_SPTI_PushString(state, info->traceback,
                          static_cast<uint32_t>(strnlen(info->traceback, kTracebackSize)) + 1);
    SYSDT_SPTI_SetField(state, 1, "traceback");
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_SetPatLockInfo(lua_State *state) {
    QavPatLockInfo *info = PatchLockInfoOf(state);
    if (info == nullptr) return qav::ReturnUInt(state, qav::kInvalidCall);
    info->sessionId = qav::FieldUInt(state, 1, "sessionId");
    SYSDT_SPTI_GetField(state, 1, "startTime");
    info->startTime = SYSDT_SPTI_ToUInt(state, -1);
    // The traceback keeps the text of the startTime value still on the stack, not the
    // "traceback" field: the patch scripts read it back that way.
    const char *text = SYSDT_SPTI_ToString(state, -1);
    if (info->traceback == nullptr || text == nullptr) return qav::ReturnUInt(state, qav::kInvalidCall);
    SYSDT_SPTI_GetField(state, 1, "traceback");
    (void)strncpy_s(info->traceback, kTracebackSize, text, kTracebackSize - 1);
    return qav::ReturnUInt(state, qav::kOk);
}

// Named locks: one lock record and one take/release algorithm shared by every table that carries
// a lock, and the script functions that create, take, release and describe them.
#include "state/named_locks.h"

#include <atomic>
#include <cstring>
#include <mutex>

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

#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(sizeof(QavPatchLockTable) == 36);
static_assert(sizeof(QavSessionLockTable) == 32);
static_assert(sizeof(QavCollectLogLockTable) == 24);
static_assert(sizeof(QavCrlLockTable) == 20);
#endif

namespace {

constexpr uint32_t kSliceMs = 5000;
constexpr uint32_t kTracebackSize = 512;
constexpr uint32_t kFailed = qav::kInvalidCall;

// Named-lock status results are unsigned; the take's -1 reads as 0xFFFFFFFF.
int PushLockResult(lua_State *state, QavCommLock *lock) {
    return qav::ReturnUInt(state, static_cast<uint32_t>(QAV_LuaCommLock(lock)));
}
int PushUnlockResult(lua_State *state, QavCommLock *lock) {
    return qav::ReturnUInt(state, QAV_LuaCommUnLock(lock));
}

// The download, NV patch and patch-debug locks are created the same way; only the patch-debug
// one keeps a mutex it already has.
bool CreateSessionLock(QavSessionLockTable *table, const char *semaName, qav::MutexMode mode) {
    if (!qav::CreateCommLock(&table->lock, semaName, mode, true)) return false;
    table->startTime = 0;
    table->sessionId = 0;
    table->initFlag = 1;
    return true;
}

int PushSessionLockInfo(lua_State *state, const QavSessionLockTable *table) {
    if (!qav::ArgCountIs(state, 1) || SYSDT_SPTI_IsTable(state, 1) == 0)
        return qav::ReturnUInt(state, kFailed);
    SYSDT_SPTI_PushUInt(state, table->sessionId);
    SYSDT_SPTI_SetField(state, 1, "sessionId");
    SYSDT_SPTI_PushUInt(state, table->startTime);
    SYSDT_SPTI_SetField(state, 1, "startTime");
    return qav::ReturnUInt(state, qav::kOk);
}

// The caller is expected to hold the lock while it writes the info; the set takes none.
int StoreSessionLockInfo(lua_State *state, QavSessionLockTable *table) {
    if (!qav::ArgCountIs(state, 1) || SYSDT_SPTI_IsTable(state, 1) == 0)
        return qav::ReturnUInt(state, kFailed);
    table->sessionId = qav::FieldUInt(state, 1, "sessionId");
    table->startTime = qav::FieldUInt(state, 1, "startTime");
    return qav::ReturnUInt(state, qav::kOk);
}

int ForgetSessionHolder(lua_State *state, QavSessionLockTable *table) {
    table->startTime = 0;
    table->sessionId = 0;
    return qav::ReturnUInt(state, qav::kOk);
}

int PushInitFlag(lua_State *state, uint32_t initFlag) {
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    SYSDT_SPTI_PushUInt(state, initFlag);
    return 2;
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
        auto *buffer = static_cast<char *>(
            ZAK_Malloc_F(g_pLocaHandleQav, g_aucZakMemPt, kTracebackSize, qav::kSourceTag, __LINE__));
        if (buffer == nullptr) {
            *out = nullptr;
            return;
        }
        (void)memset_s(buffer, kTracebackSize, 0, kTracebackSize);
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

QAV_ENTRY_FUNCTION QAV_luaPatchLock_lock(lua_State *state) {
    return PushLockResult(state, &g_stPatchLockTable.lock);
}
QAV_ENTRY_FUNCTION QAV_luaPatchLock_unlock(lua_State *state) {
    return PushUnlockResult(state, &g_stPatchLockTable.lock);
}
QAV_ENTRY_FUNCTION QAV_LuaDownLoad_lock(lua_State *state) {
    return PushLockResult(state, &g_stDownLoadLockTable.lock);
}
QAV_ENTRY_FUNCTION QAV_LuaDownLoad_unlock(lua_State *state) {
    return PushUnlockResult(state, &g_stDownLoadLockTable.lock);
}
QAV_ENTRY_FUNCTION QAV_LuaNvPat_lock(lua_State *state) {
    return PushLockResult(state, &g_stNvPatchLockTable.lock);
}
QAV_ENTRY_FUNCTION QAV_LuaNvPat_unlock(lua_State *state) {
    return PushUnlockResult(state, &g_stNvPatchLockTable.lock);
}
QAV_ENTRY_FUNCTION QAV_LuaPatDbg_lock(lua_State *state) {
    return PushLockResult(state, &g_stPatchDbgLockTable.lock);
}
QAV_ENTRY_FUNCTION QAV_LuaPatDbg_unlock(lua_State *state) {
    return PushUnlockResult(state, &g_stPatchDbgLockTable.lock);
}
QAV_ENTRY_FUNCTION QAV_luaCollectLogLock_lock(lua_State *state) {
    return PushLockResult(state, &g_stCollectLogLockTable.lock);
}
QAV_ENTRY_FUNCTION QAV_luaCollectLogLock_unlock(lua_State *state) {
    return PushUnlockResult(state, &g_stCollectLogLockTable.lock);
}
QAV_ENTRY_FUNCTION QAV_luaPatchErrTblLock_lock(lua_State *state) {
    return PushLockResult(state, &g_stPatchErrTable.lock);
}
QAV_ENTRY_FUNCTION QAV_luaPatchErrTblLock_unlock(lua_State *state) {
    return PushUnlockResult(state, &g_stPatchErrTable.lock);
}
QAV_ENTRY_FUNCTION QAV_luaFlhSyncTblLock_lock(lua_State *state) {
    return PushLockResult(state, &g_stFlhSyncTable.lock);
}
QAV_ENTRY_FUNCTION QAV_luaFlhSyncTblLock_unlock(lua_State *state) {
    return PushUnlockResult(state, &g_stFlhSyncTable.lock);
}
QAV_ENTRY_FUNCTION QAV_luaLoadPatchTblLock_lock(lua_State *state) {
    return PushLockResult(state, &g_stLoadPatchTable.lock);
}
QAV_ENTRY_FUNCTION QAV_luaLoadPatchTblLock_unlock(lua_State *state) {
    return PushUnlockResult(state, &g_stLoadPatchTable.lock);
}
QAV_ENTRY_FUNCTION QAV_NtpGetUCastLock(lua_State *state) {
    return PushLockResult(state, &g_stNTPUCastTable.lock);
}
QAV_ENTRY_FUNCTION QAV_NtpGetUCastUnlock(lua_State *state) {
    return PushUnlockResult(state, &g_stNTPUCastTable.lock);
}
QAV_ENTRY_FUNCTION QAV_TpmReportTableLock(lua_State *state) {
    return PushLockResult(state, &g_stTpmReportTable.lock);
}
QAV_ENTRY_FUNCTION QAV_TpmReportTableUnlock(lua_State *state) {
    return PushUnlockResult(state, &g_stTpmReportTable.lock);
}
QAV_ENTRY_FUNCTION QAV_TpmStatusTableLock(lua_State *state) {
    return PushLockResult(state, &g_stTpmStatusTable.lock);
}
QAV_ENTRY_FUNCTION QAV_TpmStatusTableUnlock(lua_State *state) {
    return PushUnlockResult(state, &g_stTpmStatusTable.lock);
}

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
        SYSDT_SPTI_PushUInt(state, kFailed);
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
        return qav::ReturnUInt(state, kFailed);
    QavPatLockInfo *info = nullptr;
    QAV_PatchLockAddrGet(&info);
    if (info == nullptr) {
        (void)NUK_MutexDestroy(lock->mutex);
        (void)NUK_SemaDelete(lock->semaId);
        return qav::ReturnUInt(state, kFailed);
    }
    (void)memset_s(info->traceback, kTracebackSize, 0, kTracebackSize);
    info->startTime = 0;
    info->sessionId = 0;
    g_stPatchLockTable.initFlag = 1;
    return qav::ReturnUInt(state, qav::kOk);
}

// Not guarded against a second call: it makes a new semaphore over the old one.
QAV_ENTRY_FUNCTION QAV_DownLoadLockInit(lua_State *state) {
    bool ok = CreateSessionLock(&g_stDownLoadLockTable, "downloadlocksema", qav::MutexMode::Fresh);
    return qav::ReturnUInt(state, ok ? qav::kOk : kFailed);
}

QAV_ENTRY_FUNCTION QAV_NvPatLockInit(lua_State *state) {
    bool ok = CreateSessionLock(&g_stNvPatchLockTable, "nvpatlocksema", qav::MutexMode::Fresh);
    return qav::ReturnUInt(state, ok ? qav::kOk : kFailed);
}

QAV_ENTRY_FUNCTION QAV_PatDbgLockInit(lua_State *state) {
    if (g_stPatchDbgLockTable.initFlag == 1) return qav::ReturnUInt(state, qav::kOk);
    bool ok = CreateSessionLock(&g_stPatchDbgLockTable, "patdbglocksema", qav::MutexMode::KeepExisting);
    return qav::ReturnUInt(state, ok ? qav::kOk : kFailed);
}

QAV_ENTRY_FUNCTION QAV_CollectLogLockInit(lua_State *state) {
    // A failed semaphore leaves the new mutex in place.
    if (!qav::CreateCommLock(&g_stCollectLogLockTable.lock, "collectloglocksema", qav::MutexMode::Fresh,
                             false))
        return qav::ReturnUInt(state, kFailed);
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
        ok = CreateSessionLock(&g_stDownLoadLockTable, "downloadlocksema", MutexMode::Fresh) &&
             CreateSessionLock(&g_stNvPatchLockTable, "nvpatlocksema", MutexMode::Fresh) &&
             CreateSessionLock(&g_stPatchDbgLockTable, "patdbglocksema", MutexMode::KeepExisting) &&
             qav::CreateCommLock(&g_stNTPUCastTable.lock, "ntpucastsema", MutexMode::Fresh, true);
    }
    if (!ok) return qav::ReturnUInt(state, kFailed);
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

// ---- Destroy: forgets the holder's lock-info; the lock itself stays ------------------------------

QAV_ENTRY_FUNCTION QAV_PatLockDestroy(lua_State *state) {
    QavPatLockInfo *info = &g_stPatchLockTable.info;
    info->startTime = 0;
    info->sessionId = 0;
    if (info->traceback != nullptr) {
        (void)NUK_MemFree(info->traceback);
        info->traceback = nullptr;
    }
    return qav::ReturnUInt(state, qav::kOk);
}
QAV_ENTRY_FUNCTION QAV_DownloadLockDestroy(lua_State *state) {
    return ForgetSessionHolder(state, &g_stDownLoadLockTable);
}
QAV_ENTRY_FUNCTION QAV_NvPatLockDestroy(lua_State *state) {
    return ForgetSessionHolder(state, &g_stNvPatchLockTable);
}
QAV_ENTRY_FUNCTION QAV_PatDbgLockDestroy(lua_State *state) {
    return ForgetSessionHolder(state, &g_stPatchDbgLockTable);
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
QAV_ENTRY_FUNCTION QAV_QueryDownloadLockInitFlag(lua_State *state) {
    return PushInitFlag(state, g_stDownLoadLockTable.initFlag);
}
QAV_ENTRY_FUNCTION QAV_QueryNvPatLockInitFlag(lua_State *state) {
    return PushInitFlag(state, g_stNvPatchLockTable.initFlag);
}
QAV_ENTRY_FUNCTION QAV_QueryPatDbgLockInitFlag(lua_State *state) {
    return PushInitFlag(state, g_stPatchDbgLockTable.initFlag);
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

QAV_ENTRY_FUNCTION QAV_QueryDownLoadLockInfo(lua_State *state) {
    return PushSessionLockInfo(state, &g_stDownLoadLockTable);
}
QAV_ENTRY_FUNCTION QAV_SetDownloadLockInfo(lua_State *state) {
    return StoreSessionLockInfo(state, &g_stDownLoadLockTable);
}
QAV_ENTRY_FUNCTION QAV_QueryNvPatLockInfo(lua_State *state) {
    return PushSessionLockInfo(state, &g_stNvPatchLockTable);
}
QAV_ENTRY_FUNCTION QAV_SetNvPatLockInfo(lua_State *state) {
    return StoreSessionLockInfo(state, &g_stNvPatchLockTable);
}
QAV_ENTRY_FUNCTION QAV_QueryPatDbgLockInfo(lua_State *state) {
    return PushSessionLockInfo(state, &g_stPatchDbgLockTable);
}
QAV_ENTRY_FUNCTION QAV_SetPatDbgLockInfo(lua_State *state) {
    return StoreSessionLockInfo(state, &g_stPatchDbgLockTable);
}

QAV_ENTRY_FUNCTION QAV_QueryCollectLogLockInfo(lua_State *state) {
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    SYSDT_SPTI_PushUInt(state, g_stCollectLogLockTable.info);
    return 2;
}
QAV_ENTRY_FUNCTION QAV_SetCollectLogLockInfo(lua_State *state) {
    if (!qav::ArgCountIs(state, 1)) return qav::ReturnUInt(state, kFailed);
    g_stCollectLogLockTable.info = SYSDT_SPTI_ToUInt(state, 1);
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_QueryPatLockInfo(lua_State *state) {
    if (!qav::ArgCountIs(state, 1) || SYSDT_SPTI_IsTable(state, 1) == 0)
        return qav::ReturnUInt(state, kFailed);
    QavPatLockInfo *info = nullptr;
    QAV_PatchLockAddrGet(&info);
    if (info == nullptr) return qav::ReturnUInt(state, kFailed);
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
    if (!qav::ArgCountIs(state, 1) || SYSDT_SPTI_IsTable(state, 1) == 0)
        return qav::ReturnUInt(state, kFailed);
    QavPatLockInfo *info = nullptr;
    QAV_PatchLockAddrGet(&info);
    if (info == nullptr) return qav::ReturnUInt(state, kFailed);
    info->sessionId = qav::FieldUInt(state, 1, "sessionId");
    SYSDT_SPTI_GetField(state, 1, "startTime");
    info->startTime = SYSDT_SPTI_ToUInt(state, -1);
    // The traceback keeps the text of the startTime value still on the stack, not the
    // "traceback" field: the patch scripts read it back that way.
    const char *text = SYSDT_SPTI_ToString(state, -1);
    if (info->traceback == nullptr || text == nullptr) return qav::ReturnUInt(state, kFailed);
    SYSDT_SPTI_GetField(state, 1, "traceback");
    (void)strncpy_s(info->traceback, kTracebackSize, text, kTracebackSize - 1);
    return qav::ReturnUInt(state, qav::kOk);
}

// The process-wide upgrade lock: a write lock that excludes everything, read locks that coexist
// while their VM lists do not overlap, and a lock period after which the lock is treated as gone.
#include "state/upgrade_lock.h"

#include <atomic>
#include <cstring>
#include <ctime>

#include "binding/memory.h"
#include "binding/script_frame.h"
#include "os_env.h"
#include "securec.h"
#include "state/comm_lock.h"
#include "state/dropped_memory.h"

// Three words and the list (two links, a count).
QAV_DEVICE_LAYOUT(QavUpgradeLock, 24)

extern "C" {
QavUpgradeLock g_stUpgradeLock;
QavUpgradeLock *pstUpgradeLock = nullptr;
uint32_t g_pUpgradeMutex = 0;
const char cVmSpliter = '"';
}

namespace {

// The lock record's state, and the kind of hold a script asks for.
enum LockState : uint32_t { kIdle = 0, kWriteLocked = 1, kReadLocked = 2 };
enum LockType : uint32_t { kWriteType = 1, kReadType = 2 };
using qav::state::kUpgradeLockBusy;
using qav::state::kUpgradeLockMismatch;
using qav::state::kUpgradeLockNoVmList;
// A token (a name with the separators on both sides) is compared in a 13-byte buffer.
constexpr size_t kTokenBuffer = 13;

// "qav_IsLocked" reads the state and the lock period without the upgrade mutex; every write goes
// through here so that read is well defined.
uint32_t Load(const uint32_t &field) {
    return std::atomic_ref<uint32_t>(const_cast<uint32_t &>(field)).load(std::memory_order_relaxed);
}
void Store(uint32_t &field, uint32_t value) {
    std::atomic_ref<uint32_t>(field).store(value, std::memory_order_relaxed);
}

void SetRecord(uint32_t state, uint32_t startTime, uint32_t duration) {
    Store(g_stUpgradeLock.state, state);
    Store(g_stUpgradeLock.startTime, startTime);
    Store(g_stUpgradeLock.duration, duration);
}

#define Log(level, ...) RPM_LogToFile(qav::kUpgradeLogId, level, __VA_ARGS__)

const char *Shown(const char *text) {
    return text != nullptr ? text : "(null)";
}

VmLockNode *NodeOf(SLL_NODE *link) {
    return reinterpret_cast<VmLockNode *>(link);
}

void FreeVmNode(SLL_NODE *link) {
    VmLockNode *node = NodeOf(link);
    qav::PlatformFree(node->vmList);
    qav::PlatformFree(node);
}

uint32_t ReleaseWith(uint32_t result) {
    (void)NUK_MutexUnlock(g_pUpgradeMutex);
    return result;
}

} // namespace

extern "C" {

void QAV_SuLockInit(void) {
    SLL_LIST *list = &g_stUpgradeLock.vmLists;
    // The nodes of an expired lock are dropped here without being freed.
    for (SLL_NODE *n = list->first; n != nullptr && n != SLL_HEAD_NODE(list); n = n->next) {
        qav::KeepDropped(NodeOf(n)->vmList);
        qav::KeepDropped(n);
    }
    SetRecord(kIdle, 0, 0);
    SLL_Init(list);
}

uint32_t QAV_GetSysTime(uint32_t *seconds) {
    if (seconds == nullptr) return 1;
    struct timespec now {};
    if (ZAK_OsClockGetTime(CLOCK_MONOTONIC_RAW, &now) != 0) return 1;
    *seconds = static_cast<uint32_t>(now.tv_sec);
    return 0;
}

void QAV_SuFreeAllVmlist(SLL_NODE *node) {
    FreeVmNode(node);
}

void QAV_SuLockClear(void) {
    SetRecord(kIdle, 0, 0);
    SLL_FreeAll(&g_stUpgradeLock.vmLists, QAV_SuFreeAllVmlist);
    Log(qav::kLogStateChange, "[UPG-LOCK]time out, all vmlist to be released!");
}

// The end of the lock period is inclusive.
uint32_t QAV_IsInLockTime(uint32_t now) {
    uint32_t start = Load(g_stUpgradeLock.startTime);
    if (start == 0) return 0;
    return now - start <= Load(g_stUpgradeLock.duration) ? 1 : 0;
}

uint32_t QAV_IsAnyVmLocked(const char *vmlist) {
    SLL_LIST *list = &g_stUpgradeLock.vmLists;
    const char *start = vmlist;
    const char *end = vmlist[0] != '\0' ? strchr(vmlist + 1, cVmSpliter) : nullptr;
    while (end != nullptr) {
        // A name too long for the buffer is compared by its first characters, so two long names
        // sharing them count as overlapping rather than slipping past each other.
        char token[kTokenBuffer] = {};
        size_t length = static_cast<size_t>(end - start) + 1;
        memcpy(token, start, length < kTokenBuffer ? length : kTokenBuffer - 1);
        if (list->count != 0) {
            for (SLL_NODE *n = list->first; n != SLL_HEAD_NODE(list); n = n->next) {
                if (strstr(NodeOf(n)->vmList, token) != nullptr) {
                    Log(qav::kLogStateChange, "[UPG-LOCK]find vm %s is already locked!!", token);
                    return 1;
                }
            }
        }
        start = end;
        end = strchr(end + 1, cVmSpliter);
    }
    return 0;
}

int32_t QAV_SuLockVmList(const char *vmlist) {
    if (QAV_IsAnyVmLocked(vmlist) == 1) return static_cast<int32_t>(kUpgradeLockNoVmList);
    auto *node = static_cast<VmLockNode *>(qav::PlatformAlloc(sizeof(VmLockNode)));
    if (node == nullptr) {
        Log(qav::kLogFailure, "[UPG-LOCK]failed to alloc vmlock node memory!");
        return -1;
    }
    size_t size = strlen(vmlist) + 1;
    node->vmList = static_cast<char *>(qav::PlatformAlloc(static_cast<uint32_t>(size)));
    if (node->vmList == nullptr) {
        qav::PlatformFree(node);
        Log(qav::kLogFailure, "[UPG-LOCK]failed to alloc vmlist node memory!");
        return -1;
    }
    errno_t rc = strcpy_s(node->vmList, size, vmlist);
    if (rc != EOK) qav::LogCallFailure("QAV_SuLockVmList", -1, __LINE__);
    SLL_LIST *list = &g_stUpgradeLock.vmLists;
    SLL_Insert_In_Middle(list, list->last, &node->link);
    Log(qav::kLogStateChange, "[UPG-LOCK]vmlist %s is successful locked!\n", vmlist);
    return 0;
}

// Unlocking needs the very string that was locked, while locking compares name by name.
uint32_t QAV_SuUnlockVmList(const char *vmlist) {
    SLL_LIST *list = &g_stUpgradeLock.vmLists;
    if (list->count != 0) {
        for (SLL_NODE *n = list->first; n != SLL_HEAD_NODE(list); n = n->next) {
            if (strcmp(NodeOf(n)->vmList, vmlist) != 0) continue;
            (void)SLL_Delete(list, n);
            FreeVmNode(n);
            Log(qav::kLogStateChange, "[UPG-LOCK]vmlist %s is successful unlocked!\n", vmlist);
            return 0;
        }
    }
    Log(qav::kLogFailure, "[UPG-LOCK]vmlist %s is not in locked list!\n", vmlist);
    return kUpgradeLockNoVmList;
}

uint32_t QAV_Lock_applywrite(uint32_t duration, uint32_t now) {
    if (g_stUpgradeLock.state != kIdle) {
        Log(qav::kLogFailure, "[UPG-LOCK]current status is not idle, con't set wirte lock anymore!");
        return kUpgradeLockBusy;
    }
    SetRecord(kWriteLocked, now, duration);
    // The write path shares the read path's message.
    Log(qav::kLogStateChange, "[UPG-LOCK]set upgrade lock_read success! time %u - %u, status: %u",
        g_stUpgradeLock.startTime, g_stUpgradeLock.duration, g_stUpgradeLock.state);
    return 0;
}

uint32_t QAV_Lock_applyread(uint32_t duration, uint32_t now, const char *vmlist) {
    if (g_stUpgradeLock.state == kWriteLocked) {
        Log(qav::kLogFailure, "[UPG-LOCK]current status is write lock, con't set read lock!");
        return kUpgradeLockBusy;
    }
    if (vmlist == nullptr) {
        Log(qav::kLogFailure, "[UPG-LOCK]read type lock, but vmlist is null!");
        return kUpgradeLockNoVmList;
    }
    uint32_t rc = static_cast<uint32_t>(QAV_SuLockVmList(vmlist));
    if (rc != 0) {
        Log(qav::kLogFailure, "[UPG-LOCK]set vmlist lock failed, retcode = %u!", rc);
        return rc;
    }
    uint32_t start = g_stUpgradeLock.startTime;
    if (g_stUpgradeLock.state == kReadLocked && start != 0) {
        // A later reader can only push the end of the period out; the start never moves.
        if (start + g_stUpgradeLock.duration < now + duration)
            Store(g_stUpgradeLock.duration, now + duration - start);
    } else {
        Store(g_stUpgradeLock.startTime, now);
        Store(g_stUpgradeLock.duration, duration);
    }
    Store(g_stUpgradeLock.state, kReadLocked);
    Log(qav::kLogStateChange, "[UPG-LOCK]set upgrade lock_read success! time %u - %u, status: %u",
        g_stUpgradeLock.startTime, g_stUpgradeLock.duration, g_stUpgradeLock.state);
    return 0;
}

// 0 with the upgrade mutex held, or the failure code with it not held.
uint32_t QAV_UnLock_checkable(uint32_t type, const char *vmlist, uint32_t *now) {
    if (type == kReadType && vmlist == nullptr) {
        Log(qav::kLogFailure, "[UPG-LOCK]read type lock, vmlist should not null.");
        return kUpgradeLockNoVmList;
    }
    if (pstUpgradeLock == nullptr) {
        Log(qav::kLogFailure, "[UPG-LOCK]upgrade lock is uninitialized. Pls set lock first!");
        return 1;
    }
    if (NUK_MutexLock(g_pUpgradeMutex) != 0) {
        Log(qav::kLogFailure, "[UPG-LOCK]get upgrade mutex failed!");
        return 1;
    }
    // Read under the mutex (see QAV_Lock).
    if (QAV_GetSysTime(now) != 0) {
        Log(qav::kLogFailure, "[UPG-LOCK]get system time failed!");
        return ReleaseWith(1);
    }
    return 0;
}

// Releases the upgrade mutex itself on every failure.
uint32_t QAV_UnLock_statusread(uint32_t type, const char *vmlist) {
    if (type != kReadType) {
        // The missing bracket belongs to the text.
        Log(qav::kLogStateChange, "[UPG-LOCKincompatible lock status: %u and unlock type: %u",
            g_stUpgradeLock.state, type);
        return ReleaseWith(kUpgradeLockMismatch);
    }
    if (vmlist == nullptr) {
        Log(qav::kLogFailure, "[UPG-LOCK]read type unlock, but vmlist should null!");
        return ReleaseWith(kUpgradeLockNoVmList);
    }
    uint32_t rc = QAV_SuUnlockVmList(vmlist);
    if (rc != 0) {
        Log(qav::kLogFailure, "[UPG-LOCK]unlock vmlist failed, retcode = %u!", rc);
        return ReleaseWith(rc);
    }
    // The last reader ends the read lock.
    if (g_stUpgradeLock.vmLists.count == 0) SetRecord(kIdle, 0, 0);
    return 0;
}

} // extern "C"

QAV_ENTRY_FUNCTION QAV_Lock(lua_State *state) {
    if (!qav::ArgsMatch(state, "...")) return qav::ReturnUInt(state, qav::kFailed);
    uint32_t duration = SYSDT_SPTI_ToUInt(state, 1);
    uint32_t type = SYSDT_SPTI_ToUInt(state, 2);
    const char *vmlist = SYSDT_SPTI_ToString(state, 3);
    Log(qav::kLogStateChange, "[UPG-LOCK]starting set lock, type:%u, vmlist :%s!", type, Shown(vmlist));
    if (NUK_MutexLock(g_pUpgradeMutex) != 0) {
        Log(qav::kLogFailure, "[UPG-LOCK]get upgrade mutex failed!");
        return qav::ReturnUInt(state, qav::kFailed);
    }
    // The time is read with the mutex held. Read before it, a script that waited across a second
    // boundary would carry a time older than the start another holder has just recorded, and the
    // unsigned age would wrap and wipe every live VM list as expired.
    uint32_t now = 0;
    if (QAV_GetSysTime(&now) != 0) {
        Log(qav::kLogFailure, "[UPG-LOCK]get system time failed!");
        return qav::ReturnUInt(state, ReleaseWith(qav::kFailed));
    }
    // An expired lock vanishes here silently.
    if (QAV_IsInLockTime(now) == 0) QAV_SuLockInit();
    uint32_t rc = 0;
    if (type == kWriteType) {
        rc = QAV_Lock_applywrite(duration, now);
        Log(qav::kLogStateChange, "[UPG-LOCK]set upgrade write_lock, result: %u", rc);
    } else {
        rc = QAV_Lock_applyread(duration, now, vmlist);
        Log(qav::kLogStateChange, "[UPG-LOCK]set upgrade write_read, result: %u", rc);
    }
    (void)NUK_MutexUnlock(g_pUpgradeMutex);
    return qav::ReturnUInt(state, rc);
}

QAV_ENTRY_FUNCTION QAV_UnLock(lua_State *state) {
    if (!qav::ArgsMatch(state, "..")) return qav::ReturnUInt(state, qav::kFailed);
    uint32_t type = SYSDT_SPTI_ToUInt(state, 1);
    const char *vmlist = SYSDT_SPTI_ToString(state, 2);
    uint32_t now = 0;
    uint32_t rc = QAV_UnLock_checkable(type, vmlist, &now);
    if (rc != 0) return qav::ReturnUInt(state, rc);
    uint32_t current = g_stUpgradeLock.state;
    if (current == kIdle) {
        Log(qav::kLogProgress, "[UPG-LOCK]upgrade lock is idle. no need to unlock!");
        return qav::ReturnUInt(state, ReleaseWith(0));
    }
    if (QAV_IsInLockTime(now) == 0) {
        Log(qav::kLogStateChange, "[UPG-LOCK]current time lock is time out!, clear lock data");
        QAV_SuLockClear();
        return qav::ReturnUInt(state, ReleaseWith(0));
    }
    if (current == kWriteLocked) {
        if (type == kWriteType) {
            SetRecord(kIdle, 0, 0);
            return qav::ReturnUInt(state, ReleaseWith(0));
        }
        Log(qav::kLogStateChange, "[UPG-LOCK]incompatible lock status: %u and unlock type: %u", current,
            type);
        return qav::ReturnUInt(state, ReleaseWith(kUpgradeLockMismatch));
    }
    rc = QAV_UnLock_statusread(type, vmlist);
    if (rc != 0) return qav::ReturnUInt(state, rc);
    return qav::ReturnUInt(state, ReleaseWith(0));
}

QAV_ENTRY_FUNCTION QAV_IsLocked(lua_State *state) {
    uint32_t now = 0;
    if (QAV_GetSysTime(&now) != 0) {
        SYSDT_SPTI_PushBool(state, 0);
        return 1;
    }
    bool locked =
        pstUpgradeLock != nullptr && Load(g_stUpgradeLock.state) != kIdle && QAV_IsInLockTime(now) != 0;
    SYSDT_SPTI_PushBool(state, locked ? 1 : 0);
    return 1;
}

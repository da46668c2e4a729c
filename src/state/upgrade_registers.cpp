// Upgrade-state registers: single values, word pairs, the start record, the ISSU version pair,
// the fault-board list, the patch diagnostic value and error ring, the TPM activating flag, the
// VPN index and the constant and pass-through answers about the environment.
#include "state/upgrade_registers.h"

#include <sys/stat.h>

#include <cstring>
#include <ctime>
#include <utility>

#include "binding/memory.h"
#include "binding/script_frame.h"
#include "os_env.h"
#include "rpm_ini.h"
#include "rpm_state.h"
#include "securec.h"
#include "state/state_clock.h"
#include "zak_device.h"
#include "zak_file.h"

// Optional platform services: a platform without them makes the answers below false or 0.
extern "C" uint32_t ZAK_IsNps(void) __attribute__((weak));
extern "C" uint32_t ZAK_GetHard_Info(ZAK_HARD_INFO *info) __attribute__((weak));

namespace {

constexpr uint32_t kRingSlots = 50;
constexpr uint32_t kRingText = 48;
constexpr uint32_t kSlotIdSize = 48;
constexpr uint32_t kLocalFileNameSize = 384;

} // namespace

extern "C" {

typedef struct QavStartTable {
    uint32_t startTime;
    uint32_t curTime;
    uint32_t startFlag;
    uint32_t timeFlag;
    char slotId[kSlotIdSize];
} QavStartTable;

typedef struct QavPatchDiagErrLock {
    uint32_t mutex;
    uint32_t value;
} QavPatchDiagErrLock;

typedef struct QavPatchDiagErrRecord {
    char time[kRingText];
    uint32_t cid;
    uint32_t errorCode;
    char funcName[kRingText];
    char compName[kRingText];
} QavPatchDiagErrRecord;

typedef struct QavPatchDiagErrRing {
    uint32_t mutex;
    uint32_t count; // at most 50
    uint32_t next;  // slot to write
    QavPatchDiagErrRecord records[kRingSlots];
} QavPatchDiagErrRing;

uint32_t g_RstRollbackTimerLock[2];
uint32_t g_UpgradeLock[2];
uint32_t g_UpgradeState[2];
uint32_t g_upgradeMode;
uint32_t g_upgradeCompleteActiveLock;
uint32_t g_uiPatchErrorOpPolicy;
uint32_t g_uiPatchCompNoticeFlag;
uint32_t g_uiMKBuildrunFlag;
uint32_t g_uiMKModifyresult;
uint32_t g_uiDLPkgInnerActSessionId;
char g_acApDLPkgLocalFileName[kLocalFileNameSize];
const char *g_pstISSUBaseVersion;
const char *g_pstISSUUpgradeVersion;
QavStartTable g_stStartTable;
QavSumExceptLock g_uiSumExceptLock;
QavSumFaultBoard g_uiSumFaultBoard;
QavPatchDiagErrLock g_stPatchDiagErrLockTable;
QavPatchDiagErrRing *g_pstPatchDiagErrInfoTable;
uint32_t g_uiTpmActivingFlag;
uint32_t g_uiTpmActivingSetTime;
}

namespace {

// ---- The forms of the one-global registers (upgrade_registers.def) ---------------------------------

template <uint32_t *Value> int PushValue(lua_State *state) {
    return qav::ReturnUInt(state, *Value);
}

template <uint32_t *Value> int PushCodeAndValue(lua_State *state) {
    return qav::ReturnUIntPair(state, qav::kOk, *Value);
}

// One argument stored with the integer conversion; signed 0, or signed -1 storing nothing.
template <uint32_t *Value> int StoreSigned(lua_State *state) {
    if (!qav::ArgsMatch(state, ".")) return qav::ReturnInt(state, -1);
    *Value = static_cast<uint32_t>(SYSDT_SPTI_ToInt(state, 1));
    return qav::ReturnInt(state, 0);
}

// One argument stored unsigned; 0, or `failure` for another argument count.
template <uint32_t *Value, uint32_t failure> int StoreUnsigned(lua_State *state) {
    if (!qav::ArgsMatch(state, ".")) return qav::ReturnUInt(state, failure);
    *Value = SYSDT_SPTI_ToUInt(state, 1);
    return qav::ReturnUInt(state, qav::kOk);
}
template <uint32_t *Value> int StoreUnsignedOrFailed(lua_State *state) {
    return StoreUnsigned<Value, qav::kFailed>(state);
}
template <uint32_t *Value> int StoreUnsignedOrInvalid(lua_State *state) {
    return StoreUnsigned<Value, qav::kInvalidCall>(state);
}

// Stores whatever argument 1 holds, without a count check.
template <uint32_t *Value> int StoreUnchecked(lua_State *state) {
    *Value = SYSDT_SPTI_ToUInt(state, 1);
    return qav::ReturnUInt(state, qav::kOk);
}

template <uint32_t (*Pair)[2]> int PushCodeAndPair(lua_State *state) {
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    SYSDT_SPTI_PushUInt(state, (*Pair)[0]);
    SYSDT_SPTI_PushUInt(state, (*Pair)[1]);
    return 3;
}

// Stores arguments 1 and 2 and pushes nothing; the declared count is each setter's own and the
// scripts take whatever lies on the stack.
template <uint32_t (*Pair)[2], int declared> int StorePair(lua_State *state) {
    (*Pair)[0] = SYSDT_SPTI_ToUInt(state, 1);
    (*Pair)[1] = SYSDT_SPTI_ToUInt(state, 2);
    return declared;
}
template <uint32_t (*Pair)[2]> int StorePairDeclaringTwo(lua_State *state) {
    return StorePair<Pair, 2>(state);
}
template <uint32_t (*Pair)[2]> int StorePairDeclaringThree(lua_State *state) {
    return StorePair<Pair, 3>(state);
}

// ---- HA log --------------------------------------------------------------------------------------

// The fault-board and ISSU lines go to the HA log only while the platform log level is below 6;
// they are written at level 1 so the platform's own gate passes them at any level from 1.
constexpr int32_t kHaLevel = 1;
constexpr int32_t kHaQuietLevel = 6;
#define HA_LOG(...)                                                                                          \
    do {                                                                                                     \
        if (g_iLogLevel < kHaQuietLevel) ha_log(kHaLevel, __VA_ARGS__);                                      \
    } while (0)

// ---- Mutex-guarded values ---------------------------------------------------------------------------

// Takes a register's mutex for the length of a call; a mutex that cannot be taken (never
// created) does not stop the call.
class Guard {
  public:
    explicit Guard(uint32_t mutex) : mutex_(mutex), held_(NUK_MutexLock(mutex) == 0) {}
    ~Guard() {
        if (held_) (void)NUK_MutexUnlock(mutex_);
    }
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;

  private:
    uint32_t mutex_;
    bool held_;
};

uint32_t WallSeconds() {
    struct timespec now {};
    if (ZAK_OsClockGetTime(CLOCK_REALTIME, &now) != 0) return 0;
    return static_cast<uint32_t>(now.tv_sec);
}

void CopyBounded(char *buffer, size_t size, const char *text) {
    (void)strncpy_s(buffer, size, text, size - 1);
}

void PushRingRecord(lua_State *state, const QavPatchDiagErrRecord &record) {
    qav::TableBuilder table{state};
    SYSDT_SPTI_PushLString(state, record.compName, kRingText);
    SYSDT_SPTI_SetField(state, table.index, "compName");
    SYSDT_SPTI_PushLString(state, record.funcName, kRingText);
    SYSDT_SPTI_SetField(state, table.index, "funcName");
    SYSDT_SPTI_PushLString(state, record.time, kRingText);
    SYSDT_SPTI_SetField(state, table.index, "time");
    table.UInt("cid", record.cid).UInt("errorCode", record.errorCode);
}

} // namespace

// ---- The one-global registers -------------------------------------------------------------------------

#define QAV_REGISTER(getter, setter, global, pushForm, storeForm)                                            \
    QAV_ENTRY_FUNCTION getter(lua_State *state) {                                                            \
        return pushForm<&global>(state);                                                                     \
    }                                                                                                        \
    QAV_ENTRY_FUNCTION setter(lua_State *state) {                                                            \
        return storeForm<&global>(state);                                                                    \
    }
#include "state/upgrade_registers.def"
#undef QAV_REGISTER

// ---- The local file name of an AP download package ------------------------------------------------

QAV_ENTRY_FUNCTION qav_SetApDLPkg_LocalFileName(lua_State *state) {
    const char *name = qav::ArgCount(state) >= 1 ? SYSDT_SPTI_ToString(state, 1) : nullptr;
    if (name == nullptr) return qav::ReturnInt(state, -1);
    errno_t rc = strncpy_s(g_acApDLPkgLocalFileName, kLocalFileNameSize, name, kLocalFileNameSize - 1);
    if (rc != EOK) qav::LogCallFailure("qav_SetApDLPkg_LocalFileName", rc, __LINE__);
    return qav::ReturnInt(state, 0);
}

// The name the setter stored ("" before any set), pushed alone as its neighbours push their value.
QAV_ENTRY_FUNCTION qav_GetApDLPkg_LocalFileName(lua_State *state) {
    SYSDT_SPTI_PushString(state, g_acApDLPkgLocalFileName, kLocalFileNameSize);
    return 1;
}

// ---- Start information ---------------------------------------------------------------------------------

QAV_ENTRY_FUNCTION QAV_SetStartInfo(lua_State *state) {
    if (!qav::ArgsMatch(state, "t")) return qav::ReturnUInt(state, qav::kInvalidCall);
    g_stStartTable.startFlag = qav::FieldUInt(state, 1, "startFlag");
    g_stStartTable.timeFlag = qav::FieldUInt(state, 1, "timeFlag");
    if (g_stStartTable.timeFlag == 0) {
        g_stStartTable.startTime = 0;
        g_stStartTable.curTime = 0;
    } else if (g_stStartTable.timeFlag == 1) {
        g_stStartTable.startTime = qav::MonotonicSeconds();
    } else {
        g_stStartTable.curTime = qav::MonotonicSeconds();
    }
    // The flags and times written above stay when the slot id is missing.
    SYSDT_SPTI_GetField(state, 1, "slotId");
    const char *slotId = SYSDT_SPTI_IsString(state, -1) != 0 ? SYSDT_SPTI_ToString(state, -1) : nullptr;
    if (slotId != nullptr) CopyBounded(g_stStartTable.slotId, kSlotIdSize, slotId);
    SYSDT_SPTI_Pop(state, 1);
    return qav::ReturnUInt(state, slotId != nullptr ? qav::kOk : qav::kInvalidCall);
}

QAV_ENTRY_FUNCTION QAV_QueryStartInfo(lua_State *state) {
    if (!qav::ArgsMatch(state, "t")) return qav::ReturnUInt(state, qav::kInvalidCall);
    const std::pair<const char *, uint32_t> fields[] = {{"startTime", g_stStartTable.startTime},
                                                        {"curTime", g_stStartTable.curTime},
                                                        {"timeFlag", g_stStartTable.timeFlag},
                                                        {"startFlag", g_stStartTable.startFlag}};
    for (const auto &[key, value] : fields) {
        SYSDT_SPTI_PushUInt(state, value);
        SYSDT_SPTI_SetField(state, 1, key);
    }
    SYSDT_SPTI_PushLString(state, g_stStartTable.slotId, kSlotIdSize);
    SYSDT_SPTI_SetField(state, 1, "slotId");
    return qav::ReturnUInt(state, qav::kOk);
}

// ---- ISSU version pair -------------------------------------------------------------------------------

// The versions are kept as library-owned copies, so they stay readable after the script lets go
// of its strings.
QAV_ENTRY_FUNCTION ISSU_SetUpgradeInfo(lua_State *state) {
    int32_t count = qav::ArgCount(state);
    const char *base = count >= 1 ? SYSDT_SPTI_ToString(state, 1) : nullptr;
    const char *upgrade = count >= 2 ? SYSDT_SPTI_ToString(state, 2) : nullptr;
    qav::HeapFree(const_cast<char *>(g_pstISSUBaseVersion));
    qav::HeapFree(const_cast<char *>(g_pstISSUUpgradeVersion));
    g_pstISSUBaseVersion = qav::HeapCopy(base);
    g_pstISSUUpgradeVersion = qav::HeapCopy(upgrade);
    if (g_pstISSUBaseVersion == nullptr || g_pstISSUUpgradeVersion == nullptr)
        return qav::ReturnUInt(state, qav::kInvalidCall);
    // The text says Failed on the success path; the HA log readers match it as it is.
    HA_LOG("Func(%s) Failed uiParaNum id = %d BaseVersion = %s UpgradeVersion = %s", "ISSU_SetUpgradeInfo",
           count, g_pstISSUBaseVersion, g_pstISSUUpgradeVersion);
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION ISSU_GetUpgradeInfo(lua_State *state) {
    if (g_pstISSUBaseVersion == nullptr || g_pstISSUUpgradeVersion == nullptr)
        return qav::ReturnUInt(state, qav::kInvalidCall);
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    SYSDT_SPTI_PushString(state, g_pstISSUBaseVersion, static_cast<uint32_t>(strlen(g_pstISSUBaseVersion)));
    SYSDT_SPTI_PushString(state, g_pstISSUUpgradeVersion,
                          static_cast<uint32_t>(strlen(g_pstISSUUpgradeVersion)));
    SYSDT_SPTI_PushUInt(state, g_upgradeMode);
    return 4;
}

// ---- Except-file lock and fault boards ------------------------------------------------------------------

QAV_ENTRY_FUNCTION QAV_GetExceptFileLock(lua_State *state) {
    Guard guard(g_uiSumExceptLock.mutex);
    return qav::ReturnUIntPair(state, qav::kOk, static_cast<uint32_t>(g_uiSumExceptLock.value));
}

QAV_ENTRY_FUNCTION QAV_SetExceptFileLock(lua_State *state) {
    Guard guard(g_uiSumExceptLock.mutex);
    if (!qav::ArgsMatch(state, ".")) return qav::ReturnInt(state, -1);
    g_uiSumExceptLock.value = SYSDT_SPTI_ToInt(state, 1);
    return qav::ReturnInt(state, 0);
}

QAV_ENTRY_FUNCTION ISSU_RecordFaultBoard(lua_State *state) {
    static const char *const kFunc = "ISSU_RecordFaultBoard";
    Guard guard(g_uiSumFaultBoard.mutex);
    HA_LOG("Func(%s) entry", kFunc);
    if (!qav::ArgsMatch(state, ".")) {
        HA_LOG("Func(%s) get para num failed.", kFunc);
        return qav::ReturnInt(state, -1);
    }
    int32_t board = SYSDT_SPTI_ToInt(state, 1);
    if (board == 0) {
        HA_LOG("Func(%s) get fault board failed.", kFunc);
        return qav::ReturnInt(state, 1);
    }
    // A full list leaves the board unrecorded; the call still succeeds.
    for (int32_t &slot : g_uiSumFaultBoard.boards) {
        if (slot == board) {
            HA_LOG("Func(%s) board %d is already recorded.", kFunc, board);
            break;
        }
        if (slot == 0) {
            slot = board;
            HA_LOG("Func(%s) record board %d", kFunc, board);
            break;
        }
    }
    return qav::ReturnInt(state, 0);
}

QAV_ENTRY_FUNCTION ISSU_JudgeFaultBoardExist(lua_State *state) {
    static const char *const kFunc = "ISSU_JudgeFaultBoardExist";
    Guard guard(g_uiSumFaultBoard.mutex);
    HA_LOG("Func(%s) entry.", kFunc);
    int32_t board = SYSDT_SPTI_ToInt(state, 1);
    if (board == 0) {
        HA_LOG("Func(%s) get para num failed.", kFunc);
        return qav::ReturnInt(state, 2);
    }
    for (int32_t slot : g_uiSumFaultBoard.boards) {
        if (slot == board) {
            HA_LOG("Func(%s) get repeat fault board %d.", kFunc, board);
            return qav::ReturnInt(state, 1);
        }
    }
    return qav::ReturnInt(state, 0);
}

QAV_ENTRY_FUNCTION ISSU_ClearFaultBoardInfo(lua_State *state) {
    Guard guard(g_uiSumFaultBoard.mutex);
    HA_LOG("Func(%s) entry.", "ISSU_ClearFaultBoardInfo");
    (void)memset_s(g_uiSumFaultBoard.boards, sizeof g_uiSumFaultBoard.boards, 0,
                   sizeof g_uiSumFaultBoard.boards);
    return qav::ReturnInt(state, 0);
}

// ---- Patch diagnostic value and error ring --------------------------------------------------------------

QAV_ENTRY_FUNCTION QAV_PatDiagErrLockInit(lua_State *state) {
    (void)NUK_MutexInit(&g_stPatchDiagErrLockTable.mutex, 0);
    g_stPatchDiagErrLockTable.value = 0;
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_QueryPatDiagErrInfo(lua_State *state) {
    Guard guard(g_stPatchDiagErrLockTable.mutex);
    return qav::ReturnUIntPair(state, qav::kOk, g_stPatchDiagErrLockTable.value);
}

QAV_ENTRY_FUNCTION QAV_SetPatDiagErrInfo(lua_State *state) {
    Guard guard(g_stPatchDiagErrLockTable.mutex);
    if (!qav::ArgsMatch(state, ".")) return qav::ReturnUInt(state, qav::kInvalidCall);
    g_stPatchDiagErrLockTable.value = SYSDT_SPTI_ToUInt(state, 1);
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_PatDiagErrInfoInit(lua_State *state) {
    if (g_pstPatchDiagErrInfoTable == nullptr) {
        g_pstPatchDiagErrInfoTable =
            static_cast<QavPatchDiagErrRing *>(qav::HeapAlloc(sizeof(QavPatchDiagErrRing)));
        if (g_pstPatchDiagErrInfoTable == nullptr) return qav::ReturnUInt(state, 1);
    }
    QavPatchDiagErrRing *ring = g_pstPatchDiagErrInfoTable;
    (void)NUK_MutexInit(&ring->mutex, 0);
    ring->count = 0;
    ring->next = 0;
    (void)memset_s(ring->records, sizeof ring->records, 0, sizeof ring->records);
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_SetPatErrorInfo(lua_State *state) {
    QavPatchDiagErrRing *ring = g_pstPatchDiagErrInfoTable;
    if (ring == nullptr) return qav::ReturnUInt(state, qav::kInvalidCall);
    Guard guard(ring->mutex);
    if (!qav::ArgsMatch(state, ".")) return qav::ReturnUInt(state, qav::kInvalidCall);
    // The slot is taken before the record is read, so a record without its time still uses one.
    QavPatchDiagErrRecord &record = ring->records[ring->next];
    ring->next = (ring->next + 1) % kRingSlots;
    if (ring->count < kRingSlots) ring->count++;
    SYSDT_SPTI_GetField(state, 1, "time");
    const char *time = SYSDT_SPTI_IsString(state, -1) != 0 ? SYSDT_SPTI_ToString(state, -1) : nullptr;
    if (time != nullptr) CopyBounded(record.time, kRingText, time);
    SYSDT_SPTI_Pop(state, 1);
    if (time == nullptr) return qav::ReturnUInt(state, qav::kInvalidCall);
    record.cid = qav::FieldUInt(state, 1, "cid");
    record.errorCode = qav::FieldUInt(state, 1, "errorCode");
    for (auto [key, buffer] :
         {std::pair{"funcName", record.funcName}, std::pair{"compName", record.compName}}) {
        SYSDT_SPTI_GetField(state, 1, key);
        const char *text = SYSDT_SPTI_ToString(state, -1);
        if (text != nullptr) CopyBounded(buffer, kRingText, text);
        SYSDT_SPTI_Pop(state, 1);
    }
    return qav::ReturnUInt(state, qav::kOk);
}

// Key 1 is the newest record, key `count` the oldest.
QAV_ENTRY_FUNCTION QAV_QueryPatErrorInfo(lua_State *state) {
    QavPatchDiagErrRing *ring = g_pstPatchDiagErrInfoTable;
    if (ring == nullptr) {
        SYSDT_SPTI_PushUInt(state, qav::kInvalidCall);
        SYSDT_SPTI_PushNil(state);
        return 2;
    }
    Guard guard(ring->mutex);
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    if (ring->count == 0) {
        SYSDT_SPTI_PushNil(state);
        return 2;
    }
    qav::TableBuilder records{state};
    for (uint32_t key = 1; key <= ring->count; ++key) {
        uint32_t slot = (ring->next + kRingSlots - key) % kRingSlots;
        SYSDT_SPTI_PushUInt(state, key);
        PushRingRecord(state, ring->records[slot]);
        SYSDT_SPTI_SetTable(state, records.index);
    }
    return 2;
}

// ---- TPM activating flag --------------------------------------------------------------------------------

QAV_ENTRY_FUNCTION QAV_SetTpmActivingFlag(lua_State *state) {
    uint32_t value = SYSDT_SPTI_ToUInt(state, 1);
    RPM_LogToFile(qav::kUpgradeLogId, qav::kLogStateChange, "Set tpm activing flag:%u", value);
    if (value == 1) {
        g_uiTpmActivingFlag = 1;
        g_uiTpmActivingSetTime = WallSeconds();
    } else {
        g_uiTpmActivingFlag = 0;
        g_uiTpmActivingSetTime = 0;
    }
    // One result declared, none pushed.
    return 1;
}

// Set reads as set within 299 seconds of the set time, either way round (the wall clock may
// have been moved back).
QAV_ENTRY_FUNCTION QAV_GetTpmActivingFlag(lua_State *state) {
    uint32_t now = WallSeconds();
    uint32_t setTime = g_uiTpmActivingSetTime;
    int32_t result = (g_uiTpmActivingFlag != 0 && now - setTime + 299u < 599u) ? 1 : 0;
    uint32_t interval = now >= setTime ? now - setTime : setTime - now;
    RPM_LogToFile(qav::kUpgradeLogId, qav::kLogStateChange, "get tpm activing flag:%d, interval time:%u",
                  result, interval);
    return qav::ReturnInt(state, result);
}

// ---- VPN index -------------------------------------------------------------------------------------------

QAV_ENTRY_FUNCTION QAV_PutVPNindex(lua_State *state) {
    static const char *const kVpnIni = "../bootfile/vpn.ini";
    const char *value = qav::ArgsMatch(state, "s") ? SYSDT_SPTI_ToString(state, 1) : nullptr;
    if (value == nullptr) return qav::ReturnUInt(state, qav::kFailed);
    struct stat info {};
    if (stat(kVpnIni, &info) != 0) {
        int32_t fd = P_ZAK_Open(kVpnIni, ZAK_O_WRONLY | ZAK_O_CREAT | ZAK_O_TRUNC, 0, 0740);
        if (fd < 0) return qav::ReturnUInt(state, qav::kFailed);
        (void)P_ZAK_Close(fd, 0);
    }
    (void)RPM_WriteProfileString(kVpnIni, "[VPN INDEX]", "index ", value);
    return qav::ReturnUInt(state, qav::kOk);
}

// ---- Constant answers and pass-throughs ------------------------------------------------------------------

QAV_ENTRY_FUNCTION QAV_Get_CpuType(lua_State *state) {
    return qav::ReturnUInt(state, 32);
}
QAV_ENTRY_FUNCTION QAV_SysGetWordSize(lua_State *state) {
    return qav::ReturnUInt(state, 32);
}
QAV_ENTRY_FUNCTION QAV_IsInContainer(lua_State *state) {
    return qav::ReturnUInt(state, 0);
}
QAV_ENTRY_FUNCTION QAV_SPT_IsProductEnv(lua_State *state) {
    SYSDT_SPTI_PushBool(state, 1);
    return 1;
}
QAV_ENTRY_FUNCTION QAV_GetEnabledFromDesc(lua_State *state) {
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    SYSDT_SPTI_PushBool(state, 0);
    return 2;
}
QAV_ENTRY_FUNCTION QAV_IsNps(lua_State *state) {
    return qav::ReturnUInt(state, (ZAK_IsNps != nullptr && ZAK_IsNps() == 1) ? 1 : 0);
}

QAV_ENTRY_FUNCTION QAV_RPM_GetUpgradeFlag(lua_State *state) {
    uint32_t flag = 255;
    uint32_t rc = RPM_GetUpgradeFlag(&flag);
    return qav::ReturnUIntPair(state, rc, flag);
}
QAV_ENTRY_FUNCTION QAV_BackupPatchHistoryIni(lua_State *) {
    (void)RPM_BackupPatchHistoryIni();
    return 0;
}
QAV_ENTRY_FUNCTION QAV_FIPS_LuaGetFipsStatus(lua_State *state) {
    return qav::ReturnUInt(state, QAV_FIPS_GetFipsStatus());
}

QAV_ENTRY_FUNCTION QAV_GetSoftResetFlag(lua_State *state) {
    ZAK_HARD_INFO info{};
    bool supported =
        ZAK_GetHard_Info != nullptr && ZAK_GetHard_Info(&info) == 0 && info.uiSoftResetSupport != 0;
    SYSDT_SPTI_PushBool(state, supported ? 1 : 0);
    return 1;
}

QAV_ENTRY_FUNCTION QAV_GetFileListName(lua_State *state) {
    char name[RPM_FILELIST_NAME_SIZE] = {};
    uint32_t rc = qav::kGenericFailure;
    if (qav::ArgsMatch(state, "...")) {
        rc = RPM_GetFileListNameByFileTypeOnMPU(SYSDT_SPTI_ToUInt(state, 1), SYSDT_SPTI_ToUInt(state, 2),
                                                SYSDT_SPTI_ToUInt(state, 3), name);
        if (rc != 0) (void)memset_s(name, sizeof name, 0, sizeof name);
    }
    return qav::ReturnUIntText(state, rc, name, RPM_FILELIST_NAME_SIZE);
}

// Trap and event-log script functions: each checks its arguments, writes its base-log lines under
// the trap's info code, finds the component id and hands one record to the event log.
#include <cstring>

#include "binding/memory.h"
#include "binding/script_frame.h"
#include "event/component_id.h"
#include "loc.h"
#include "qav_event.h"
#include "securec.h"
#include "time/time_records.h"
#include "zak_systime.h"

extern "C" {
// The system second of the last slave-switch success record for the local chassis; 0 = none.
__attribute__((visibility("default"))) int32_t g_iSlaSwiSuccessTrapSecond = 0;
}

namespace {

constexpr size_t kDebugPiece = 5000;
// The most arguments a trap of the common shape takes.
constexpr size_t kMaxTrapArgs = 5;

enum : uint32_t {
    kSlaveSwitchSuccess = 0x8090006,
    kSlaveSwitchFail = 0x8090007,
    kFlashSyncSuccess = 0x8090008,
    kFlashSyncFail = 0x8090009,
    kClockChange = 0x809000A,
    kSysReload = 0x809000B,
    kUtcClockChangeRecords = 0x809000C,
    kUtcClockChangeText = 0x809000D,
    kDebugLast = 0x8091013,
    kDebugPieceCode = 0x8061000,
    kSumUpgradeFirst = 0x9550000,
    kSumUpgradeSecond = 0x9551036,
    kSysIssu = 0x9550003,
    kSysImageError = 0x9550004,
    kPatchState = 0xD161001,
    kPatchError = 0xD161002,
    kPatchStateDialog = 0xD161014,
    kPatchErrorDialog = 0xD161015,
};

int Refuse(lua_State *state) {
    return qav::ReturnUInt(state, qav::kGenericFailure);
}

// A wrong count: "<name> proc fail. para num = %d\n" with the count, under the trap's code.
int RefuseCount(lua_State *state, uint32_t code, const char *countText) {
    QAV_Log(0, code, countText, qav::ArgCount(state));
    return Refuse(state);
}

// The component id, or the status to push after logging it.
bool EcmCid(uint32_t code, uint32_t *cid, uint32_t *status) {
    uint32_t rc = QAV_GetEcmCid(cid);
    if (rc == 0) return true;
    QAV_Log(0, code, "QAV_GetEcmCid proc fail. uiRet = %d \n", rc);
    *status = rc;
    return false;
}

// The first component id at this board's location; the list is the platform's to free.
uint32_t BaseComponentCid(uint32_t code, uint32_t *cid) {
    uint32_t *list = nullptr;
    uint32_t count = 0;
    uint32_t rc = QAV_GetCidByBaseCompAddr(1, LOC_GetLocationID(), &list, &count);
    if (rc != 0) {
        QAV_Log(0, code, "QAV_GetCidByBaseCompAddr proc fail. uiRet = %d \n", rc);
        return rc;
    }
    if (list != nullptr) {
        if (count > 0) *cid = list[0];
        qav::PlatformFree(list);
    }
    return 0;
}

void LogEventFailure(uint32_t cid, uint32_t code, uint32_t status) {
    if (status != 0) QAV_Log(cid, code, "QAV_EventLog proc fail. uiRet = %d \n", status);
}

// With the patch log level above 1 a patch record also goes to the dialog hook, or without one to
// the patch log.
template <typename... Values>
void ShowPatchRecord(uint32_t cid, uint32_t dialogCode, const char *format, Values... values) {
    if (g_uiPatchLogLevel <= 1) return;
    if (g_pfPatchDialogFunc != nullptr)
        (void)PAT_CallDialogFunc(cid, dialogCode, format, values...);
    else
        PAT_LogToFile(0, qav::kLogNotice, 1, format, values...);
}

// A trap of the common shape: a fixed argument count (else `countText`), the arguments read in
// order, a missing text refused with `paramText`, a detail line, the component id, one event
// record of the values and its failure line, then anything the trap sends besides.
struct TrapRow {
    uint32_t code;
    // One letter per argument: 'd' signed, 'u' unsigned, 's' a text that must be present (the
    // record's "%d", "%u", "%s"), 'v' the virtual-system id the record is sent under.
    const char *letters;
    const char *countText;
    const char *paramText = "";
    const char *eventFormat;
    bool baseComponent = false; // the component id of this board's location instead of the ECM's
    void (*detail)(uint32_t code, const QAV_EVENT_VALUE *values) = nullptr;
    void (*after)(uint32_t cid, const QAV_EVENT_VALUE *values) = nullptr;
};

int RaiseTrap(lua_State *state, const TrapRow &trap) {
    auto count = static_cast<int32_t>(std::char_traits<char>::length(trap.letters));
    if (qav::ArgCount(state) != count) return RefuseCount(state, trap.code, trap.countText);
    QAV_EVENT_VALUE values[kMaxTrapArgs + 1] = {};
    uint32_t valueCount = 0;
    uint32_t vsId = 0;
    bool textsPresent = true;
    for (int32_t i = 0; i < count; ++i) {
        const int32_t index = i + 1;
        switch (trap.letters[i]) {
        case 'd':
            values[valueCount++] = qav_event_values::Of(SYSDT_SPTI_ToInt(state, index));
            break;
        case 'u':
            values[valueCount++] = qav_event_values::Of(SYSDT_SPTI_ToUInt(state, index));
            break;
        case 's':
            values[valueCount] = qav_event_values::Of(SYSDT_SPTI_ToString(state, index));
            textsPresent = textsPresent && values[valueCount++].v.s != nullptr;
            break;
        default: // 'v'
            vsId = SYSDT_SPTI_ToUInt(state, index);
            break;
        }
    }
    if (!textsPresent) {
        QAV_Log(0, trap.code, "%s", trap.paramText);
        return Refuse(state);
    }
    if (trap.detail != nullptr) trap.detail(trap.code, values);
    uint32_t cid = 0;
    uint32_t status = 0;
    if (trap.baseComponent) {
        status = BaseComponentCid(trap.code, &cid);
        if (status != 0) return qav::ReturnUInt(state, status);
    } else if (!EcmCid(trap.code, &cid, &status)) {
        return qav::ReturnUInt(state, status);
    }
    const bool underVs = std::strchr(trap.letters, 'v') != nullptr;
    status = QAV_EventLogValues(underVs ? QAV_EVENT_CALL_VS : QAV_EVENT_CALL_LOG, cid, vsId, trap.code,
                                trap.eventFormat, values, valueCount);
    LogEventFailure(cid, trap.code, status);
    if (trap.after != nullptr) trap.after(cid, values);
    return qav::ReturnUInt(state, status);
}

// The two flash synchronisation traps differ only in their code and texts.
constexpr TrapRow FlashSyncTrap(uint32_t code, const char *countText, const char *paramText) {
    return {.code = code,
            .letters = "dssv",
            .countText = countText,
            .paramText = paramText,
            .eventFormat = "%d%s%s",
            .detail = [](uint32_t trapCode, const QAV_EVENT_VALUE *v) {
                QAV_Log(0, trapCode, "pcSrcFile = %s  pcDstFile = %s.\n", v[1].v.s, v[2].v.s);
            }};
}

// The texts name the function that writes them; the sum-upgrade trap's carry another trap's name
// and are its fixed texts.
constexpr TrapRow kFlashSyncSuccessTrap =
    FlashSyncTrap(kFlashSyncSuccess, "QAV_TRAP_FlhSyncSuccess proc fail. para num = %d\n",
                  "QAV_TRAP_FlhSyncSuccess proc fail. get para failed.\n");
constexpr TrapRow kFlashSyncFailTrap =
    FlashSyncTrap(kFlashSyncFail, "QAV_TRAP_FlhSyncFail proc fail. para num = %d\n",
                  "QAV_TRAP_FlhSyncFail proc fail. get para failed.\n");
constexpr TrapRow kPatchErrorTrap{
    .code = kPatchError,
    .letters = "uuuds",
    .countText = "QAV_TRAP_PatchError proc fail. para num = %d\n",
    .paramText = "QAV_TRAP_PatchError proc fail. get para failed.\n",
    .eventFormat = "%u%u%u%d%s",
    .detail =
        [](uint32_t code, const QAV_EVENT_VALUE *v) {
            QAV_Log(0, code,
                    "uiErrIndex = %u uiSltIndex = %u  uiPkgIndex = %u  iErrCode = %d  pcPkgName = %s.\n",
                    v[0].v.u, v[1].v.u, v[2].v.u, v[3].v.i, v[4].v.s);
        },
    .after =
        [](uint32_t cid, const QAV_EVENT_VALUE *v) {
            ShowPatchRecord(cid, kPatchErrorDialog, "%u%u%u%d%s", v[0].v.u, v[1].v.u, v[2].v.u, v[3].v.i,
                            v[4].v.s);
        }};
constexpr TrapRow kSumUpgradeSuccessTrap{
    .code = kSumUpgradeFirst,
    .letters = "ds",
    .countText = "QAV_TRAP_SlaveSwitchFail proc fail. para num = %d\n",
    .paramText = "QAV_TRAP_SlaveSwitchFail proc fail. get para failed\n",
    .eventFormat = "%d%s",
    .detail = [](uint32_t code,
                 const QAV_EVENT_VALUE *v) { QAV_Log(0, code, "pcChassisNum = %s\n", v[1].v.s); },
    .after =
        [](uint32_t cid, const QAV_EVENT_VALUE *v) {
            // The second record goes out whatever became of the first.
            uint32_t second = QAV_EventLogValues(QAV_EVENT_CALL_LOG, cid, 0, kSumUpgradeSecond, "%d%s", v, 2);
            if (second != 0)
                QAV_Log(cid, kSumUpgradeFirst, "QAV_EventLog proc fail. uiRetLog = %d \n", second);
        }};
// No type check: what is not a number reads as 0.
constexpr TrapRow kSysIssuTrap{.code = kSysIssu,
                               .letters = "dd",
                               .countText = "QAV_TRAP_SysIssu proc fail. para num = %d\n",
                               .eventFormat = "%d%d",
                               .detail = [](uint32_t code, const QAV_EVENT_VALUE *v) {
                                   QAV_Log(0, code, "iIssuState = %d, iIssuCheck = %d\n", v[0].v.i, v[1].v.i);
                               }};
constexpr TrapRow kSysImageErrorTrap{.code = kSysImageError,
                                     .letters = "dsss",
                                     .countText = "QAV_TRAP_SysImageError proc fail. para num = %d\n",
                                     .paramText = "QAV_TRAP_SysImageError proc fail. get para failed\n",
                                     .eventFormat = "%d%s%s%s"};
constexpr TrapRow kSlaveSwitchFailTrap{.code = kSlaveSwitchFail,
                                       .letters = "ds",
                                       .countText = "QAV_TRAP_SlaveSwitchFail proc fail. para num = %d\n",
                                       .paramText = "QAV_TRAP_SlaveSwitchFail proc fail. get para failed.\n",
                                       .eventFormat = "%d%s",
                                       .baseComponent = true,
                                       .detail = [](uint32_t code, const QAV_EVENT_VALUE *v) {
                                           QAV_Log(0, code, "pcChassisNum = %s.\n", v[1].v.s);
                                       }};

// RaiseTrap reads a row's values into an array of kMaxTrapArgs.
constexpr bool ValuesFit(const TrapRow &row) {
    size_t values = 0;
    for (const char *letter = row.letters; *letter != '\0'; ++letter)
        values += *letter != 'v' ? 1 : 0;
    return values <= kMaxTrapArgs;
}
static_assert(ValuesFit(kFlashSyncSuccessTrap) && ValuesFit(kFlashSyncFailTrap) &&
              ValuesFit(kPatchErrorTrap) && ValuesFit(kSumUpgradeSuccessTrap) && ValuesFit(kSysIssuTrap) &&
              ValuesFit(kSysImageErrorTrap) && ValuesFit(kSlaveSwitchFailTrap));

} // namespace

#define QAV_TRAP_ENTRY(function, row)                                                                        \
    QAV_ENTRY_FUNCTION function(lua_State *state) {                                                          \
        return RaiseTrap(state, row);                                                                        \
    }
QAV_TRAP_ENTRY(QAV_TRAP_FlhSyncSuccess, kFlashSyncSuccessTrap)
QAV_TRAP_ENTRY(QAV_TRAP_FlhSyncFail, kFlashSyncFailTrap)
QAV_TRAP_ENTRY(QAV_TRAP_PatchError, kPatchErrorTrap)
QAV_TRAP_ENTRY(QAV_TRAP_SumUpgradeSuccess, kSumUpgradeSuccessTrap)
QAV_TRAP_ENTRY(QAV_TRAP_SysIssu, kSysIssuTrap)
QAV_TRAP_ENTRY(QAV_TRAP_SysImageError, kSysImageErrorTrap)
QAV_TRAP_ENTRY(QAV_TRAP_SlaveSwitchFail, kSlaveSwitchFailTrap)
#undef QAV_TRAP_ENTRY

QAV_ENTRY_FUNCTION QAV_PAT_EventLog(lua_State *state) {
    int32_t count = qav::ArgCount(state);
    if (count != 3) {
        PAT_LogToFile(0, qav::kLogFailure, 1, "QAV_PAT_EventLog proc fail. paramete number = %d\n", count);
        return Refuse(state);
    }
    const char *version = SYSDT_SPTI_ToString(state, 1);
    if (version == nullptr) {
        PAT_LogToFile(0, qav::kLogFailure, 1, "QAV_PAT_EventLog proc fail. pcVersion is NULL");
        return Refuse(state);
    }
    char display[128] = {};
    errno_t copied = strcpy_s(display, sizeof display, version);
    if (copied != EOK) {
        PAT_LogToFile(0, qav::kLogFailure, 1, "QAV_PAT_EventLog strcpy failed, iRet=%d.", copied);
        return Refuse(state);
    }
    (void)PAT_WrapPkgModifyPatVer(version, display, sizeof display);
    int32_t type = SYSDT_SPTI_ToInt(state, 2);
    int32_t patchState = SYSDT_SPTI_ToInt(state, 3);
    PAT_LogToFile(0, qav::kLogDetail, 1, "pcVersion = %s  iPatchType = %d  iPatchState = %d\n", display, type,
                  patchState);
    uint32_t cid = 0;
    uint32_t status = QAV_GetEcmCid(&cid);
    if (status != 0) {
        PAT_LogToFile(0, qav::kLogFailure, 1, "QAV_GetEcmCid proc fail. Return code = %d \n", status);
        return qav::ReturnUInt(state, status);
    }
    // Every patch state record leads with the constants 128 and 1.
    status = QAV_EventLog(cid, kPatchState, "%d%u%s%d%d", 128, 1u, static_cast<const char *>(display), type,
                          patchState);
    if (status != 0)
        PAT_LogToFile(0, qav::kLogFailure, 1, "QAV_EventLog proc fail. Return code = %d \n", status);
    ShowPatchRecord(cid, kPatchStateDialog, "%u%s%d%d", 1u, version, type, patchState);
    return qav::ReturnUInt(state, status);
}

QAV_ENTRY_FUNCTION QAV_TRAP_ClockChange(lua_State *state) {
    if (qav::ArgCount(state) != 1)
        return RefuseCount(state, kClockChange, "QAV_TRAP_ClockChange proc fail. para num = %d\n");
    uint32_t length = 0;
    const auto *packed = reinterpret_cast<const uint8_t *>(
        qav::ValueIs(state, 1, 's') ? SYSDT_SPTI_ToLString(state, 1, &length) : nullptr);
    // The packed time is 7 bytes; a shorter string is refused rather than read beyond its end.
    if (packed == nullptr || length < 7) {
        QAV_Log(0, kClockChange, "QAV_TRAP_ClockChange proc fail. get para failed.\n");
        return Refuse(state);
    }
    SYS_TIME time{};
    uint32_t extra = 0;
    uint32_t status = ZAK_Local_SystimeGet(&time, &extra);
    if (status != 0) {
        QAV_Log(0, kClockChange, "ZAK_Local_SystimeGet proc fail.  uiRet = %d \n", status);
        return qav::ReturnUInt(state, status);
    }
    // Week and millSec stay those of the current local time.
    time.year = static_cast<uint16_t>((packed[0] << 8) | packed[1]);
    time.month = packed[2];
    time.date = packed[3];
    time.hour = packed[4];
    time.minute = packed[5];
    time.second = packed[6];
    uint32_t cid = 0;
    if (!EcmCid(kClockChange, &cid, &status)) return qav::ReturnUInt(state, status);
    status = ZAK_SendClockChangeTrap(cid, &time);
    if (status != 0) QAV_Log(cid, kClockChange, "ZAK_SendClockChangeTrap proc fail. uiRet = %d \n", status);
    return qav::ReturnUInt(state, status);
}

QAV_ENTRY_FUNCTION QAV_TRAP_UTCClockChange(lua_State *state) {
    if (qav::ArgCount(state) != 2) {
        QAV_Log(0, kUtcClockChangeText, "SYSDT_SPTI_GetTop get para num error\n");
        return qav::ReturnUInt(state, qav::kInvalidCall);
    }
    if (!qav::ArgsMatch(state, "tt")) {
        QAV_Log(0, kUtcClockChangeText, "SYSDT_SPTI_GetTop get para type error\n");
        return qav::ReturnUInt(state, qav::kInvalidCall);
    }
    // A missing key leaves zeros; the readers' results are not checked.
    SYS_TIME oldTime{};
    SYS_TIME newTime{};
    (void)QAV_GetTimeValueFromStack(state, 1, &oldTime);
    (void)QAV_GetTimeValueFromStack(state, 2, &newTime);
    uint32_t cid = 0;
    uint32_t status = 0;
    if (!EcmCid(kUtcClockChangeText, &cid, &status)) return qav::ReturnUInt(state, status);
    char text[32] = {};
    (void)snprintf_s(text, sizeof text, sizeof text - 1, "%04d-%02d-%02d,%02d:%02d:%02d", newTime.year,
                     newTime.month, newTime.date, newTime.hour, newTime.minute, newTime.second);
    status = QAV_EventLogVs(cid, 0xFFFFFFFFu, kUtcClockChangeText, "%s", static_cast<const char *>(text));
    if (status == 0)
        status =
            QAV_EventLogVs(cid, 0xFFFFFFFFu, kUtcClockChangeRecords, "%_T_12%_T_12",
                           static_cast<const SYS_TIME *>(&oldTime), static_cast<const SYS_TIME *>(&newTime));
    if (status != 0)
        QAV_Log(cid, kUtcClockChangeText, "QAV_TRAP_UTCClockChange failed. uiRet = %d \n", status);
    return qav::ReturnUInt(state, status);
}

QAV_ENTRY_FUNCTION QAV_TRAP_SysReload(lua_State *state) {
    if (qav::ArgCount(state) != 9)
        return RefuseCount(state, kSysReload, "QAV_TRAP_SysReload proc fail. para num = %d\n");
    int32_t index = SYSDT_SPTI_ToInt(state, 1);
    int32_t image = SYSDT_SPTI_ToInt(state, 2);
    int32_t config = SYSDT_SPTI_ToInt(state, 3);
    const char *reason = SYSDT_SPTI_ToString(state, 4);
    if (reason == nullptr) {
        QAV_Log(0, kSysReload, "QAV_TRAP_SysReload proc fail. pcReloadReason is NULL.\n");
        return qav::ReturnUInt(state, qav::kInvalidCall);
    }
    if (SYSDT_SPTI_IsTable(state, 5) == 0) {
        QAV_Log(0, kSysReload, "QAV_TRAP_SysReload get para 5 ReloadTime type error\n");
        return qav::ReturnUInt(state, qav::kInvalidCall);
    }
    int32_t action = SYSDT_SPTI_ToInt(state, 6);
    int32_t paf = SYSDT_SPTI_ToInt(state, 7);
    int32_t license = SYSDT_SPTI_ToInt(state, 8);
    int32_t patch = SYSDT_SPTI_ToInt(state, 9);
    SYS_TIME when{};
    (void)QAV_GetTimeValueFromStack(state, 5, &when);
    QAV_Log(
        0, kSysReload,
        "iReloadIndex = %d, iReloadImage = %d, iReloadCfg = %d, pcReloadReason = %s, pcReloadTime = %d-%d-%d "
        "%d:%d:%d, iReloadAction = %d, iReloadPaf = %d, iReloadLicense = %d, iReloadPatch = %d\n",
        index, image, config, reason, when.year, when.month, when.date, when.hour, when.minute, when.second,
        action, paf, license, patch);
    uint32_t cid = 0;
    uint32_t status = 0;
    if (!EcmCid(kSysReload, &cid, &status)) return qav::ReturnUInt(state, status);
    status = QAV_EventLog(cid, kSysReload, "%d%d%d%s%_T_12%d%d%d%d%d", index, image, config, reason,
                          static_cast<const SYS_TIME *>(&when), action, paf, license, patch, 0);
    LogEventFailure(cid, kSysReload, status);
    return qav::ReturnUInt(state, status);
}

QAV_ENTRY_FUNCTION QAV_TRAP_SlaveSwitchSuccess(lua_State *state) {
    if (qav::ArgCount(state) != 4)
        return RefuseCount(state, kSlaveSwitchSuccess,
                           "QAV_TRAP_SlaveSwitchSuccess proc fail. para num = %d\n");
    int32_t chassisId = SYSDT_SPTI_ToInt(state, 1);
    const char *chassisNum = SYSDT_SPTI_ToString(state, 2);
    const char *source = SYSDT_SPTI_ToString(state, 3);
    const char *destination = SYSDT_SPTI_ToString(state, 4);

    // A second success record for the local chassis within the same or the next second is dropped.
    bool localTimeRead = false;
    uint32_t seconds = 0;
    uint32_t microseconds = 0;
    if (LOC_GetLocationChassis() == static_cast<uint32_t>(chassisId) &&
        ZAK_GetSystemTime(&seconds, &microseconds) == 0) {
        localTimeRead = true;
        if (g_iSlaSwiSuccessTrapSecond != 0 &&
            static_cast<int64_t>(g_iSlaSwiSuccessTrapSecond) + 1 >= static_cast<int64_t>(seconds)) {
            QAV_STLOG(qav::kDiagModule, "Slave Switch Trap is filter, for chassisId(%d) sec(%d) uSec(%d).",
                      chassisId, static_cast<int32_t>(seconds), static_cast<int32_t>(microseconds));
            return Refuse(state);
        }
    }
    if (chassisNum == nullptr || source == nullptr || destination == nullptr) {
        QAV_Log(0, kSlaveSwitchSuccess, "QAV_TRAP_SlaveSwitchSuccess proc fail. get para failed.\n");
        return Refuse(state);
    }
    QAV_STLOG(qav::kDiagModule, "iSwitchIndex = %d.", chassisId);
    QAV_STLOG(qav::kDiagModule, "pcChassisNum = %s.", chassisNum);
    QAV_STLOG(qav::kDiagModule, "pcShowNameSrc = %s.", source);
    QAV_STLOG(qav::kDiagModule, "pcShowNameDst = %s.", destination);
    QAV_Log(0, kSlaveSwitchSuccess, "pcChassisNum = %s.\n", chassisNum);
    uint32_t cid = 0;
    uint32_t status = BaseComponentCid(kSlaveSwitchSuccess, &cid);
    if (status != 0) return qav::ReturnUInt(state, status);
    status = QAV_EventLog(cid, kSlaveSwitchSuccess, "%d%s%s%s", chassisId, chassisNum, source, destination);
    LogEventFailure(cid, kSlaveSwitchSuccess, status);
    if (localTimeRead) g_iSlaSwiSuccessTrapSecond = static_cast<int32_t>(seconds);
    QAV_STLOG(qav::kDiagModule, "Chassis %s has been slave switchover from %s to %s.", chassisNum, source,
              destination);
    return qav::ReturnUInt(state, status);
}

QAV_ENTRY_FUNCTION QAV_DBG_EventLog(lua_State *state) {
    const char *text = qav::ArgsMatch(state, "s") ? SYSDT_SPTI_ToString(state, 1) : nullptr;
    if (text == nullptr) return Refuse(state);
    uint32_t cid = 0;
    uint32_t status = QAV_GetEcmCid(&cid);
    if (status != 0) return qav::ReturnUInt(state, status);
    // Each full piece goes out on its own under component id 0; the piece is copied out rather
    // than ended by a temporary NUL in the script's string, which gives the same records.
    size_t rest = strlen(text);
    char piece[kDebugPiece + 1];
    while (rest >= kDebugPiece) {
        (void)memcpy_s(piece, sizeof piece, text, kDebugPiece);
        piece[kDebugPiece] = '\0';
        (void)QAV_EventLog(0, kDebugPieceCode, "%s", static_cast<const char *>(piece));
        text += kDebugPiece;
        rest -= kDebugPiece;
    }
    return qav::ReturnUInt(state, QAV_EventLog(cid, kDebugLast, "%s", text));
}

// Trap and event-log script functions: each checks its arguments, writes its base-log lines under
// the trap's info code, finds the component id and hands one record to the event log.
#include <cstring>

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

constexpr uint32_t kTrapFailed = 5005;
constexpr uint32_t kStatusTraceModule = 0x811101F;
constexpr size_t kDebugPiece = 5000;

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

// Checks the count; logs "<name> proc fail. para num = %d\n" when it is wrong.
bool CountIs(lua_State *state, int32_t expected, uint32_t code, const char *countMessage) {
    int32_t count = SYSDT_SPTI_GetTop(state);
    if (count == expected) return true;
    QAV_Log(0, code, countMessage, count);
    return false;
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
        (void)ZAK_Free_F(list, qav::kSourceTag, __LINE__);
    }
    return 0;
}

void LogEventFailure(uint32_t cid, uint32_t code, uint32_t status) {
    if (status != 0) QAV_Log(cid, code, "QAV_EventLog proc fail. uiRet = %d \n", status);
}

struct FlashSyncTrap {
    uint32_t code;
    const char *countMessage;
    const char *paramMessage;
};

int FlashSync(lua_State *state, const FlashSyncTrap &trap) {
    if (!CountIs(state, 4, trap.code, trap.countMessage)) return qav::ReturnUInt(state, kTrapFailed);
    int32_t value = SYSDT_SPTI_ToInt(state, 1);
    const char *source = SYSDT_SPTI_ToString(state, 2);
    const char *destination = SYSDT_SPTI_ToString(state, 3);
    uint32_t vsId = SYSDT_SPTI_ToUInt(state, 4);
    if (source == nullptr || destination == nullptr) {
        QAV_Log(0, trap.code, "%s", trap.paramMessage);
        return qav::ReturnUInt(state, kTrapFailed);
    }
    QAV_Log(0, trap.code, "pcSrcFile = %s  pcDstFile = %s.\n", source, destination);
    uint32_t cid = 0;
    uint32_t status = 0;
    if (!EcmCid(trap.code, &cid, &status)) return qav::ReturnUInt(state, status);
    status = QAV_EventLogVs(cid, vsId, trap.code, "%d%s%s", value, source, destination);
    LogEventFailure(cid, trap.code, status);
    return qav::ReturnUInt(state, status);
}

} // namespace

QAV_ENTRY_FUNCTION QAV_TRAP_FlhSyncSuccess(lua_State *state) {
    return FlashSync(state, {kFlashSyncSuccess, "QAV_TRAP_FlhSyncSuccess proc fail. para num = %d\n",
                             "QAV_TRAP_FlhSyncSuccess proc fail. get para failed.\n"});
}

QAV_ENTRY_FUNCTION QAV_TRAP_FlhSyncFail(lua_State *state) {
    return FlashSync(state, {kFlashSyncFail, "QAV_TRAP_FlhSyncFail proc fail. para num = %d\n",
                             "QAV_TRAP_FlhSyncFail proc fail. get para failed.\n"});
}

QAV_ENTRY_FUNCTION QAV_TRAP_PatchError(lua_State *state) {
    if (!CountIs(state, 5, kPatchError, "QAV_TRAP_PatchError proc fail. para num = %d\n"))
        return qav::ReturnUInt(state, kTrapFailed);
    uint32_t errIndex = SYSDT_SPTI_ToUInt(state, 1);
    uint32_t slotIndex = SYSDT_SPTI_ToUInt(state, 2);
    uint32_t pkgIndex = SYSDT_SPTI_ToUInt(state, 3);
    int32_t errCode = SYSDT_SPTI_ToInt(state, 4);
    const char *pkgName = SYSDT_SPTI_ToString(state, 5);
    if (pkgName == nullptr) {
        QAV_Log(0, kPatchError, "QAV_TRAP_PatchError proc fail. get para failed.\n");
        return qav::ReturnUInt(state, kTrapFailed);
    }
    QAV_Log(0, kPatchError,
            "uiErrIndex = %u uiSltIndex = %u  uiPkgIndex = %u  iErrCode = %d  pcPkgName = %s.\n", errIndex,
            slotIndex, pkgIndex, errCode, pkgName);
    uint32_t cid = 0;
    uint32_t status = 0;
    if (!EcmCid(kPatchError, &cid, &status)) return qav::ReturnUInt(state, status);
    status = QAV_EventLog(cid, kPatchError, "%u%u%u%d%s", errIndex, slotIndex, pkgIndex, errCode, pkgName);
    LogEventFailure(cid, kPatchError, status);
    if (g_uiPatchLogLevel > 1) {
        if (g_pfPatchDialogFunc != nullptr)
            (void)PAT_CallDialogFunc(cid, kPatchErrorDialog, "%u%u%u%d%s", errIndex, slotIndex, pkgIndex,
                                     errCode, pkgName);
        else
            PAT_LogToFile(0, 2, 1, "%u%u%u%d%s", errIndex, slotIndex, pkgIndex, errCode, pkgName);
    }
    return qav::ReturnUInt(state, status);
}

QAV_ENTRY_FUNCTION QAV_PAT_EventLog(lua_State *state) {
    int32_t count = SYSDT_SPTI_GetTop(state);
    if (count != 3) {
        PAT_LogToFile(0, 3, 1, "QAV_PAT_EventLog proc fail. paramete number = %d\n", count);
        return qav::ReturnUInt(state, kTrapFailed);
    }
    const char *version = SYSDT_SPTI_ToString(state, 1);
    if (version == nullptr) {
        PAT_LogToFile(0, 3, 1, "QAV_PAT_EventLog proc fail. pcVersion is NULL");
        return qav::ReturnUInt(state, kTrapFailed);
    }
    char display[128] = {};
    errno_t copied = strcpy_s(display, sizeof display, version);
    if (copied != EOK) {
        PAT_LogToFile(0, 3, 1, "QAV_PAT_EventLog strcpy failed, iRet=%d.", copied);
        return qav::ReturnUInt(state, kTrapFailed);
    }
    (void)PAT_WrapPkgModifyPatVer(version, display, sizeof display);
    int32_t type = SYSDT_SPTI_ToInt(state, 2);
    int32_t patchState = SYSDT_SPTI_ToInt(state, 3);
    PAT_LogToFile(0, 5, 1, "pcVersion = %s  iPatchType = %d  iPatchState = %d\n", display, type, patchState);
    uint32_t cid = 0;
    uint32_t status = QAV_GetEcmCid(&cid);
    if (status != 0) {
        PAT_LogToFile(0, 3, 1, "QAV_GetEcmCid proc fail. Return code = %d \n", status);
        return qav::ReturnUInt(state, status);
    }
    // Every patch state record leads with the constants 128 and 1.
    status = QAV_EventLog(cid, kPatchState, "%d%u%s%d%d", 128, 1u, static_cast<const char *>(display), type,
                          patchState);
    if (status != 0) PAT_LogToFile(0, 3, 1, "QAV_EventLog proc fail. Return code = %d \n", status);
    if (g_uiPatchLogLevel > 1) {
        if (g_pfPatchDialogFunc != nullptr)
            (void)PAT_CallDialogFunc(cid, kPatchStateDialog, "%u%s%d%d", 1u, version, type, patchState);
        else
            PAT_LogToFile(0, 2, 1, "%u%s%d%d", 1u, version, type, patchState);
    }
    return qav::ReturnUInt(state, status);
}

QAV_ENTRY_FUNCTION QAV_TRAP_SumUpgradeSuccess(lua_State *state) {
    // The count and parameter messages carry another trap's name; they are this trap's fixed texts.
    if (!CountIs(state, 2, kSumUpgradeFirst, "QAV_TRAP_SlaveSwitchFail proc fail. para num = %d\n"))
        return qav::ReturnUInt(state, kTrapFailed);
    int32_t value = SYSDT_SPTI_ToInt(state, 1);
    const char *chassisNum = SYSDT_SPTI_ToString(state, 2);
    if (chassisNum == nullptr) {
        QAV_Log(0, kSumUpgradeFirst, "QAV_TRAP_SlaveSwitchFail proc fail. get para failed\n");
        return qav::ReturnUInt(state, kTrapFailed);
    }
    QAV_Log(0, kSumUpgradeFirst, "pcChassisNum = %s\n", chassisNum);
    uint32_t cid = 0;
    uint32_t status = 0;
    if (!EcmCid(kSumUpgradeFirst, &cid, &status)) return qav::ReturnUInt(state, status);
    status = QAV_EventLog(cid, kSumUpgradeFirst, "%d%s", value, chassisNum);
    LogEventFailure(cid, kSumUpgradeFirst, status);
    uint32_t second = QAV_EventLog(cid, kSumUpgradeSecond, "%d%s", value, chassisNum);
    if (second != 0) QAV_Log(cid, kSumUpgradeFirst, "QAV_EventLog proc fail. uiRetLog = %d \n", second);
    return qav::ReturnUInt(state, status);
}

QAV_ENTRY_FUNCTION QAV_TRAP_SysIssu(lua_State *state) {
    if (!CountIs(state, 2, kSysIssu, "QAV_TRAP_SysIssu proc fail. para num = %d\n"))
        return qav::ReturnUInt(state, kTrapFailed);
    // No type check: what is not a number reads as 0.
    int32_t issuState = SYSDT_SPTI_ToInt(state, 1);
    int32_t issuCheck = SYSDT_SPTI_ToInt(state, 2);
    QAV_Log(0, kSysIssu, "iIssuState = %d, iIssuCheck = %d\n", issuState, issuCheck);
    uint32_t cid = 0;
    uint32_t status = 0;
    if (!EcmCid(kSysIssu, &cid, &status)) return qav::ReturnUInt(state, status);
    status = QAV_EventLog(cid, kSysIssu, "%d%d", issuState, issuCheck);
    LogEventFailure(cid, kSysIssu, status);
    return qav::ReturnUInt(state, status);
}

QAV_ENTRY_FUNCTION QAV_TRAP_SysImageError(lua_State *state) {
    if (!CountIs(state, 4, kSysImageError, "QAV_TRAP_SysImageError proc fail. para num = %d\n"))
        return qav::ReturnUInt(state, kTrapFailed);
    int32_t value = SYSDT_SPTI_ToInt(state, 1);
    const char *first = SYSDT_SPTI_ToString(state, 2);
    const char *second = SYSDT_SPTI_ToString(state, 3);
    const char *third = SYSDT_SPTI_ToString(state, 4);
    if (first == nullptr || second == nullptr || third == nullptr) {
        QAV_Log(0, kSysImageError, "QAV_TRAP_SysImageError proc fail. get para failed\n");
        return qav::ReturnUInt(state, kTrapFailed);
    }
    uint32_t cid = 0;
    uint32_t status = 0;
    if (!EcmCid(kSysImageError, &cid, &status)) return qav::ReturnUInt(state, status);
    status = QAV_EventLog(cid, kSysImageError, "%d%s%s%s", value, first, second, third);
    LogEventFailure(cid, kSysImageError, status);
    return qav::ReturnUInt(state, status);
}

QAV_ENTRY_FUNCTION QAV_TRAP_ClockChange(lua_State *state) {
    if (!CountIs(state, 1, kClockChange, "QAV_TRAP_ClockChange proc fail. para num = %d\n"))
        return qav::ReturnUInt(state, kTrapFailed);
    uint32_t length = 0;
    const auto *packed = reinterpret_cast<const uint8_t *>(
        SYSDT_SPTI_IsString(state, 1) != 0 ? SYSDT_SPTI_ToLString(state, 1, &length) : nullptr);
    // The packed time is 7 bytes; a shorter string is refused rather than read beyond its end.
    if (packed == nullptr || length < 7) {
        QAV_Log(0, kClockChange, "QAV_TRAP_ClockChange proc fail. get para failed.\n");
        return qav::ReturnUInt(state, kTrapFailed);
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
    if (!qav::ArgCountIs(state, 2)) {
        QAV_Log(0, kUtcClockChangeText, "SYSDT_SPTI_GetTop get para num error\n");
        return qav::ReturnUInt(state, qav::kInvalidCall);
    }
    if (SYSDT_SPTI_IsTable(state, 1) == 0 || SYSDT_SPTI_IsTable(state, 2) == 0) {
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
    if (!CountIs(state, 9, kSysReload, "QAV_TRAP_SysReload proc fail. para num = %d\n"))
        return qav::ReturnUInt(state, kTrapFailed);
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
    if (!CountIs(state, 4, kSlaveSwitchSuccess, "QAV_TRAP_SlaveSwitchSuccess proc fail. para num = %d\n"))
        return qav::ReturnUInt(state, kTrapFailed);
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
            QAV_STLOG(kStatusTraceModule, "Slave Switch Trap is filter, for chassisId(%d) sec(%d) uSec(%d).",
                      chassisId, static_cast<int32_t>(seconds), static_cast<int32_t>(microseconds));
            return qav::ReturnUInt(state, kTrapFailed);
        }
    }
    if (chassisNum == nullptr || source == nullptr || destination == nullptr) {
        QAV_Log(0, kSlaveSwitchSuccess, "QAV_TRAP_SlaveSwitchSuccess proc fail. get para failed.\n");
        return qav::ReturnUInt(state, kTrapFailed);
    }
    QAV_STLOG(kStatusTraceModule, "iSwitchIndex = %d.", chassisId);
    QAV_STLOG(kStatusTraceModule, "pcChassisNum = %s.", chassisNum);
    QAV_STLOG(kStatusTraceModule, "pcShowNameSrc = %s.", source);
    QAV_STLOG(kStatusTraceModule, "pcShowNameDst = %s.", destination);
    QAV_Log(0, kSlaveSwitchSuccess, "pcChassisNum = %s.\n", chassisNum);
    uint32_t cid = 0;
    uint32_t status = BaseComponentCid(kSlaveSwitchSuccess, &cid);
    if (status != 0) return qav::ReturnUInt(state, status);
    status = QAV_EventLog(cid, kSlaveSwitchSuccess, "%d%s%s%s", chassisId, chassisNum, source, destination);
    LogEventFailure(cid, kSlaveSwitchSuccess, status);
    if (localTimeRead) g_iSlaSwiSuccessTrapSecond = static_cast<int32_t>(seconds);
    QAV_STLOG(kStatusTraceModule, "Chassis %s has been slave switchover from %s to %s.", chassisNum, source,
              destination);
    return qav::ReturnUInt(state, status);
}

QAV_ENTRY_FUNCTION QAV_TRAP_SlaveSwitchFail(lua_State *state) {
    if (!CountIs(state, 2, kSlaveSwitchFail, "QAV_TRAP_SlaveSwitchFail proc fail. para num = %d\n"))
        return qav::ReturnUInt(state, kTrapFailed);
    int32_t index = SYSDT_SPTI_ToInt(state, 1);
    const char *chassisNum = SYSDT_SPTI_ToString(state, 2);
    if (chassisNum == nullptr) {
        QAV_Log(0, kSlaveSwitchFail, "QAV_TRAP_SlaveSwitchFail proc fail. get para failed.\n");
        return qav::ReturnUInt(state, kTrapFailed);
    }
    QAV_Log(0, kSlaveSwitchFail, "pcChassisNum = %s.\n", chassisNum);
    uint32_t cid = 0;
    uint32_t status = BaseComponentCid(kSlaveSwitchFail, &cid);
    if (status != 0) return qav::ReturnUInt(state, status);
    status = QAV_EventLog(cid, kSlaveSwitchFail, "%d%s", index, chassisNum);
    LogEventFailure(cid, kSlaveSwitchFail, status);
    return qav::ReturnUInt(state, status);
}

QAV_ENTRY_FUNCTION QAV_DBG_EventLog(lua_State *state) {
    if (!qav::ArgCountIs(state, 1) || SYSDT_SPTI_IsString(state, 1) == 0)
        return qav::ReturnUInt(state, kTrapFailed);
    const char *text = SYSDT_SPTI_ToString(state, 1);
    if (text == nullptr) return qav::ReturnUInt(state, kTrapFailed);
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

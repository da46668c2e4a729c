// Script functions over the device clocks and system time arithmetic.
#include <ctime>

#include "binding/script_frame.h"
#include "os_env.h"
#include "time/time_records.h"
#include "zak_systime.h"

namespace {

// The count failure text most of these functions share (it names another function; the logs
// have always read so).
constexpr const char *kCountText = "QAV_GetEcmCid proc fail SYSDT_SPTI_GetTop. uiRet = %d \n";

using qav::time::kCompareRefused;
using qav::time::kPlatformFailure;

void LogCount(const char *message) {
    QAV_Log(0, qav::kBaseLogCode, message, 1);
}

// Reads the two record tables of the two-time functions; on failure logs the reader's line and
// returns its code.
uint32_t ReadTwoTimes(lua_State *state, SYS_TIME *first, SYS_TIME *second) {
    uint32_t rc = QAV_GetSystimeTable(state, first, 1);
    if (rc == 0) rc = QAV_GetSystimeTable(state, second, 2);
    if (rc != 0)
        QAV_Log(0, qav::kBaseLogCode, "QAV_GetSystimeTable(pstSC, &stFirstSystime, 1). uiRet = %d \n", rc);
    return rc;
}

// The broken-down form of the two POSIX clocks: "year" counts from 2000 (tm_year - 100).
void WritePosixTime(lua_State *state, const struct tm &parts, long microseconds) {
    const struct {
        const char *key;
        uint32_t value;
    } fields[] = {{"year", static_cast<uint32_t>(parts.tm_year - 100)},
                  {"month", static_cast<uint32_t>(parts.tm_mon + 1)},
                  {"day", static_cast<uint32_t>(parts.tm_mday)},
                  {"hour", static_cast<uint32_t>(parts.tm_hour)},
                  {"minute", static_cast<uint32_t>(parts.tm_min)},
                  {"second", static_cast<uint32_t>(parts.tm_sec)},
                  {"uSecond", static_cast<uint32_t>(microseconds)}};
    for (const auto &f : fields) {
        SYSDT_SPTI_PushUInt(state, f.value);
        SYSDT_SPTI_SetField(state, 1, f.key);
    }
}

using BreakDown = struct tm *(*)(const time_t *, struct tm *);

int PosixClock(lua_State *state, const char *countMessage, BreakDown breakDown) {
    if (!qav::ArgsMatch(state, ".")) {
        LogCount(countMessage);
        return qav::ReturnUInt(state, qav::kFailed);
    }
    // gettimeofday as the platform offers it: the wall clock with the device's clock offset.
    struct timespec now {};
    ZAK_OsClockGetTime(CLOCK_REALTIME, &now);
    struct tm parts {};
    time_t seconds = now.tv_sec;
    breakDown(&seconds, &parts);
    WritePosixTime(state, parts, now.tv_nsec / 1000);
    return qav::ReturnUInt(state, qav::kOk);
}

using UptimeCall = uint32_t (*)(uint32_t *, uint32_t *);

int Uptime(lua_State *state, UptimeCall call) {
    uint32_t status = qav::kInvalidCall;
    uint32_t first = 0;
    uint32_t second = 0;
    if (qav::ArgsMatch(state, "")) status = call(&first, &second);
    SYSDT_SPTI_PushUInt(state, status);
    SYSDT_SPTI_PushUInt(state, first);
    SYSDT_SPTI_PushUInt(state, second);
    return 3;
}

} // namespace

extern "C" uint32_t QAV_SPT_SysTimeGet_Chk(lua_State *state) {
    return qav::ArgsMatch(state, "t") ? qav::kOk : qav::kInvalidCall;
}

// The checked variant of the local-time getter: a failed check or platform call is returned as
// the result count with nothing pushed.
QAV_ENTRY_FUNCTION QAV_SPT_DoSysTimeGet(lua_State *state) {
    uint32_t rc = QAV_SPT_SysTimeGet_Chk(state);
    if (rc != 0) return static_cast<int>(rc);
    SYS_TIME record{};
    uint32_t extra = 0;
    rc = ZAK_Local_SystimeGet(&record, &extra);
    if (rc != 0) return static_cast<int>(rc);
    QAV_SPT_LocalSystimeGet(state, &record);
    return qav::ReturnUIntPair(state, rc, extra);
}

QAV_ENTRY_FUNCTION QAV_SPT_SysLocalTimeGet(lua_State *state) {
    // A wrong count returns 0xFFFFFFFF as the result count itself, pushing nothing.
    if (!qav::ArgsMatch(state, ".")) return static_cast<int>(qav::kInvalidCall);
    SYS_TIME record{};
    uint32_t extra = 0;
    uint32_t status = ZAK_Local_SystimeGet(&record, &extra);
    if (status == 0) QAV_SPT_LocalSystimeGet(state, &record);
    return qav::ReturnUIntPair(state, status, extra);
}

QAV_ENTRY_FUNCTION QAV_GetGMTSystime(lua_State *state) {
    int32_t count = qav::ArgCount(state);
    if (count != 1) {
        LogCount("QAV_GetGMTSystime proc fail SYSDT_SPTI_GetTop. uiRet = %d \n");
        return qav::ReturnUInt(state, qav::kFailed);
    }
    SYS_TIME record{};
    uint32_t status = ZAK_GMT_SystimeGet(&record);
    if (status == kPlatformFailure) {
        QAV_Log(0, qav::kBaseLogCode, "QAV_GetGMTSystime proc fail NUK_SystimeRelSecCal. uiRet = %d \n",
                status);
        return qav::ReturnUInt(state, status);
    }
    QAV_SPT_OutPutSystime(state, &record, count);
    return qav::ReturnUInt(state, status);
}

QAV_ENTRY_FUNCTION QAV_SystimeSecToTime(lua_State *state) {
    SYS_TIME record{};
    if (qav::ArgsMatch(state, ".."))
        NUK_SystimeSec2Time(SYSDT_SPTI_ToUInt(state, 1), &record);
    else
        LogCount(kCountText);
    // Written (all zeros after a wrong count) and answered with 0: the result never reports failure.
    QAV_SPT_OutPutSystime(state, &record, 2);
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_GetSystimeToSecond(lua_State *state) {
    uint32_t seconds = 0;
    uint32_t microseconds = 0;
    if (qav::ArgsMatch(state, "")) {
        uint32_t rc = ZAK_GetSystemTime(&seconds, &microseconds);
        if (rc != 0)
            QAV_Log(0, qav::kBaseLogCode,
                    "QAV_GetEcmCid proc fail QAV_GetSystimeDelaySecondCal. uiRet = %d \n", rc);
    } else {
        LogCount(kCountText);
    }
    return qav::ReturnUIntPair(state, seconds, microseconds);
}

QAV_ENTRY_FUNCTION QAV_GetUptimeMillSec(lua_State *state) {
    return Uptime(state, ZAK_GetUptimeMillSec);
}

QAV_ENTRY_FUNCTION QAV_GetUptimeSec(lua_State *state) {
    return Uptime(state, ZAK_GetUptimeSec);
}

// The two time-record arguments of the comparison functions; false with the status to push.
bool ReadTimePair(lua_State *state, const char *countMessage, SYS_TIME *first, SYS_TIME *second,
                  uint32_t *status) {
    if (!qav::ArgsMatch(state, "..")) {
        LogCount(countMessage);
        *status = qav::kFailed;
        return false;
    }
    *status = ReadTwoTimes(state, first, second);
    return *status == 0;
}

QAV_ENTRY_FUNCTION QAV_SystimeRelSecCal(lua_State *state) {
    SYS_TIME first{};
    SYS_TIME second{};
    if (uint32_t status = 0;
        !ReadTimePair(state, "QAV_SystimeRelSecCal proc fail SYSDT_SPTI_GetTop. uiRet = %d \n", &first,
                      &second, &status))
        return qav::ReturnUInt(state, status);
    // The comparison is made twice, as the platform's callers always have.
    (void)NUK_SystimeCompare(&first, &second);
    uint32_t order = NUK_SystimeCompare(&first, &second);
    uint32_t seconds = 0;
    if ((order == NUK_SYSTIME_CMP_EQUAL || order == NUK_SYSTIME_CMP_LATER) &&
        NUK_SystimeRelSecCal(&first, &second, &seconds) != kPlatformFailure)
        return qav::ReturnUInt(state, seconds);
    QAV_Log(0, qav::kBaseLogCode, "QAV_SystimeRelSecCal proc fail NUK_SystimeRelSecCal. uiRet = %d \n", -1);
    return qav::ReturnUInt(state, kCompareRefused);
}

QAV_ENTRY_FUNCTION QAV_SystimeRelDayCal(lua_State *state) {
    SYS_TIME first{};
    SYS_TIME second{};
    if (uint32_t status = 0; !ReadTimePair(state, kCountText, &first, &second, &status))
        return qav::ReturnUInt(state, status);
    uint32_t days = NUK_SystimeRelDayCal(&first, &second);
    if (days > 0xFFFFFFFEu)
        QAV_Log(0, qav::kBaseLogCode, "QAV_GetEcmCid proc fail NUK_SystimeRelDayCal. uiRet = %d \n", days);
    return qav::ReturnUInt(state, days);
}

QAV_ENTRY_FUNCTION QAV_SystimeCompare(lua_State *state) {
    SYS_TIME first{};
    SYS_TIME second{};
    if (uint32_t status = 0; !ReadTimePair(state, kCountText, &first, &second, &status))
        return qav::ReturnUInt(state, status);
    return qav::ReturnUInt(state, NUK_SystimeCompare(&first, &second));
}

QAV_ENTRY_FUNCTION QAV_SystimeAddMilliSeconds(lua_State *state) {
    if (!qav::ArgsMatch(state, "..")) {
        LogCount(kCountText);
        return qav::ReturnUInt(state, qav::kFailed);
    }
    SYS_TIME record{};
    uint32_t rc = QAV_GetSystimeTable(state, &record, 1);
    if (rc != 0) {
        QAV_Log(0, qav::kBaseLogCode, "QAV_GetSystimeTable(pstSC, &stFirstSystime, 1). uiRet = %d \n", rc);
        return qav::ReturnUInt(state, rc);
    }
    rc = NUK_SystimeAdd(&record, SYSDT_SPTI_ToUInt(state, 2));
    if (rc == kPlatformFailure) {
        QAV_Log(0, qav::kBaseLogCode, "QAV_GetEcmCid proc fail NUK_SystimeAdd. uiRet = %d \n", rc);
        return qav::ReturnUInt(state, rc);
    }
    QAV_SPT_OutPutSystime(state, &record, 1);
    return qav::ReturnUInt(state, rc);
}

QAV_ENTRY_FUNCTION QAV_RPM_GetGmTime(lua_State *state) {
    return PosixClock(state, "GetGmTime proc fail SYSDT_SPTI_GetTop. uiRet = %d \n", gmtime_r);
}

QAV_ENTRY_FUNCTION QAV_RPM_GetLocalTime(lua_State *state) {
    return PosixClock(state, "QAV_RPM_GetLocalTime proc fail SYSDT_SPTI_GetTop. uiRet = %d \n", localtime_r);
}

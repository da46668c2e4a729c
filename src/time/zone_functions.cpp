// Script functions converting between local time and GMT under the device's or a given zone and
// daylight-saving rule, installing the device configuration and reading its texts.
#include <cstddef>
#include <cstring>

extern "C" {
#include <lua.h>
}

#include "binding/script_frame.h"
#include "securec.h"
#include "time/time_records.h"
#include "zak_systime.h"

namespace {

constexpr uint32_t kTextSize = 64;

// A plain key: fetched and type-checked; the value stays on the stack for the caller to read at -1.
bool FetchNumber(lua_State *state, int32_t tableIndex, const char *key) {
    SYSDT_SPTI_GetField(state, tableIndex, key);
    return SYSDT_SPTI_IsNumber(state, -1) != 0;
}

bool FetchName(lua_State *state, int32_t tableIndex, const char *key, char (&name)[33], uint32_t *rc) {
    SYSDT_SPTI_GetField(state, tableIndex, key);
    const char *text = SYSDT_SPTI_IsString(state, -1) != 0 ? SYSDT_SPTI_ToString(state, -1) : nullptr;
    if (text == nullptr) {
        *rc = qav::kKeyNotNumber;
        return false;
    }
    if (strcpy_s(name, sizeof name, text) != EOK) {
        *rc = qav::kInvalidCall;
        return false;
    }
    return true;
}

// The rule's 32-bit fields sit at odd offsets of the packed record.
void StoreWord(ZAK_DST_RULE *rule, size_t offset, uint32_t value) {
    std::memcpy(reinterpret_cast<unsigned char *>(rule) + offset, &value, sizeof value);
}

void PushText(lua_State *state, uint32_t status, const char *text) {
    SYSDT_SPTI_PushUInt(state, status);
    SYSDT_SPTI_PushLString(state, text, static_cast<uint32_t>(strnlen(text, kTextSize)));
}

using TextCall = uint32_t (*)(char *, uint32_t);

int ConfigText(lua_State *state, TextCall call) {
    char text[kTextSize] = {};
    if (!qav::ArgsMatch(state, "")) {
        QAV_Log(0, qav::kBaseLogCode, "QAV_GetEcmCid proc fail SYSDT_SPTI_GetTop. uiRet = %d \n", 1);
        PushText(state, 1, text);
        return 2;
    }
    (void)call(text, sizeof text);
    text[sizeof text - 1] = '\0';
    PushText(state, 0, text);
    return 2;
}

} // namespace

extern "C" {

uint32_t QAV_GetTzFromStack(lua_State *state, int32_t tableIndex, ZAK_TIME_ZONE *zone) {
    qav::StackHeight height(state);
    if (!FetchNumber(state, tableIndex, "option")) return qav::kKeyNotNumber;
    zone->uiOption = SYSDT_SPTI_ToUInt(state, -1);
    if (!FetchNumber(state, tableIndex, "lrId")) return qav::kKeyNotNumber;
    zone->uiLrId = SYSDT_SPTI_ToUInt(state, -1);
    uint32_t rc = 0;
    if (!FetchName(state, tableIndex, "timeZoneName", zone->szName, &rc)) return rc;
    SYSDT_SPTI_Pop(state, 3);
    // The offset sub-table's type is not checked: a missing one fails at its first field.
    SYSDT_SPTI_PushString(state, "timeZoneOffset", sizeof "timeZoneOffset");
    SYSDT_SPTI_GetTable(state, tableIndex);
    int32_t offset = SYSDT_SPTI_GetTop(state);
    if (!FetchNumber(state, offset, "minute")) return qav::kKeyNotNumber;
    zone->ucMinute = static_cast<uint8_t>(SYSDT_SPTI_ToUInt(state, -1));
    if (!FetchNumber(state, offset, "hour")) return qav::kKeyNotNumber;
    zone->ucHour = static_cast<uint8_t>(SYSDT_SPTI_ToUInt(state, -1));
    if (!FetchNumber(state, offset, "second")) return qav::kKeyNotNumber;
    zone->ucSecond = static_cast<uint8_t>(SYSDT_SPTI_ToUInt(state, -1));
    SYSDT_SPTI_Pop(state, 4);
    return 0;
}

uint32_t QAV_GetDstFromStack(lua_State *state, int32_t tableIndex, ZAK_DST_RULE *rule) {
    if (rule == nullptr) return qav::kInvalidCall;
    qav::StackHeight height(state);
    uint32_t rc = 0;
    if (!FetchName(state, tableIndex, "dstName", rule->szName, &rc)) return rc;
    if (!FetchNumber(state, tableIndex, "type")) return qav::kKeyNotNumber;
    rule->uiType = SYSDT_SPTI_ToUInt(state, -1);
    SYSDT_SPTI_Pop(state, 2);

    // A missing or malformed sub-table leaves its bytes zero.
    QavTimeOfDay time{};
    if (QAV_Stack_GetTime(state, tableIndex, "startTime", &time) == 0) {
        rule->ucStartHour = static_cast<uint8_t>(time.hour);
        rule->ucStartMinute = static_cast<uint8_t>(time.minute);
    }
    QavDate date{};
    if (QAV_Stack_GetDate(state, tableIndex, "startDate", &date) == 0) {
        rule->usStartYear = date.year;
        rule->ucStartMonth = date.month;
        rule->ucStartDay = date.day;
    }
    time = {};
    if (QAV_Stack_GetTime(state, tableIndex, "endTime", &time) == 0) {
        rule->ucEndHour = static_cast<uint8_t>(time.hour);
        rule->ucEndMinute = static_cast<uint8_t>(time.minute);
    }
    date = {};
    if (QAV_Stack_GetDate(state, tableIndex, "endDate", &date) == 0) {
        rule->usEndDateYear = date.year;
        rule->ucEndDateMonth = date.month;
        rule->ucEndDateDay = date.day;
    }
    time = {};
    if (QAV_Stack_GetTime(state, tableIndex, "dstOffset", &time) == 0) {
        rule->ucOffsetHour = static_cast<uint8_t>(time.hour);
        rule->ucOffsetMinute = static_cast<uint8_t>(time.minute);
    }

    struct {
        const char *key;
        size_t offset;
    } const words[] = {{"startWeekNum", offsetof(ZAK_DST_RULE, uiStartWeekNum)},
                       {"startWeekDay", offsetof(ZAK_DST_RULE, uiStartWeekDay)},
                       {"startMonth", offsetof(ZAK_DST_RULE, uiStartMonth)},
                       {"endWeekNum", offsetof(ZAK_DST_RULE, uiEndWeekNum)},
                       {"endWeekDay", offsetof(ZAK_DST_RULE, uiEndWeekDay)},
                       {"endMonth", offsetof(ZAK_DST_RULE, uiEndMonth)}};
    for (const auto &w : words) {
        if (!FetchNumber(state, tableIndex, w.key)) return qav::kKeyNotNumber;
        StoreWord(rule, w.offset, SYSDT_SPTI_ToUInt(state, -1));
    }
    if (!FetchNumber(state, tableIndex, "startYear")) return qav::kKeyNotNumber;
    rule->usFirstYear = static_cast<uint16_t>(SYSDT_SPTI_ToUInt(state, -1));
    if (!FetchNumber(state, tableIndex, "endYear")) return qav::kKeyNotNumber;
    rule->usLastYear = static_cast<uint16_t>(SYSDT_SPTI_ToUInt(state, -1));
    SYSDT_SPTI_GetField(state, tableIndex, "isDstEnabled");
    if (SYSDT_SPTI_IsBool(state, -1) == 0) return qav::kKeyNotNumber;
    rule->uiDstEnabled = SYSDT_SPTI_ToBoolean(state, -1) != 0 ? 1 : 0;
    struct {
        const char *key;
        size_t offset;
    } const tail[] = {{"startDay", offsetof(ZAK_DST_RULE, uiStartDay)},
                      {"endDay", offsetof(ZAK_DST_RULE, uiEndDay)},
                      {"lrId", offsetof(ZAK_DST_RULE, uiLrId)},
                      {"RepeatMode", offsetof(ZAK_DST_RULE, uiRepeatMode)}};
    for (const auto &w : tail) {
        if (!FetchNumber(state, tableIndex, w.key)) return qav::kKeyNotNumber;
        StoreWord(rule, w.offset, SYSDT_SPTI_ToUInt(state, -1));
    }

    QavMonthDay monthDay{};
    if (QAV_Stack_GetMonthDay(state, tableIndex, "repeatStartDate", &monthDay) == 0) {
        rule->stRepeatStart.ucMonth = static_cast<uint8_t>(monthDay.month);
        rule->stRepeatStart.ucDay = static_cast<uint8_t>(monthDay.day);
    }
    monthDay = {};
    if (QAV_Stack_GetMonthDay(state, tableIndex, "repeatEndDate", &monthDay) == 0) {
        rule->stRepeatEnd.ucMonth = static_cast<uint8_t>(monthDay.month);
        rule->stRepeatEnd.ucDay = static_cast<uint8_t>(monthDay.day);
    }
    SYSDT_SPTI_Pop(state, 13);
    return 0;
}

uint32_t QAV_SPT_SysLocalTime2Gmt_Chk(lua_State *state) {
    return qav::ArgsMatch(state, "t..") ? qav::kOk : qav::kInvalidCall;
}

// Workers: 0 after pushing their success result, else the code their wrapper pushes.
uint32_t QAV_SPT_DoSysLocalTime2Gmt(lua_State *state) {
    uint32_t rc = QAV_SPT_SysLocalTime2Gmt_Chk(state);
    if (rc != 0) return rc;
    SYS_TIME local{};
    rc = QAV_GetSystimeTable(state, &local, 1);
    if (rc != 0) return rc;
    SYSDT_SPTI_Pop(state, 8);
    SYS_TIME gmt{};
    rc = ZAK_LocalTime2Gmt(&local, SYSDT_SPTI_ToUInt(state, 2) != 0 ? 1 : 0, &gmt);
    if (rc != 0) return rc;
    QAV_SPT_GMTtimeGet(state, &gmt);
    SYSDT_SPTI_PushUInt(state, 0);
    return 0;
}

int QAV_SPT_DoSysGmt2TimeLocal(lua_State *state) {
    uint32_t status = qav::kInvalidCall;
    uint32_t isDst = 0;
    SYS_TIME gmt{};
    if (qav::ArgsMatch(state, "t.") && qav::ReadSystimeUIntegers(state, 1, &gmt)) {
        SYS_TIME local{};
        status = ZAK_Gmt2LocalTime(&gmt, &local, &isDst);
        if (status == 0) {
            SYSDT_SPTI_Pop(state, 8);
            QAV_SPT_OutPutSystime(state, &local, 2);
        }
    }
    SYSDT_SPTI_PushUInt(state, status);
    SYSDT_SPTI_PushBool(state, status == 0 && isDst != 0 ? 1 : 0);
    return 2;
}

uint32_t QAV_SPT_DoSysLocalTime2GmtByTzDst(lua_State *state) {
    if (!qav::ArgsMatch(state, "t....")) return qav::kInvalidCall;
    SYS_TIME local{};
    uint32_t rc = QAV_GetSystimeTable(state, &local, 1);
    if (rc != 0) return rc;
    SYSDT_SPTI_Pop(state, 8);
    uint32_t isDst = SYSDT_SPTI_ToBoolean(state, 2) != 0 ? 1 : 0;
    ZAK_TIME_ZONE zone{};
    ZAK_DST_RULE rule{};
    (void)QAV_GetTzFromStack(state, 3, &zone);
    (void)QAV_GetDstFromStack(state, 4, &rule);
    SYS_TIME gmt{};
    rc = ZAK_LocalTime2GmtByCfg(&local, isDst, &zone, &rule, &gmt);
    if (rc != 0) return rc;
    QAV_SPT_OutPutSystime(state, &gmt, 5);
    SYSDT_SPTI_PushUInt(state, 0);
    return 0;
}

// Its result is the entry function's result count: a time key that is not a number returns
// 0x801707 as that count with nothing pushed.
int QAV_SPT_DoSysGmt2TimeLocalByTzDst(lua_State *state) {
    if (!qav::ArgsMatch(state, "t...")) {
        SYSDT_SPTI_PushUInt(state, qav::kInvalidCall);
        SYSDT_SPTI_PushBool(state, 0);
        return 2;
    }
    SYS_TIME gmt{};
    uint32_t rc = QAV_GetSystimeTable(state, &gmt, 1);
    if (rc != 0) return static_cast<int>(rc);
    SYSDT_SPTI_Pop(state, 8);
    ZAK_TIME_ZONE zone{};
    ZAK_DST_RULE rule{};
    (void)QAV_GetTzFromStack(state, 2, &zone);
    (void)QAV_GetDstFromStack(state, 3, &rule);
    SYS_TIME local{};
    uint32_t isDst = 0;
    uint32_t status = ZAK_Gmt2LocalTimeByCfg(&gmt, &zone, &rule, &local, &isDst);
    if (status == 0) QAV_SPT_OutPutSystime(state, &local, 4);
    SYSDT_SPTI_PushUInt(state, status);
    SYSDT_SPTI_PushBool(state, status == 0 && isDst != 0 ? 1 : 0);
    return 2;
}

uint32_t QAV_SPT_DoSetTzDstCfg(lua_State *state) {
    if (!qav::ArgsMatch(state, "t.")) return qav::kInvalidCall;
    ZAK_TIME_ZONE zone{};
    ZAK_DST_RULE rule{};
    (void)QAV_GetTzFromStack(state, 1, &zone);
    (void)QAV_GetDstFromStack(state, 2, &rule);
    return ZAK_SetTzDstCfg(&zone, &rule);
}

// The offset between GMT and local time at a GMT moment as "+08:00" / "-05:30"; an empty text
// when there is none.
uint32_t QAV_DOGetAppointmentTimeOffset(const SYS_TIME *gmt, char *text, uint32_t size) {
    SYS_TIME local{};
    uint32_t isDst = 0;
    uint32_t rc = ZAK_Gmt2LocalTime(gmt, &local, &isDst);
    if (rc != 0) return rc;
    SYS_TIME gmtCopy{};
    SYS_TIME localCopy{};
    gmtCopy.year = gmt->year;
    gmtCopy.month = gmt->month;
    gmtCopy.date = gmt->date;
    gmtCopy.hour = gmt->hour;
    gmtCopy.minute = gmt->minute;
    gmtCopy.second = gmt->second;
    gmtCopy.week = gmt->week;
    gmtCopy.millSec = gmt->millSec;
    localCopy.year = local.year;
    localCopy.month = local.month;
    localCopy.date = local.date;
    localCopy.hour = local.hour;
    localCopy.minute = local.minute;
    localCopy.second = local.second;
    localCopy.week = local.week;
    localCopy.millSec = local.millSec;

    uint32_t difference = 0;
    const char *sign = "";
    switch (NUK_SystimeCompare(&gmtCopy, &localCopy)) {
    case NUK_SYSTIME_CMP_LATER:
        rc = NUK_SystimeRelSecCal(&gmtCopy, &localCopy, &difference);
        sign = "-";
        break;
    case NUK_SYSTIME_CMP_EARLIER:
        rc = NUK_SystimeRelSecCal(&localCopy, &gmtCopy, &difference);
        sign = "+";
        break;
    case NUK_SYSTIME_CMP_EQUAL:
        return 0;
    default:
        return 1;
    }
    if (rc != 0) return rc;
    SYS_TIME span{};
    rc = NUK_SystimeSec2Time(difference, &span);
    if (rc != 0) return rc;
    // Only hours and minutes: a difference of a day or more wraps.
    if (snprintf_s(text, size, size - 1, "%s%.2u:%.2u", sign, static_cast<unsigned>(span.hour),
                   static_cast<unsigned>(span.minute)) < 0)
        return 1;
    return 0;
}

} // extern "C"

namespace {

// The conversions answer a null script state with no results; a worker that fails pushes its
// code here, one that succeeds has pushed its own result.
int PushWorkerCode(lua_State *state, uint32_t (*worker)(lua_State *)) {
    if (state == nullptr) return 0;
    uint32_t rc = worker(state);
    if (rc != 0) SYSDT_SPTI_PushUInt(state, rc);
    return 1;
}

} // namespace

QAV_ENTRY_FUNCTION QAV_SPT_SysLocalTime2Gmt(lua_State *state) {
    return PushWorkerCode(state, QAV_SPT_DoSysLocalTime2Gmt);
}

QAV_ENTRY_FUNCTION qav_spt_SysGmt2LocalTime(lua_State *state) {
    if (state == nullptr) return 0;
    return QAV_SPT_DoSysGmt2TimeLocal(state);
}

QAV_ENTRY_FUNCTION QAV_SPT_SysLocalTime2GmtByTzDst(lua_State *state) {
    return PushWorkerCode(state, QAV_SPT_DoSysLocalTime2GmtByTzDst);
}

QAV_ENTRY_FUNCTION QAV_SPT_SysGmt2LocalTimeByTzDst(lua_State *state) {
    if (state == nullptr) return 0;
    return QAV_SPT_DoSysGmt2TimeLocalByTzDst(state);
}

QAV_ENTRY_FUNCTION QAV_SPT_SetTzDstCfg(lua_State *state) {
    if (state == nullptr) return 0;
    return qav::ReturnUInt(state, QAV_SPT_DoSetTzDstCfg(state));
}

QAV_ENTRY_FUNCTION QAV_GetTimeZoneOffset(lua_State *state) {
    return ConfigText(state, ZAK_dataType_getTimeZone);
}

QAV_ENTRY_FUNCTION QAV_GetTimeOffset(lua_State *state) {
    return ConfigText(state, ZAK_dataType_getAllTimeOffset);
}

QAV_ENTRY_FUNCTION QAV_TzWeekDayToTime(lua_State *state) {
    int32_t count = qav::ArgCount(state);
    // A wrong count pushes the count itself as the status.
    if (count != 5) return qav::ReturnUInt(state, static_cast<uint32_t>(count));
    SYS_TIME record{};
    uint32_t status = NUK_TzWeekDayToTime(static_cast<uint16_t>(SYSDT_SPTI_ToUInt(state, 1)),
                                          static_cast<uint8_t>(SYSDT_SPTI_ToUInt(state, 2)),
                                          static_cast<uint8_t>(SYSDT_SPTI_ToUInt(state, 3)),
                                          static_cast<uint8_t>(SYSDT_SPTI_ToUInt(state, 4)), &record);
    if (status == 0) QAV_SPT_OutPutSystime(state, &record, 5);
    return qav::ReturnUInt(state, status);
}

QAV_ENTRY_FUNCTION QAV_GetAppointmentTimeOffset(lua_State *state) {
    char text[kTextSize] = {};
    int32_t count = qav::ArgCount(state);
    if (!qav::ArgsMatch(state, "t")) {
        PushText(state, static_cast<uint32_t>(count), text);
        return 2;
    }
    SYS_TIME gmt{};
    uint32_t rc = QAV_GetSystimeTable(state, &gmt, 1);
    // A time key that is not a number returns 0x801707 as the result count, nothing pushed.
    if (rc != 0) return static_cast<int>(rc);
    uint32_t status = QAV_DOGetAppointmentTimeOffset(&gmt, text, sizeof text);
    PushText(state, status, text);
    return 2;
}

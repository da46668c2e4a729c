#include "time_records.h"

#include <cstring>

#include "securec.h"

namespace {

enum class Field { Year, Month, Date, Hour, Minute, Second, Week, MillSec };

struct KeyOf {
    const char *key;
    Field field;
};

constexpr KeyOf kWeekFourth[] = {
    {"year", Field::Year}, {"month", Field::Month},   {"date", Field::Date},     {"week", Field::Week},
    {"hour", Field::Hour}, {"minute", Field::Minute}, {"second", Field::Second}, {"millSec", Field::MillSec}};
constexpr KeyOf kRecordOrder[] = {
    {"year", Field::Year},     {"month", Field::Month},   {"date", Field::Date}, {"hour", Field::Hour},
    {"minute", Field::Minute}, {"second", Field::Second}, {"week", Field::Week}, {"millSec", Field::MillSec}};

// Stores a value truncated to the field's width.
void Store(SYS_TIME *record, Field field, uint32_t value) {
    switch (field) {
    case Field::Year:
        record->year = static_cast<uint16_t>(value);
        break;
    case Field::Month:
        record->month = static_cast<uint8_t>(value);
        break;
    case Field::Date:
        record->date = static_cast<uint8_t>(value);
        break;
    case Field::Hour:
        record->hour = static_cast<uint8_t>(value);
        break;
    case Field::Minute:
        record->minute = static_cast<uint8_t>(value);
        break;
    case Field::Second:
        record->second = static_cast<uint8_t>(value);
        break;
    case Field::Week:
        record->week = static_cast<uint8_t>(value);
        break;
    case Field::MillSec:
        record->millSec = value;
        break;
    }
}

template <size_t N>
uint32_t ReadNumbers(lua_State *state, int32_t tableIndex, SYS_TIME *record, const KeyOf (&keys)[N]) {
    for (const KeyOf &k : keys) {
        SYSDT_SPTI_GetField(state, tableIndex, k.key);
        if (SYSDT_SPTI_IsNumber(state, -1) == 0) return qav::kKeyNotNumber;
        Store(record, k.field, SYSDT_SPTI_ToUInt(state, -1));
    }
    return 0;
}

// Fetches table[key] of the table at tableIndex; the sub-table's absolute index, or 0 when the
// value is not a table (it stays on the stack).
int32_t FetchSubTable(lua_State *state, int32_t tableIndex, const char *key) {
    SYSDT_SPTI_PushString(state, key, static_cast<uint32_t>(strnlen(key, 64)));
    SYSDT_SPTI_GetTable(state, tableIndex);
    if (SYSDT_SPTI_IsTable(state, -1) == 0) return 0;
    return SYSDT_SPTI_GetTop(state);
}

// Reads numeric fields of the sub-table in order; false at the first that is not a number.
template <size_t N>
bool ReadSubFields(lua_State *state, int32_t subIndex, const char *const (&keys)[N], uint32_t (&values)[N]) {
    for (size_t i = 0; i < N; ++i) {
        SYSDT_SPTI_GetField(state, subIndex, keys[i]);
        if (SYSDT_SPTI_IsNumber(state, -1) == 0) return false;
        values[i] = SYSDT_SPTI_ToUInt(state, -1);
    }
    return true;
}

} // namespace

extern "C" {

uint32_t QAV_GetSystimeTable(lua_State *state, SYS_TIME *record, int32_t tableIndex) {
    return ReadNumbers(state, tableIndex, record, kWeekFourth);
}

uint32_t QAV_GetTimeValueFromStack(lua_State *state, int32_t tableIndex, SYS_TIME *record) {
    return ReadNumbers(state, tableIndex, record, kRecordOrder);
}

void QAV_SPT_OutPutSystime(lua_State *state, const SYS_TIME *record, int32_t tableIndex) {
    const uint32_t values[] = {record->year,   record->month,  record->date, record->hour,
                               record->minute, record->second, record->week, record->millSec};
    for (size_t i = 0; i < 8; ++i) {
        SYSDT_SPTI_PushUInt(state, values[i]);
        SYSDT_SPTI_SetField(state, tableIndex, kRecordOrder[i].key);
    }
}

void QAV_SPT_LocalSystimeGet(lua_State *state, const SYS_TIME *record) {
    QAV_SPT_OutPutSystime(state, record, 1);
}

void QAV_SPT_GMTtimeGet(lua_State *state, const SYS_TIME *record) {
    QAV_SPT_OutPutSystime(state, record, 3);
}

uint32_t QAV_Stack_GetTime(lua_State *state, int32_t tableIndex, const char *key, QavTimeOfDay *out) {
    int32_t sub = FetchSubTable(state, tableIndex, key);
    if (sub == 0) return 1;
    static const char *const keys[] = {"minute", "hour"};
    uint32_t values[2] = {};
    if (!ReadSubFields(state, sub, keys, values)) return qav::kKeyNotNumber;
    out->minute = values[0];
    out->hour = values[1];
    SYSDT_SPTI_Pop(state, 3);
    return 0;
}

uint32_t QAV_Stack_GetDate(lua_State *state, int32_t tableIndex, const char *key, QavDate *out) {
    int32_t sub = FetchSubTable(state, tableIndex, key);
    if (sub == 0) return 1;
    static const char *const keys[] = {"year", "month", "day"};
    uint32_t values[3] = {};
    if (!ReadSubFields(state, sub, keys, values)) return qav::kKeyNotNumber;
    out->year = static_cast<uint16_t>(values[0]);
    out->month = static_cast<uint8_t>(values[1]);
    out->day = static_cast<uint8_t>(values[2]);
    SYSDT_SPTI_Pop(state, 4);
    return 0;
}

uint32_t QAV_Stack_GetMonthDay(lua_State *state, int32_t tableIndex, const char *key, QavMonthDay *out) {
    int32_t sub = FetchSubTable(state, tableIndex, key);
    if (sub == 0) return 1;
    static const char *const keys[] = {"month", "day"};
    uint32_t values[2] = {};
    if (!ReadSubFields(state, sub, keys, values)) return qav::kKeyNotNumber;
    out->month = values[0];
    out->day = values[1];
    SYSDT_SPTI_Pop(state, 3);
    return 0;
}

} // extern "C"

namespace qav {

bool ReadSystimeUIntegers(lua_State *state, int32_t tableIndex, SYS_TIME *record) {
    for (const KeyOf &k : kWeekFourth) {
        SYSDT_SPTI_GetField(state, tableIndex, k.key);
        if (SYSDT_SPTI_IsUinteger(state, -1) == 0) return false;
        Store(record, k.field, SYSDT_SPTI_ToUInt(state, -1));
    }
    return true;
}

} // namespace qav

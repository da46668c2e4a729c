// The system time record in script tables: the full readers and writers, and the partial
// sub-table readers that the daylight-saving rule uses.
#pragma once

#include <cstdint>

#include "script_engine.h"
#include "zak_time.h"

#include "binding/result_codes.h"

// A time of day and dates as the sub-table readers deliver them.
struct QavTimeOfDay {
    uint32_t hour;
    uint32_t minute;
};
struct QavDate {
    uint16_t year;
    uint8_t month;
    uint8_t day;
};
struct QavMonthDay {
    uint32_t month;
    uint32_t day;
};

extern "C" {
// Full readers: 0, or 0x801707 at the first key that is not a number (fields read before it stay
// written). Values are left on the stack; callers address tables by absolute index.
// Key order year, month, date, week, hour, minute, second, millSec.
uint32_t QAV_GetSystimeTable(lua_State *state, SYS_TIME *record, int32_t tableIndex);
// Key order year, month, date, hour, minute, second, week, millSec.
uint32_t QAV_GetTimeValueFromStack(lua_State *state, int32_t tableIndex, SYS_TIME *record);

// Writers: the eight keys in record order into the table at an absolute index.
void QAV_SPT_OutPutSystime(lua_State *state, const SYS_TIME *record, int32_t tableIndex);
void QAV_SPT_LocalSystimeGet(lua_State *state, const SYS_TIME *record);
void QAV_SPT_GMTtimeGet(lua_State *state, const SYS_TIME *record);

// Sub-table readers: 1 when table[key] is not a table, 0x801707 for a field that is not a number.
uint32_t QAV_Stack_GetTime(lua_State *state, int32_t tableIndex, const char *key, QavTimeOfDay *out);
uint32_t QAV_Stack_GetDate(lua_State *state, int32_t tableIndex, const char *key, QavDate *out);
uint32_t QAV_Stack_GetMonthDay(lua_State *state, int32_t tableIndex, const char *key, QavMonthDay *out);
}

namespace qav {
// Reads the record in the key order year, month, date, week, hour, minute, second, millSec,
// accepting only unsigned integers; false at the first that is not. Pops nothing.
bool ReadSystimeUIntegers(lua_State *state, int32_t tableIndex, SYS_TIME *record);
} // namespace qav

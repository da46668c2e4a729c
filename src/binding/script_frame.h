// The conventions every entry function follows: one argument check (a type string), bounded
// copies of text arguments, the three result forms and the shared result codes. Entry functions
// read: check the arguments, read them into a record, do the work, push results in their form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "binding/result_codes.h"
#include "nuk_sync.h"
#include "platform_logs.h"
#include "script_engine.h"
#include "zak_memory.h"

// Entry functions are exported under their own names with C linkage.
#define QAV_ENTRY_FUNCTION extern "C" __attribute__((visibility("default"))) int

namespace qav {

// The ids the library's log lines are filed under.
enum LogId : uint32_t {
    kUpgradeLogId = 0x29371B3C, // the upgrade log (RPM_LogToFile)
    kVercfgLogId = 0xB66D789A,  // the upgrade log lines of the version configuration functions
    kDiagModule = 0x811101F,    // the diagnostic and status-trace logs (QAV_DiagLog, QAV_STLOG, ...)
    kVnfDiagModule = 0x8111005, // the diagnostic log lines of the VNF path queries
    kBaseLogCode = 0x9550004,   // the base log's code of the library's own messages (QAV_Log)
};
// Levels of the upgrade and patch logs.
enum LogLevel : uint32_t {
    kLogProgress = 1,
    kLogNotice = 2, // a note that is no failure; also patch records echoed to the patch log
    kLogFailure = 3,
    kLogStateChange = 4,  // worth keeping: a lock taken or released
    kLogMinorFailure = 4, // a failure that leaves the result good (a file left with its owner)
    kLogDetail = 5,
    kLogStep = 6, // a step banner of the patch log
};

// The library's memory handle and the source tag of its allocations outside the file engine.
inline constexpr const char *kSourceTag = "qav_luacommon";

// ---- Arguments ----------------------------------------------------------------------------------

// The number of arguments the script passed (at entry, the stack height).
inline int32_t ArgCount(lua_State *state) {
    return SYSDT_SPTI_GetTop(state);
}

// Whether the value at `index` is of the type `letter` names: 'n' number (a numeric text counts),
// 's' string (a number reads as text too), 't' table, 'b' boolean, 'u' whole number from 0 to
// 0xFFFFFFFF, '.' any; 'N' and 'S' a number or a string by the value's own type only.
bool ValueIs(lua_State *state, int32_t index, char letter);

// The one argument check: exactly one argument per letter of `types`, each of its type
// ("nss": a number and two strings; "..": any two values).
inline bool ArgsMatch(lua_State *state, const char *types) {
    auto count = static_cast<int32_t>(std::char_traits<char>::length(types));
    if (ArgCount(state) != count) return false;
    for (int32_t i = 0; i < count; ++i)
        if (types[i] != '.' && !ValueIs(state, i + 1, types[i])) return false;
    return true;
}

// The count check alone: ArgsMatch with every letter '.', kept for callers not yet moved to it.
inline bool ArgCountIs(lua_State *state, int32_t count) {
    return ArgCount(state) == count;
}

// The text argument at `index`, or null when it is not a string.
inline const char *TextArg(lua_State *state, int32_t index) {
    return SYSDT_SPTI_IsString(state, index) != 0 ? SYSDT_SPTI_ToString(state, index) : nullptr;
}

// Reports a failed bounded copy or other internal call: "FUNC(%s) return %d , Line(%d).\n".
void LogCallFailure(const char *function, int32_t code, int32_t line);

// Copies `text` into buffer[size] with strcpy_s semantics (the whole text must fit). False for a
// null text, or when the copy fails, which is reported with LogCallFailure(function, code, line).
bool CopyText(char *buffer, size_t size, const char *text, const char *function, int32_t line);

// The bounded copy of the text argument at `index` into a buffer; false when the argument is no
// string or does not fit (reported as CopyText does).
inline bool CopyTextArg(lua_State *state, int32_t index, char *buffer, size_t size, const char *function,
                        int32_t line) {
    return CopyText(buffer, size, SYSDT_SPTI_ToString(state, index), function, line);
}
template <size_t N>
bool CopyTextArg(lua_State *state, int32_t index, char (&buffer)[N], const char *function, int32_t line) {
    return CopyTextArg(state, index, buffer, N, function, line);
}
// The older name of CopyTextArg, kept for callers not yet moved to it.
inline bool CopyStringArg(lua_State *state, int32_t index, char *buffer, size_t size, const char *function,
                          int32_t line) {
    return CopyTextArg(state, index, buffer, size, function, line);
}

// ---- Results ------------------------------------------------------------------------------------

// Result form 1 and the common one-result exits.
inline int ReturnUInt(lua_State *state, uint32_t code) {
    SYSDT_SPTI_PushUInt(state, code);
    return 1;
}
inline int ReturnInt(lua_State *state, int32_t code) {
    SYSDT_SPTI_PushInt(state, code);
    return 1;
}
// Two unsigned results, mostly a code and one value.
inline int ReturnUIntPair(lua_State *state, uint32_t code, uint32_t value) {
    SYSDT_SPTI_PushUInt(state, code);
    SYSDT_SPTI_PushUInt(state, value);
    return 2;
}
// A code and a text read up to `bound` bytes: two results.
inline int ReturnUIntText(lua_State *state, uint32_t code, const char *text, uint32_t bound) {
    SYSDT_SPTI_PushUInt(state, code);
    SYSDT_SPTI_PushString(state, text, bound);
    return 2;
}

// Writes `value` over the stack value at `index`: pushed, copied there, the copy dropped.
void StoreIntAt(lua_State *state, int32_t index, int32_t value);
void StoreUIntAt(lua_State *state, int32_t index, uint32_t value);

// Restores the stack height it found when it goes out of scope, so that values a reader leaves
// cannot pile up beyond the stack space the engine guarantees.
class StackHeight {
  public:
    explicit StackHeight(lua_State *state) : state_(state), top_(SYSDT_SPTI_GetTop(state)) {}
    ~StackHeight();
    StackHeight(const StackHeight &) = delete;
    StackHeight &operator=(const StackHeight &) = delete;

  private:
    lua_State *state_;
    int32_t top_;
};

// Result form 3, the placeholder slot: construct right after reading the argument count; -1 then
// sits at index count + 1 and is the result of any path that returns `Early()`. `Finish` moves
// the final code into the slot and returns 1 plus the data results pushed after the slot.
class PlaceholderSlot {
  public:
    explicit PlaceholderSlot(lua_State *state) : state_(state), slot_(SYSDT_SPTI_GetTop(state) + 1) {
        SYSDT_SPTI_PushInt(state, -1);
    }
    int32_t ArgCount() const { return slot_ - 1; }
    int Early() const { return 1; }
    int Finish(int32_t code, int dataResults = 0) const {
        StoreIntAt(state_, slot_, code);
        return 1 + dataResults;
    }
    // The same with an unsigned code.
    int FinishUInt(uint32_t code, int dataResults = 0) const {
        StoreUIntAt(state_, slot_, code);
        return 1 + dataResults;
    }
    // Removes the placeholder, which must be the top value, for a function with no results.
    int Drop() const;

  private:
    lua_State *state_;
    int32_t slot_;
};

// Building result tables.
struct TableBuilder {
    lua_State *state;
    int32_t index;
    explicit TableBuilder(lua_State *s, int32_t arraySize = 0, int32_t recordSize = 0) : state(s) {
        SYSDT_SPTI_CreateTable(s, arraySize, recordSize);
        index = SYSDT_SPTI_GetTop(s);
    }
    TableBuilder &UInt(const char *key, uint32_t value) {
        SYSDT_SPTI_PushUInt(state, value);
        SYSDT_SPTI_SetField(state, index, key);
        return *this;
    }
    TableBuilder &Int(const char *key, int32_t value) {
        SYSDT_SPTI_PushInt(state, value);
        SYSDT_SPTI_SetField(state, index, key);
        return *this;
    }
    TableBuilder &String(const char *key, const char *text, uint32_t bound) {
        SYSDT_SPTI_PushString(state, text, bound);
        SYSDT_SPTI_SetField(state, index, key);
        return *this;
    }
};

// Reading fields of a table argument; each leaves the stack as it found it.
uint32_t FieldUInt(lua_State *state, int32_t tableIndex, const char *key);
int32_t FieldInt(lua_State *state, int32_t tableIndex, const char *key);
bool FieldIsNumber(lua_State *state, int32_t tableIndex, const char *key);
bool FieldCopyString(lua_State *state, int32_t tableIndex, const char *key, char *buffer, size_t size);

} // namespace qav

// lauxlib.h defines luaL_checkstring as a macro; the library exports a function of that name.
#ifdef luaL_checkstring
#undef luaL_checkstring
#endif

extern "C" {
// The library's memory handle for ZAK_Malloc_F.
extern void *g_pLocaHandleQav;
// The library's own luaL_checkstring: the text at `index`, or null; never raises.
__attribute__((visibility("default"))) const char *luaL_checkstring(lua_State *state, int index);
}

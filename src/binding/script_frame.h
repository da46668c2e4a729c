// The conventions every entry function follows: argument count and type checks, bounded copies
// of text arguments, the three result forms and the shared result codes. Entry functions read:
// check the count, read the arguments into a record, do the work, push results in their form.
#pragma once

#include <cstddef>
#include <cstdint>

#include "nuk_sync.h"
#include "platform_logs.h"
#include "script_engine.h"
#include "zak_memory.h"

// Entry functions are exported under their own names with C linkage.
#define QAV_ENTRY_FUNCTION extern "C" __attribute__((visibility("default"))) int

namespace qav {

// Log ids of the upgrade log.
inline constexpr uint32_t kUpgradeLogId = 0x29371B3C;
inline constexpr uint32_t kVercfgLogId = 0xB66D789A;
// Upgrade-log levels.
inline constexpr uint32_t kLogProgress = 1;
inline constexpr uint32_t kLogFailure = 3;
inline constexpr uint32_t kLogStateChange = 4;

// Shared result codes.
inline constexpr uint32_t kOk = 0;
inline constexpr uint32_t kFailed = 1;
inline constexpr uint32_t kInvalidCall = 0xFFFFFFFF;

// The library's memory handle and the source tag of its allocations outside the file engine.
inline constexpr const char *kSourceTag = "qav_luacommon";

inline bool ArgCountIs(lua_State *state, int32_t count) {
    return SYSDT_SPTI_GetTop(state) == count;
}

// Reports a failed bounded copy or other internal call: "FUNC(%s) return %d , Line(%d).\n".
void LogCallFailure(const char *function, int32_t code, int32_t line);

// Copies the string argument at `index` into buffer[size] with strcpy_s semantics (the whole
// text must fit). False when the value is not a string or does not fit; a failed copy is
// reported with LogCallFailure(function, code, line).
bool CopyStringArg(lua_State *state, int32_t index, char *buffer, size_t size, const char *function,
                   int32_t line);

// Result form 1 and the common one-result exits.
inline int ReturnUInt(lua_State *state, uint32_t code) {
    SYSDT_SPTI_PushUInt(state, code);
    return 1;
}
inline int ReturnInt(lua_State *state, int32_t code) {
    SYSDT_SPTI_PushInt(state, code);
    return 1;
}

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
    int Finish(int32_t code, int dataResults = 0) const;

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

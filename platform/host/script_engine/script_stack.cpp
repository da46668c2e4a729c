// The script stack operations over the Lua C API. They behave the same on Lua 5.2, 5.3 and 5.4:
// numbers convert, truncate toward zero and wrap modulo 2^32; NaN, infinities and non-numbers
// read as 0.
#include <cmath>
#include <cstring>

#include "script_engine.h"

namespace {

// The value at `index` as an integer modulo 2^32, or nullopt-like false when it is no number.
bool to_u32(lua_State *state, int index, uint32_t *out) {
#if LUA_VERSION_NUM >= 503
    if (lua_type(state, index) == LUA_TNUMBER && lua_isinteger(state, index)) {
        *out = static_cast<uint32_t>(static_cast<uint64_t>(lua_tointeger(state, index)));
        return true;
    }
#endif
    int isNumber = 0;
    double d = lua_tonumberx(state, index, &isNumber);
    if (!isNumber || !std::isfinite(d)) {
        *out = 0;
        return isNumber != 0;
    }
    d = std::fmod(std::trunc(d), 4294967296.0);
    if (d < 0) d += 4294967296.0;
    *out = static_cast<uint32_t>(d);
    return true;
}

} // namespace

extern "C" {

int32_t SYSDT_SPTI_GetTop(lua_State *state) {
    return lua_gettop(state);
}
int32_t SYSDT_SPTI_IsNumber(lua_State *state, int32_t index) {
    return lua_isnumber(state, index);
}
int32_t SYSDT_SPTI_IsString(lua_State *state, int32_t index) {
    return lua_isstring(state, index);
}
int32_t SYSDT_SPTI_IsTable(lua_State *state, int32_t index) {
    return lua_istable(state, index);
}
int32_t SYSDT_SPTI_IsBool(lua_State *state, int32_t index) {
    return lua_isboolean(state, index);
}

int32_t SYSDT_SPTI_IsUinteger(lua_State *state, int32_t index) {
#if LUA_VERSION_NUM >= 503
    if (lua_type(state, index) == LUA_TNUMBER && lua_isinteger(state, index)) {
        lua_Integer v = lua_tointeger(state, index);
        return v >= 0 && v <= 0xFFFFFFFFLL;
    }
#endif
    int isNumber = 0;
    double d = lua_tonumberx(state, index, &isNumber);
    return isNumber && std::isfinite(d) && d == std::trunc(d) && d >= 0 && d <= 4294967295.0;
}

uint32_t SYSDT_SPTI_ToUInt(lua_State *state, int32_t index) {
    uint32_t v = 0;
    to_u32(state, index, &v);
    return v;
}

int32_t SYSDT_SPTI_ToInt(lua_State *state, int32_t index) {
    return static_cast<int32_t>(SYSDT_SPTI_ToUInt(state, index));
}

int32_t SYSDT_SPTI_ToBoolean(lua_State *state, int32_t index) {
    return lua_toboolean(state, index) ? 1 : 0;
}

const char *SYSDT_SPTI_ToString(lua_State *state, int32_t index) {
    return lua_tolstring(state, index, nullptr);
}

const char *SYSDT_SPTI_ToLString(lua_State *state, int32_t index, uint32_t *length) {
    size_t len = 0;
    const char *text = lua_tolstring(state, index, &len);
    if (length != nullptr) *length = text != nullptr ? static_cast<uint32_t>(len) : 0;
    return text;
}

// Every push first makes room: a C function is only promised LUA_MINSTACK free slots, and entry
// functions that leave read values on the stack (or push long result lists) may need more. Without
// room (the interpreter's stack limit) the push is dropped rather than written past the stack.
// Every frame holds at least LUA_MINSTACK slots above its base, so a stack that low needs no check.
static bool room(lua_State *state) {
    return lua_gettop(state) <= LUA_MINSTACK - 2 || lua_checkstack(state, 2) != 0;
}

void SYSDT_SPTI_PushInt(lua_State *state, int32_t value) {
    if (!room(state)) return;
#if LUA_VERSION_NUM >= 503
    lua_pushinteger(state, value);
#else
    lua_pushnumber(state, value);
#endif
}

void SYSDT_SPTI_PushUInt(lua_State *state, uint32_t value) {
    if (!room(state)) return;
#if LUA_VERSION_NUM >= 503
    lua_pushinteger(state, static_cast<lua_Integer>(value));
#else
    lua_pushnumber(state, value);
#endif
}

void SYSDT_SPTI_PushBool(lua_State *state, int32_t value) {
    if (!room(state)) return;
    lua_pushboolean(state, value != 0);
}
void SYSDT_SPTI_PushNil(lua_State *state) {
    if (!room(state)) return;
    lua_pushnil(state);
}

void SYSDT_SPTI_PushString(lua_State *state, const char *text, uint32_t bound) {
    if (!room(state)) return;
    if (text == nullptr) {
        lua_pushnil(state);
        return;
    }
    lua_pushlstring(state, text, strnlen(text, bound));
}

void SYSDT_SPTI_PushLString(lua_State *state, const char *bytes, uint32_t length) {
    if (!room(state)) return;
    if (bytes == nullptr) {
        lua_pushnil(state);
        return;
    }
    lua_pushlstring(state, bytes, length);
}

void SYSDT_SPTI_CreateTable(lua_State *state, int32_t arraySize, int32_t recordSize) {
    if (!room(state)) return;
    lua_createtable(state, arraySize > 0 ? arraySize : 0, recordSize > 0 ? recordSize : 0);
}

// Table stores and loads are raw: a script's metatable cannot run code or raise inside an entry
// function.
void SYSDT_SPTI_SetField(lua_State *state, int32_t tableIndex, const char *key) {
    if (!room(state)) {
        lua_pop(state, 1);
        return;
    }
    int table = lua_absindex(state, tableIndex);
    if (!lua_istable(state, table)) {
        lua_pop(state, 1);
        return;
    }
    lua_pushstring(state, key);
    lua_insert(state, -2);
    lua_rawset(state, table);
}

void SYSDT_SPTI_SetTable(lua_State *state, int32_t tableIndex) {
    int table = lua_absindex(state, tableIndex);
    bool badKey = lua_type(state, -2) == LUA_TNIL ||
                  (lua_type(state, -2) == LUA_TNUMBER && std::isnan(lua_tonumber(state, -2)));
    if (!lua_istable(state, table) || badKey) {
        lua_pop(state, 2); // nil and NaN keys cannot be stored; the pair is dropped
        return;
    }
    lua_rawset(state, table);
}

void SYSDT_SPTI_GetField(lua_State *state, int32_t tableIndex, const char *key) {
    if (!room(state)) return;
    int table = lua_absindex(state, tableIndex);
    if (!lua_istable(state, table)) {
        lua_pushnil(state);
        return;
    }
    lua_pushstring(state, key);
    lua_rawget(state, table);
}

void SYSDT_SPTI_GetTable(lua_State *state, int32_t tableIndex) {
    int table = lua_absindex(state, tableIndex);
    if (!lua_istable(state, table)) {
        lua_pop(state, 1);
        lua_pushnil(state);
        return;
    }
    lua_rawget(state, table);
}

void SYSDT_SPTI_Pop(lua_State *state, int32_t count) {
    lua_pop(state, count);
}

} // extern "C"

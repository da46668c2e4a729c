#include "script_frame.h"

#include "securec.h"

extern "C" {
void *g_pLocaHandleQav = nullptr;
}

namespace qav {

void LogCallFailure(const char *function, int32_t code, int32_t line) {
    QAV_syslog("FUNC(%s) return %d , Line(%d).\n", function, code, line);
}

bool ValueIs(lua_State *state, int32_t index, char letter) {
    switch (letter) {
    case 'n':
        return SYSDT_SPTI_IsNumber(state, index) != 0;
    case 's':
        return SYSDT_SPTI_IsString(state, index) != 0;
    case 't':
        return SYSDT_SPTI_IsTable(state, index) != 0;
    case 'b':
        return SYSDT_SPTI_IsBool(state, index) != 0;
    case 'u':
        return SYSDT_SPTI_IsUinteger(state, index) != 0;
    case 'N':
        return lua_type(state, index) == LUA_TNUMBER;
    case 'S':
        return lua_type(state, index) == LUA_TSTRING;
    default:
        return letter == '.';
    }
}

bool CopyText(char *buffer, size_t size, const char *text, const char *function, int32_t line) {
    if (text == nullptr) return false;
    errno_t rc = strcpy_s(buffer, size, text);
    if (rc != EOK) {
        LogCallFailure(function, rc, line);
        return false;
    }
    return true;
}

void StoreIntAt(lua_State *state, int32_t index, int32_t value) {
    SYSDT_SPTI_PushInt(state, value);
    lua_copy(state, -1, index);
    lua_settop(state, -2);
}

void StoreUIntAt(lua_State *state, int32_t index, uint32_t value) {
    SYSDT_SPTI_PushUInt(state, value);
    lua_copy(state, -1, index);
    lua_settop(state, -2);
}

StackHeight::~StackHeight() {
    lua_settop(state_, top_);
}

int PlaceholderSlot::Drop() const {
    lua_settop(state_, -2);
    return 0;
}

uint32_t FieldUInt(lua_State *state, int32_t tableIndex, const char *key) {
    SYSDT_SPTI_GetField(state, tableIndex, key);
    uint32_t value = SYSDT_SPTI_ToUInt(state, -1);
    SYSDT_SPTI_Pop(state, 1);
    return value;
}

int32_t FieldInt(lua_State *state, int32_t tableIndex, const char *key) {
    SYSDT_SPTI_GetField(state, tableIndex, key);
    int32_t value = SYSDT_SPTI_ToInt(state, -1);
    SYSDT_SPTI_Pop(state, 1);
    return value;
}

bool FieldIsNumber(lua_State *state, int32_t tableIndex, const char *key) {
    SYSDT_SPTI_GetField(state, tableIndex, key);
    bool isNumber = SYSDT_SPTI_IsNumber(state, -1) != 0;
    SYSDT_SPTI_Pop(state, 1);
    return isNumber;
}

bool FieldCopyString(lua_State *state, int32_t tableIndex, const char *key, char *buffer, size_t size) {
    SYSDT_SPTI_GetField(state, tableIndex, key);
    const char *text = SYSDT_SPTI_ToString(state, -1);
    bool ok = text != nullptr && strcpy_s(buffer, size, text) == EOK;
    SYSDT_SPTI_Pop(state, 1);
    return ok;
}

} // namespace qav

#undef luaL_checkstring
extern "C" const char *luaL_checkstring(lua_State *state, int index) {
    return SYSDT_SPTI_ToString(state, index);
}

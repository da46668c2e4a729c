/* Script engine and stack operations: the platform's thin layer over the Lua C API.
 * Every entry function of the library reads its arguments and pushes its results through these. */
#ifndef PLATFORM_SCRIPT_ENGINE_H
#define PLATFORM_SCRIPT_ENGINE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#include <lua.h>
#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* One registry entry: script name and entry function. A null name ends a registry. */
typedef struct {
    const char *name;
    lua_CFunction func;
} SCRIPT_REG_ENTRY;

/* The process-wide mutex every script-extension library takes while it opens. Created by the
 * platform when it is loaded; 0 means it could not be created. */
extern uint32_t g_pLuaInitMutex;

/* Creates the module table, registers every entry up to the terminating null name, stores the
 * table in package.loaded[name] and as the global `name`, and leaves it on the stack. */
int32_t Script_OpenLib(lua_State *state, const char *moduleName, const SCRIPT_REG_ENTRY *registry);

int32_t SYSDT_SPTI_GetTop(lua_State *state);
int32_t SYSDT_SPTI_IsNumber(lua_State *state, int32_t index);
int32_t SYSDT_SPTI_IsString(lua_State *state, int32_t index);
int32_t SYSDT_SPTI_IsTable(lua_State *state, int32_t index);
int32_t SYSDT_SPTI_IsBool(lua_State *state, int32_t index);
int32_t SYSDT_SPTI_IsUinteger(lua_State *state, int32_t index);
int32_t SYSDT_SPTI_ToInt(lua_State *state, int32_t index);
uint32_t SYSDT_SPTI_ToUInt(lua_State *state, int32_t index);
int32_t SYSDT_SPTI_ToBoolean(lua_State *state, int32_t index);
const char *SYSDT_SPTI_ToString(lua_State *state, int32_t index);
const char *SYSDT_SPTI_ToLString(lua_State *state, int32_t index, uint32_t *length);
void SYSDT_SPTI_PushInt(lua_State *state, int32_t value);
void SYSDT_SPTI_PushUInt(lua_State *state, uint32_t value);
void SYSDT_SPTI_PushBool(lua_State *state, int32_t value);
void SYSDT_SPTI_PushNil(lua_State *state);
void SYSDT_SPTI_PushString(lua_State *state, const char *text, uint32_t bound);
void SYSDT_SPTI_PushLString(lua_State *state, const char *bytes, uint32_t length);
void SYSDT_SPTI_CreateTable(lua_State *state, int32_t arraySize, int32_t recordSize);
void SYSDT_SPTI_SetField(lua_State *state, int32_t tableIndex, const char *key);
void SYSDT_SPTI_SetTable(lua_State *state, int32_t tableIndex);
void SYSDT_SPTI_GetField(lua_State *state, int32_t tableIndex, const char *key);
void SYSDT_SPTI_GetTable(lua_State *state, int32_t tableIndex);
void SYSDT_SPTI_Pop(lua_State *state, int32_t count);

#ifdef __cplusplus
}
#endif

#endif

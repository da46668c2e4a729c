/* A program that embeds Lua and opens the installed library, as a device's script engine does. */
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
#include <stdio.h>

int luaopen_libqavluacommon(lua_State *state);

int main(void) {
    lua_State *state = luaL_newstate();
    luaL_openlibs(state);
    luaL_requiref(state, "libqavluacommon", luaopen_libqavluacommon, 1);
    lua_getfield(state, -1, "qav_luaAssignPortID");
    lua_pushinteger(state, 7);
    if (lua_pcall(state, 1, 2, 0) != 0) {
        fprintf(stderr, "%s\n", lua_tostring(state, -1));
        return 1;
    }
    printf("status %d port %d\n", (int)lua_tointeger(state, -2), (int)lua_tointeger(state, -1));
    lua_close(state);
    return 0;
}

// zakhost.setenv(name [, value]): sets (or with no value unsets) an environment variable of this
// process, for scripts that read the deployment's variables ("VNFC_TYPE", "VNFC_DES_FILE_EVN").
#include <cstdlib>

#include "host.h"

extern "C" {
#include <lauxlib.h>
}

namespace {

int lua_setenv(lua_State *state) {
    const char *name = luaL_checkstring(state, 1);
    int rc = lua_isnoneornil(state, 2) ? unsetenv(name) : setenv(name, luaL_checkstring(state, 2), 1);
    lua_pushboolean(state, rc == 0);
    return 1;
}

const zakhost::ControlFunction kSetenv{"setenv", &lua_setenv};

} // namespace

// zakhost.setenv(name, value): sets (or, with nil, removes) an environment variable of this
// process, so that tests can give the deployment variables ("VNFC_TYPE", "CC_PKG_NAME") that
// a device's process would inherit.
#include <cstdlib>

extern "C" {
#include <lauxlib.h>
}

#include "host.h"

namespace {

int lua_setenv(lua_State *state) {
    const char *name = luaL_checkstring(state, 1);
    int rc = lua_isnoneornil(state, 2) ? unsetenv(name) : setenv(name, luaL_checkstring(state, 2), 1);
    lua_pushboolean(state, rc == 0);
    return 1;
}
const zakhost::ControlFunction kSetenv{"setenv", &lua_setenv};

} // namespace

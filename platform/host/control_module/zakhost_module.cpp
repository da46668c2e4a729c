// The `zakhost` Lua module: what tests and script authors use to steer and observe the host
// platform (logs, events, clocks, sandbox, profile, fault injection, allocator).
extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

#include <nlohmann/json.hpp>

#include "host.h"

namespace {

void push_string_array(lua_State *state, const std::vector<std::string> &items) {
    lua_createtable(state, static_cast<int>(items.size()), 0);
    for (size_t i = 0; i < items.size(); ++i) {
        lua_pushlstring(state, items[i].data(), items[i].size());
        lua_rawseti(state, -2, static_cast<int>(i + 1));
    }
}

void push_records(lua_State *state, const char *log) {
    auto records = zakhost::log_records(log);
    lua_createtable(state, static_cast<int>(records.size()), 0);
    for (size_t i = 0; i < records.size(); ++i) {
        zakhost::push_lua(state, records[i]);
        lua_rawseti(state, -2, static_cast<int>(i + 1));
    }
}

int log_lines(lua_State *state) {
    push_string_array(state, zakhost::log_messages(luaL_checkstring(state, 1)));
    return 1;
}

int log_clear(lua_State *) {
    zakhost::log_clear();
    return 0;
}

int events(lua_State *state) {
    push_records(state, "event");
    return 1;
}

int stamps(lua_State *state) {
    push_records(state, "stamp");
    return 1;
}

int clock_advance(lua_State *state) {
    lua_Number seconds = luaL_checknumber(state, 1);
    luaL_argcheck(state, seconds >= 0, 1, "clocks only move forward");
    zakhost::clock_advance(static_cast<int64_t>(seconds));
    lua_pushnumber(state, static_cast<lua_Number>(zakhost::clock_offset()));
    return 1;
}

// The device root as a prefix of absolute device paths: "" where it is the file system's root
// (inside the jail), so that `zakhost.root() .. "/etc/shadow"` names the device's file everywhere.
int root(lua_State *state) {
    lua_pushstring(state, zakhost::root().c_str());
    return 1;
}

int profile(lua_State *state) {
    auto value = zakhost::profile_value(luaL_checkstring(state, 1), luaL_checkstring(state, 2));
    if (value)
        lua_pushlstring(state, value->data(), value->size());
    else
        lua_pushnil(state);
    return 1;
}

// zakhost.profile_set(section, key, value): the value in force from now on in this process;
// a nil value removes the override.
int profile_set(lua_State *state) {
    const char *section = luaL_checkstring(state, 1);
    const char *key = luaL_checkstring(state, 2);
    std::optional<std::string> value;
    if (!lua_isnoneornil(state, 3)) value = luaL_checkstring(state, 3);
    zakhost::profile_override(section, key, value);
    zakhost::apply_profile_settings();
    return 0;
}

int inject(lua_State *state) {
    if (lua_gettop(state) == 0) {
        zakhost::inject_clear();
        return 0;
    }
    const char *service = luaL_checkstring(state, 1);
    auto result = static_cast<int64_t>(luaL_optnumber(state, 2, 0));
    auto skip = static_cast<uint32_t>(luaL_optnumber(state, 3, 0));
    auto count = static_cast<uint32_t>(luaL_optnumber(state, 4, 1));
    zakhost::inject(service, result, skip, count);
    return 0;
}

int memory(lua_State *state) {
    lua_createtable(state, 0, 2);
    lua_pushnumber(state, static_cast<lua_Number>(zakhost::live_blocks()));
    lua_setfield(state, -2, "blocks");
    lua_pushnumber(state, static_cast<lua_Number>(zakhost::live_bytes()));
    lua_setfield(state, -2, "bytes");
    return 1;
}

// zakhost.isnull(v): whether v is nil or a light user data holding the null pointer (the handle
// of a failed luafs_opendir, which Lua counts as true).
int isnull(lua_State *state) {
    lua_pushboolean(state, lua_isnoneornil(state, 1) ||
                               (lua_islightuserdata(state, 1) && lua_touserdata(state, 1) == nullptr));
    return 1;
}

const luaL_Reg kFunctions[] = {{"log_lines", log_lines},
                               {"log_clear", log_clear},
                               {"events", events},
                               {"stamps", stamps},
                               {"clock_advance", clock_advance},
                               {"root", root},
                               {"profile", profile},
                               {"profile_set", profile_set},
                               {"inject", inject},
                               {"memory", memory},
                               {"isnull", isnull},
                               {nullptr, nullptr}};

} // namespace

extern "C" __attribute__((visibility("default"))) int luaopen_zakhost(lua_State *state) {
    lua_newtable(state);
    for (const luaL_Reg *f = kFunctions; f->name != nullptr; ++f) {
        lua_pushcfunction(state, f->func);
        lua_setfield(state, -2, f->name);
    }
    for (const auto &[name, function] : zakhost::control_functions()) {
        lua_pushcfunction(state, function);
        lua_setfield(state, -2, name);
    }
    return 1;
}

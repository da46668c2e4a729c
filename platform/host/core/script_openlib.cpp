// Script_OpenLib: registers a library's entry functions in a module table. Each entry is called
// through a small dispatcher that keeps the interpreter safe from result counts it cannot honour
// and, with ZAKHOST_TRACE=1, prints every call with its arguments and results.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "host.h"
#include "platform_logs.h"
#include "script_engine.h"

namespace {

bool tracing() {
    static const bool on = [] {
        const char *env = std::getenv("ZAKHOST_TRACE");
        return env != nullptr && *env != '\0' && *env != '0';
    }();
    return on;
}

std::string describe(lua_State *state, int index) {
    switch (lua_type(state, index)) {
    case LUA_TNIL:
        return "nil";
    case LUA_TBOOLEAN:
        return lua_toboolean(state, index) ? "true" : "false";
    case LUA_TNUMBER: {
        lua_pushvalue(state, index);
        std::string text = lua_tostring(state, -1);
        lua_pop(state, 1);
        return text;
    }
    case LUA_TSTRING: {
        size_t len = 0;
        const char *text = lua_tolstring(state, index, &len);
        std::string quoted = "\"";
        for (size_t i = 0; i < len && i < 80; ++i) {
            unsigned char c = static_cast<unsigned char>(text[i]);
            if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') {
                quoted += static_cast<char>(c);
            } else {
                char esc[8];
                std::snprintf(esc, sizeof esc, "\\x%02X", c);
                quoted += esc;
            }
        }
        return quoted + (len > 80 ? "...\"" : "\"");
    }
    default:
        return lua_typename(state, lua_type(state, index));
    }
}

std::string describe_range(lua_State *state, int from, int to) {
    std::string out;
    for (int i = from; i <= to; ++i)
        out += (i > from ? ", " : "") + describe(state, i);
    return out;
}

const char *entry_name(lua_State *state) {
    return lua_tostring(state, lua_upvalueindex(2));
}

// One more than the stack holds reads the called function's own slot, which the interpreter
// allows; anything beyond would read outside this call's frame.
int checked_count(lua_State *state, int count) {
    int height = lua_gettop(state);
    if (count >= 0 && count <= height + 1) return count;
    QAV_syslog("result count %d of %s clamped to the stack height %d", count, entry_name(state), height);
    return height;
}

int dispatch_traced(lua_State *state, lua_CFunction function) {
    std::string args = describe_range(state, 1, lua_gettop(state));
    int count = checked_count(state, function(state));
    int height = lua_gettop(state);
    std::string results =
        count <= height ? describe_range(state, height - count + 1, height)
                        : "<function>" + std::string(height ? ", " : "") + describe_range(state, 1, height);
    std::fprintf(stderr, "[trace] %s(%s) -> %s\n", entry_name(state), args.c_str(), results.c_str());
    return count;
}

int dispatch(lua_State *state) {
    auto function = reinterpret_cast<lua_CFunction>(lua_touserdata(state, lua_upvalueindex(1)));
    if (tracing()) return dispatch_traced(state, function);
    return checked_count(state, function(state));
}

} // namespace

extern "C" int32_t Script_OpenLib(lua_State *state, const char *moduleName,
                                  const SCRIPT_REG_ENTRY *registry) {
    if (state == nullptr || moduleName == nullptr || registry == nullptr) return 1;
    int entries = 0;
    for (const SCRIPT_REG_ENTRY *entry = registry; entry->name != nullptr; ++entry) ++entries;
    lua_createtable(state, 0, entries);
    for (const SCRIPT_REG_ENTRY *entry = registry; entry->name != nullptr; ++entry) {
        if (entry->func == nullptr) continue;
        lua_pushlightuserdata(state, reinterpret_cast<void *>(entry->func));
        lua_pushstring(state, entry->name);
        lua_pushcclosure(state, dispatch, 2);
        lua_setfield(state, -2, entry->name);
    }
    // package.loaded[moduleName] = module; _G[moduleName] = module
    lua_getglobal(state, "package");
    if (lua_istable(state, -1)) {
        lua_getfield(state, -1, "loaded");
        if (lua_istable(state, -1)) {
            lua_pushvalue(state, -3);
            lua_setfield(state, -2, moduleName);
        }
        lua_pop(state, 1);
    }
    lua_pop(state, 1);
    lua_pushvalue(state, -1);
    lua_setglobal(state, moduleName);
    return 0;
}

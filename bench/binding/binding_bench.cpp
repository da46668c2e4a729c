// The cost of the binding frame:
//  - one script call into the library (a constant-answer entry function, through the registry
//    and the dispatcher) against a no-op C function registered with luaL_setfuncs;
//  - one library open per script state against luaL_openlibs.
// Each figure is the best of several rounds, measured in the same run as its baseline.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
int luaopen_libqavluacommon(lua_State *state);
}

namespace {

using Clock = std::chrono::steady_clock;

int noop(lua_State *) { return 0; }
int constant(lua_State *state) {
    lua_pushinteger(state, 32);
    return 1;
}

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Runs `calls` calls of f in a Lua loop; returns seconds per call.
double time_calls(lua_State *state, const char *expression, long calls) {
    std::string chunk = "local f = " + std::string(expression) + "; local n = ...; for i = 1, n do f() end";
    if (luaL_loadstring(state, chunk.c_str()) != LUA_OK) {
        std::fprintf(stderr, "%s\n", lua_tostring(state, -1));
        std::exit(1);
    }
    lua_pushinteger(state, calls);
    auto start = Clock::now();
    if (lua_pcall(state, 1, 0, 0) != LUA_OK) {
        std::fprintf(stderr, "%s\n", lua_tostring(state, -1));
        std::exit(1);
    }
    return seconds_since(start) / static_cast<double>(calls);
}

template <typename Open> double time_opens(Open open, int count) {
    double total = 0;
    for (int i = 0; i < count; ++i) {
        lua_State *state = luaL_newstate();
        auto start = Clock::now();
        open(state);
        total += seconds_since(start);
        lua_close(state);
    }
    return total / count;
}

} // namespace

int main(int argc, char **argv) {
    long calls = argc > 1 ? std::atol(argv[1]) : 5000000;
    int opens = argc > 2 ? std::atoi(argv[2]) : 2000;
    const int rounds = 5;

    lua_State *state = luaL_newstate();
    luaL_openlibs(state);
    luaL_requiref(state, "libqavluacommon", luaopen_libqavluacommon, 1);
    lua_pop(state, 1);
    const luaL_Reg baseline[] = {{"noop", noop}, {"constant", constant}, {nullptr, nullptr}};
    lua_newtable(state);
    luaL_setfuncs(state, baseline, 0);
    lua_setglobal(state, "baseline");

    // The library's constant-answer functions; the argument-check path of the port assignment
    // stands in while they are not part of the build.
    lua_getglobal(state, "libqavluacommon");
    lua_getfield(state, -1, "qav_get_cputype");
    bool haveConstant = !lua_isnil(state, -1);
    lua_pop(state, 2);
    const char *entry = haveConstant ? "libqavluacommon.qav_get_cputype"
                                     : "function() return libqavluacommon.qav_luaAssignPortID() end";
    const char *base = haveConstant ? "baseline.noop" : "function() return baseline.noop() end";

    double bestEntry = 1e9, bestNoop = 1e9;
    for (int r = 0; r < rounds; ++r) {
        bestNoop = std::min(bestNoop, time_calls(state, base, calls));
        bestEntry = std::min(bestEntry, time_calls(state, entry, calls));
    }
    lua_close(state);

    double bestOpen = 1e9, bestLibs = 1e9;
    for (int r = 0; r < rounds; ++r) {
        bestLibs = std::min(bestLibs, time_opens([](lua_State *s) { luaL_openlibs(s); }, opens));
        bestOpen = std::min(bestOpen, time_opens(
                                          [](lua_State *s) {
                                              luaopen_libqavluacommon(s);
                                              lua_settop(s, 0);
                                          },
                                          opens));
    }

    std::printf("script call: %s %.1f ns, baseline luaL_setfuncs no-op %.1f ns, ratio %.2f\n",
                haveConstant ? "qav_get_cputype" : "qav_luaAssignPortID (argument check)", bestEntry * 1e9,
                bestNoop * 1e9, bestEntry / bestNoop);
    std::printf("library open: %.1f us per script state, baseline luaL_openlibs %.1f us, ratio %.2f\n",
                bestOpen * 1e6, bestLibs * 1e6, bestOpen / bestLibs);
    return 0;
}

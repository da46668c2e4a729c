// The cost of the binding frame:
//  - one script call into the library (a constant-answer entry function, through the registry
//    and the dispatcher) against a no-op C function registered with luaL_setfuncs;
//  - one library open per script state against luaL_openlibs.
// Each figure is the best of several rounds, measured in the same run as its baseline.
// usage: bench_binding [CALLS per round (default 5,000,000)] [OPENS per round (default 2,000)]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "../common/bench_row.h"

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
int luaopen_libqavluacommon(lua_State *state);
}

namespace {

using Clock = std::chrono::steady_clock;

int noop(lua_State *) {
    return 0;
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
    const luaL_Reg baseline[] = {{"noop", noop}, {nullptr, nullptr}};
    lua_newtable(state);
    luaL_setfuncs(state, baseline, 0);
    lua_setglobal(state, "baseline");

    const char *entry = "libqavluacommon.qav_get_cputype";
    const char *base = "baseline.noop";

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

    char figures[160];
    std::snprintf(figures, sizeof figures, "qav_get_cputype %.1f ns, no-op %.1f ns; best of %d",
                  bestEntry * 1e9, bestNoop * 1e9, rounds);
    BenchRow("script call into a constant-answer entry function", "no-op C function (luaL_setfuncs)",
             "<= 1.6", bestEntry / bestNoop, figures);
    std::snprintf(figures, sizeof figures, "%.1f us, luaL_openlibs %.1f us; best of %d", bestOpen * 1e6,
                  bestLibs * 1e6, rounds);
    BenchRow("library open per script state (306 functions)", "luaL_openlibs", "<= 1.6", bestOpen / bestLibs,
             figures);
    return 0;
}

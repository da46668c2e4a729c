// Small helpers the unit tests share: files, scratch directories, log lines, script states.
#pragma once

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

extern "C" {
#include <lauxlib.h>
#include <lualib.h>
int luaopen_libqavluacommon(lua_State *state);
}

#include "host.h"

namespace unit {

// The file's bytes, or "<missing>" when it cannot be read.
inline std::string Slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return in ? text.str() : "<missing>";
}

inline void Spill(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

// A fresh directory under /tmp.
inline std::string TempDir() {
    char pattern[] = "/tmp/qav-unit.XXXXXX";
    return mkdtemp(pattern) != nullptr ? pattern : "/tmp";
}

// How many lines of a log hold `text`.
inline size_t Logged(const char *log, const std::string &text) {
    size_t count = 0;
    for (const std::string &line : zakhost::log_messages(log))
        count += line.find(text) != std::string::npos ? 1 : 0;
    return count;
}

// A script state with the library opened the way `require` does.
inline lua_State *OpenState() {
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    luaL_requiref(L, "libqavluacommon", luaopen_libqavluacommon, 1);
    lua_pop(L, 1);
    return L;
}

} // namespace unit

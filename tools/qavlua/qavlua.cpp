// qavlua: runs device scripts off the device, inside a device sandbox, with libqavluacommon
// preloaded as the global `libqavluacommon`.
//
//   qavlua init R                          create the standard sandbox under R
//   qavlua [--root R] [--profile F] [-j N] script.lua [args...]
//   qavlua [--root R] [--profile F] -j N a.lua b.lua ...
//   qavlua sweep faults|power-cut|merge ...   (see docs/sweeps.md)
//   --coverage FILE writes the scripts' line coverage as an LCOV tracefile.
//
// With -j N the listed scripts run at once, each in its own script state and thread of this
// process (a single script is run N times); shared tables, locks and registers are shared.
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
int luaopen_libqavluacommon(lua_State *state);
int luaopen_zakhost(lua_State *state);
}

#include "host.h"
#include "script_hooks.h"
#include "sweep.h"

namespace {

int usage() {
    std::fprintf(stderr, "usage: qavlua init ROOT\n"
                         "       qavlua [--root ROOT] [--profile FILE] script.lua [args...]\n"
                         "       qavlua [--root ROOT] [--profile FILE] -j N script.lua [script.lua...]\n"
                         "       qavlua sweep faults|power-cut|merge ... (qavlua sweep for help)\n"
                         "options: --coverage FILE  line coverage of the scripts as an LCOV tracefile\n");
    return 2;
}

std::string absolute(const std::string &path) {
    if (!path.empty() && path[0] == '/') return path;
    char cwd[PATH_MAX];
    if (getcwd(cwd, sizeof cwd) == nullptr) return path;
    return std::string(cwd) + "/" + path;
}

std::string directory_of(const std::string &path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

std::string self_lib_dir() {
    char exe[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0) return "";
    exe[n] = '\0';
    return directory_of(directory_of(exe)) + "/lib";
}

int traceback(lua_State *state) {
    const char *message = lua_tostring(state, 1);
    luaL_traceback(state, state, message != nullptr ? message : "(error object is not a string)", 1);
    return 1;
}

// One script state running one script; returns 0 on success.
int run_script(const std::string &script, const std::vector<std::string> &args, int worker) {
    lua_State *state = luaL_newstate();
    if (state == nullptr) return 1;
    luaL_openlibs(state);
    // Modules next to the library (zakhost.so) and next to the script.
    lua_getglobal(state, "package");
    std::string cpath = self_lib_dir() + "/?.so;";
    lua_getfield(state, -1, "cpath");
    cpath += lua_tostring(state, -1) != nullptr ? lua_tostring(state, -1) : "";
    lua_pop(state, 1);
    lua_pushstring(state, cpath.c_str());
    lua_setfield(state, -2, "cpath");
    std::string path = directory_of(script) + "/?.lua;";
    lua_getfield(state, -1, "path");
    path += lua_tostring(state, -1) != nullptr ? lua_tostring(state, -1) : "";
    lua_pop(state, 1);
    lua_pushstring(state, path.c_str());
    lua_setfield(state, -2, "path");
    lua_pop(state, 1);

    luaL_requiref(state, "libqavluacommon", luaopen_libqavluacommon, 1);
    lua_pop(state, 1);
    lua_pushinteger(state, worker);
    lua_setglobal(state, "QAVLUA_WORKER");

    lua_createtable(state, static_cast<int>(args.size()), 1);
    lua_pushstring(state, script.c_str());
    lua_rawseti(state, -2, 0);
    for (size_t i = 0; i < args.size(); ++i) {
        lua_pushstring(state, args[i].c_str());
        lua_rawseti(state, -2, static_cast<int>(i + 1));
    }
    lua_setglobal(state, "arg");

    qavlua::script_begin(state);
    lua_pushcfunction(state, traceback);
    int status = luaL_loadfile(state, script.c_str());
    if (status == LUA_OK) {
        for (const auto &a : args)
            lua_pushstring(state, a.c_str());
        status = lua_pcall(state, static_cast<int>(args.size()), 0, 1);
    }
    qavlua::script_end(state, status);
    if (status != LUA_OK) {
        const char *message = lua_tostring(state, -1);
        std::fprintf(stderr, "qavlua: %s\n", message != nullptr ? message : "(error object is not a string)");
    }
    lua_close(state);
    return status == LUA_OK ? 0 : 1;
}

} // namespace

int main(int argc, char **argv) {
    std::vector<std::string> a(argv + 1, argv + argc);
    if (!a.empty() && a[0] == "sweep") return qavlua::sweep_main({a.begin() + 1, a.end()});
    if (a.size() == 2 && a[0] == "init") {
        std::string error = zakhost::init_sandbox(absolute(a[1]));
        if (!error.empty()) {
            std::fprintf(stderr, "qavlua init: %s\n", error.c_str());
            return 1;
        }
        std::printf("device sandbox ready in %s\n", absolute(a[1]).c_str());
        return 0;
    }

    std::string root = std::getenv("ZAKHOST_ROOT") != nullptr ? std::getenv("ZAKHOST_ROOT") : "";
    std::string profile;
    int jobs = 0;
    size_t i = 0;
    for (; i < a.size(); ++i) {
        if (a[i] == "--root" && i + 1 < a.size()) {
            root = a[++i];
        } else if (a[i] == "--profile" && i + 1 < a.size()) {
            profile = absolute(a[++i]);
        } else if (a[i] == "--coverage" && i + 1 < a.size()) {
            qavlua::coverage_to(absolute(a[++i]));
        } else if (a[i] == "-j" && i + 1 < a.size()) {
            jobs = std::atoi(a[++i].c_str());
            if (jobs < 1) return usage();
        } else {
            break;
        }
    }
    if (i >= a.size()) return usage();
    if (root.empty()) {
        std::fprintf(stderr, "qavlua: no device sandbox: give --root ROOT or set ZAKHOST_ROOT "
                             "(create one with 'qavlua init ROOT')\n");
        return 2;
    }
    root = absolute(root);
    std::string workdir = root + "/zakv8/main/bin";
    if (access(workdir.c_str(), F_OK) != 0) {
        std::fprintf(stderr, "qavlua: %s is not a device sandbox (run 'qavlua init %s')\n", root.c_str(),
                     root.c_str());
        return 2;
    }
    std::vector<std::string> scripts;
    std::vector<std::string> args;
    if (jobs > 0) {
        for (; i < a.size(); ++i)
            scripts.push_back(absolute(a[i]));
        if (scripts.size() == 1) scripts.assign(static_cast<size_t>(jobs), scripts[0]);
    } else {
        scripts.push_back(absolute(a[i]));
        args.assign(a.begin() + static_cast<long>(i) + 1, a.end());
    }

    setenv("ZAKHOST_ROOT", root.c_str(), 1);
    setenv("ZAKHOST_LOG_DIR", (root + "/log").c_str(), 1);
    if (!profile.empty()) setenv("ZAKHOST_PROFILE", profile.c_str(), 1);
    zakhost::reset_environment();
    if (chdir(workdir.c_str()) != 0) {
        std::perror("qavlua: chdir");
        return 2;
    }

    if (jobs == 0) return run_script(scripts[0], args, 1);

    std::atomic<size_t> next{0};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    size_t width = std::min(static_cast<size_t>(jobs), scripts.size());
    for (size_t t = 0; t < width; ++t) {
        threads.emplace_back([&] {
            for (size_t k = next++; k < scripts.size(); k = next++)
                if (run_script(scripts[k], {}, static_cast<int>(k + 1)) != 0) ++failures;
        });
    }
    for (auto &t : threads)
        t.join();
    return failures == 0 ? 0 : 1;
}

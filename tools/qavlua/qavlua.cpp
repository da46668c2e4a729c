// qavlua-engine: the Lua interpreter of qavlua, with libqavluacommon preloaded as the global
// `libqavluacommon`. `qavlua` starts it inside the device jail (ZAKHOST_JAILED=1, the device root
// is /), or without one for --no-jail; it takes the same command line (options.h).
//
// With -j N the listed scripts run at once, each in its own script state and thread of this
// process (a single script is run N times); shared tables, locks and registers are shared.
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
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

#include "check.h"
#include "host.h"
#include "options.h"
#include "script_hooks.h"
#include "sweep.h"

namespace {

std::string self_lib_dir() {
    char exe[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0) return "";
    exe[n] = '\0';
    return qavlua::DirectoryOf(qavlua::DirectoryOf(exe)) + "/lib";
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
    std::string path = qavlua::DirectoryOf(script) + "/?.lua;";
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

// Runs the scripts in this process with the device root in force (ZAKHOST_ROOT, "/" in the jail).
int run_here(const qavlua::Options &o) {
    std::string root = o.root.empty() ? "/" : qavlua::Absolute(o.root);
    while (root.size() > 1 && root.back() == '/')
        root.pop_back();
    std::string prefix = root == "/" ? "" : root;
    if (!qavlua::Exists(prefix + zakhost::kCommonRoot + "/bin")) {
        std::fprintf(stderr, "qavlua: %s is not a device sandbox (run 'qavlua init %s')\n", root.c_str(),
                     root.c_str());
        return 2;
    }
    setenv("ZAKHOST_ROOT", root.c_str(), 1);
    setenv("ZAKHOST_LOG_DIR", (prefix + "/log").c_str(), 0);
    if (!o.profile.empty()) setenv("ZAKHOST_PROFILE", o.profile.c_str(), 1);
    zakhost::reset_environment();
    if (chdir((prefix + zakhost::kCommonRoot + "/bin").c_str()) != 0) {
        std::perror("qavlua: chdir");
        return 2;
    }
    if (o.jobs == 0) return run_script(o.scripts[0], o.args, 1);

    std::vector<std::string> scripts = o.scripts;
    if (scripts.size() == 1) scripts.assign(static_cast<size_t>(o.jobs), scripts[0]);
    std::atomic<size_t> next{0};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    size_t width = std::min(static_cast<size_t>(o.jobs), scripts.size());
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

int init_here(const qavlua::Options &o) {
    std::string root = qavlua::Absolute(o.root);
    if (!qavlua::Exists(root) && mkdir(root.c_str(), 0700) != 0) {
        std::fprintf(stderr, "qavlua init: %s: %s\n", root.c_str(), std::strerror(errno));
        return 1;
    }
    std::string error = zakhost::init_sandbox(root == "/" ? "" : root);
    if (!error.empty()) {
        std::fprintf(stderr, "qavlua init: %s\n", error.c_str());
        return 1;
    }
    const char *shown = std::getenv("QAVLUA_SANDBOX_SHOWN");
    std::printf("device sandbox ready in %s\n", shown != nullptr ? shown : root.c_str());
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    if (argc >= 2 && std::strcmp(argv[1], "check") == 0)
        return qavlua_check(std::vector<std::string>(argv + 2, argv + argc));
    if (argc >= 2 && std::strcmp(argv[1], "sweep") == 0)
        return qavlua::sweep_main(std::vector<std::string>(argv + 2, argv + argc));
    qavlua::Options o = qavlua::ParseCommandLine(std::vector<std::string>(argv + 1, argv + argc));
    if (int status = qavlua::Answer(o); status >= 0) return status;
    // Only in the jail, or where the user said in so many words that there is none.
    if (!zakhost::jailed() && !o.noJail) {
        std::fprintf(stderr, "qavlua-engine: scripts run in the device jail: start them with qavlua "
                             "(or give --no-jail)\n");
        return 2;
    }
    if (o.command == qavlua::Command::Init) return init_here(o);
    if (!o.coverage.empty()) qavlua::coverage_to(o.coverage);
    return run_here(o);
}

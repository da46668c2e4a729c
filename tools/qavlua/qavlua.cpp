// qavlua: runs device scripts off the device, inside a device sandbox, with libqavluacommon
// preloaded as the global `libqavluacommon`.
//
//   qavlua init ROOT                       create the standard sandbox under ROOT
//   qavlua [options] script.lua [args...]
//   qavlua [options] -j N a.lua b.lua ...
//
// Every run happens in the device jail (jail.h): ROOT is the root file system the script and the
// commands it starts see. With -j N the listed scripts run at once, each in its own script state and
// thread of one process in one jail (a single script is run N times); shared tables, locks and
// registers are shared.
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

#include "host.h"
#include "jail.h"

namespace {

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

    lua_pushcfunction(state, traceback);
    int status = luaL_loadfile(state, script.c_str());
    if (status == LUA_OK) {
        for (const auto &a : args)
            lua_pushstring(state, a.c_str());
        status = lua_pcall(state, static_cast<int>(args.size()), 0, 1);
    }
    if (status != LUA_OK) {
        const char *message = lua_tostring(state, -1);
        std::fprintf(stderr, "qavlua: %s\n", message != nullptr ? message : "(error object is not a string)");
    }
    lua_close(state);
    return status == LUA_OK ? 0 : 1;
}

constexpr const char *kUsage =
    "usage: qavlua init ROOT                       create a device sandbox\n"
    "       qavlua [options] script.lua [args...]  run a script in the sandbox\n"
    "       qavlua [options] -j N a.lua [b.lua...] run scripts at once (one script: N copies)\n"
    "options:\n"
    "  --root ROOT        the device sandbox (default: $ZAKHOST_ROOT)\n"
    "  --profile FILE     the device profile (default: ROOT/zakhost.ini)\n"
    "  -j N               script states at once, 1 to 256\n"
    "  --ro-bind PATH     keep a host file or directory visible, read-only, in the jail\n"
    "  --no-jail          no jail: the platform's paths are relocated into ROOT but nothing is\n"
    "                     confined, and the host runs no command (see the README)\n"
    "  -h, --help         this text;  --version  the version\n";

// The most script states one run may have: each is a thread of the runner's process.
constexpr long kMaxJobs = 256;

int usage_error(const std::string &why) {
    std::fprintf(stderr, "qavlua: %s\n%s", why.c_str(), kUsage);
    return 2;
}

struct Options {
    std::string root;
    std::string profile;
    long jobs = 0;
    bool noJail = false;
    std::vector<std::string> readOnly;
    std::vector<std::string> scripts;
    std::vector<std::string> args;
};

std::string resolved(const std::string &path) {
    char buffer[PATH_MAX];
    return realpath(path.c_str(), buffer) != nullptr ? std::string(buffer) : absolute(path);
}

bool exists(const std::string &path) {
    return access(path.c_str(), F_OK) == 0;
}

// "1".."256" and nothing else.
bool parse_jobs(const std::string &text, long *jobs) {
    if (text.empty() || text.size() > 4 || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    *jobs = std::strtol(text.c_str(), nullptr, 10);
    return *jobs >= 1 && *jobs <= kMaxJobs;
}

// Runs the scripts in this process with the device root in force (ZAKHOST_ROOT, "/" in the jail).
int run_here(const Options &o) {
    const char *envRoot = std::getenv("ZAKHOST_ROOT");
    std::string root = !o.root.empty() ? absolute(o.root) : envRoot != nullptr ? envRoot : "";
    while (root.size() > 1 && root.back() == '/')
        root.pop_back();
    std::string workdir = (root == "/" ? "" : root) + "/zakv8/main/bin";
    setenv("ZAKHOST_ROOT", root.c_str(), 1);
    setenv("ZAKHOST_LOG_DIR", ((root == "/" ? "" : root) + "/log").c_str(), 0);
    if (!o.profile.empty()) setenv("ZAKHOST_PROFILE", o.profile.c_str(), 1);
    zakhost::reset_environment();
    if (chdir(workdir.c_str()) != 0) {
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

// What the jail must keep visible for a host path the run names: a directory itself; for a file,
// its directory (neighbouring modules and data), or the file alone where that directory is the
// root, /tmp or holds R (binding it would hide the jail's own).
void keep_visible(const std::string &path, const std::string &root, std::vector<std::string> *readOnly) {
    if (path.empty() || path[0] != '/' || !exists(path)) return;
    std::string real = resolved(path);
    struct stat st {};
    std::string dir = stat(real.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? real : directory_of(real);
    if (dir.empty()) dir = "/";
    bool broad = dir == "/" || dir == "/tmp" || root.compare(0, dir.size() + 1, dir + "/") == 0;
    if (!broad)
        readOnly->push_back(dir);
    else if (dir != real)
        readOnly->push_back(real);
}

// The path a host path inside R has in the jail; other paths stay as they are.
std::string in_jail(const std::string &path, const std::string &root) {
    if (path.empty() || path[0] != '/') return path;
    std::string real = exists(path) ? resolved(path) : path;
    if (real == root) return "/";
    if (real.compare(0, root.size() + 1, root + "/") == 0) return real.substr(root.size());
    return path;
}

// The runner's own command inside the jail. A runner built for another machine runs under an
// emulator there too: QAVLUA_EMULATOR names it, with its arguments, separated by blanks.
std::vector<std::string> inner_runner() {
    std::vector<std::string> command;
    const char *emulator = std::getenv("QAVLUA_EMULATOR");
    std::string words = emulator != nullptr ? emulator : "";
    for (size_t start = words.find_first_not_of(' '); start != std::string::npos;
         start = words.find_first_not_of(' ', start)) {
        size_t end = words.find(' ', start);
        command.push_back(words.substr(start, end - start));
        start = end;
    }
    command.push_back(resolved("/proc/self/exe"));
    return command;
}

int run_jailed(const Options &o) {
    qavlua::JailPlan plan;
    plan.root = o.root;
    std::string exe = resolved("/proc/self/exe");
    plan.readOnly.push_back(directory_of(directory_of(exe))); // the build or install tree
    plan.writable.push_back(o.root); // R at its own path too, for paths a caller hands in
    for (const std::string &p : o.readOnly)
        plan.readOnly.push_back(resolved(p));
    // Module directories of LUA_PATH and LUA_CPATH ("dir/?.lua;...").
    for (const char *name : {"LUA_PATH", "LUA_CPATH", "LUA_PATH_5_4", "LUA_CPATH_5_4"}) {
        const char *value = std::getenv(name);
        std::string text = value != nullptr ? value : "";
        for (size_t start = 0; start < text.size();) {
            size_t end = text.find(';', start);
            if (end == std::string::npos) end = text.size();
            std::string entry = text.substr(start, end - start);
            size_t mark = entry.find('?');
            if (mark != std::string::npos && mark > 0 && exists(directory_of(entry.substr(0, mark + 1))))
                plan.readOnly.push_back(resolved(directory_of(entry.substr(0, mark + 1))));
            start = end + 1;
        }
    }
    std::vector<std::string> inner = inner_runner();
    if (!o.profile.empty()) {
        keep_visible(o.profile, o.root, &plan.readOnly);
        plan.env.emplace_back("ZAKHOST_PROFILE", in_jail(o.profile, o.root));
    }
    if (const char *logs = std::getenv("ZAKHOST_LOG_DIR"); logs != nullptr && *logs != '\0') {
        std::string dir = resolved(logs);
        if (in_jail(dir, o.root) == dir) plan.writable.push_back(dir);
        plan.env.emplace_back("ZAKHOST_LOG_DIR", in_jail(dir, o.root));
    }
    if (o.jobs > 0) inner.insert(inner.end(), {"-j", std::to_string(o.jobs)});
    for (const std::string &s : o.scripts) {
        if (in_jail(s, o.root) == s) keep_visible(s, o.root, &plan.readOnly);
        inner.push_back(in_jail(s, o.root));
    }
    for (const std::string &a : o.args) {
        if (in_jail(a, o.root) == a) keep_visible(a, o.root, &plan.readOnly);
        inner.push_back(in_jail(a, o.root));
    }
    const char *path = std::getenv("PATH");
    plan.env.emplace_back("PATH",
                          std::string("/opt/zakhost/bin:") + (path != nullptr ? path : "/usr/bin:/bin"));
    plan.env.emplace_back("ZAKHOST_ROOT", "/");
    plan.env.emplace_back("ZAKHOST_JAILED", "1");
    plan.workdir = "/zakv8/main/bin";
    plan.command = inner;
    return qavlua::RunInJail(plan);
}

// `qavlua init ROOT`: the layout is written from inside the jail too, so that nothing R already
// holds (a link left by a script) can steer a write out of it.
int init(const std::string &given, bool noJail) {
    std::string root = absolute(given);
    if (!exists(root) && mkdir(root.c_str(), 0700) != 0) {
        std::fprintf(stderr, "qavlua init: %s: %s\n", root.c_str(), std::strerror(errno));
        return 1;
    }
    std::string shown =
        std::getenv("QAVLUA_SANDBOX_SHOWN") != nullptr ? std::getenv("QAVLUA_SANDBOX_SHOWN") : root;
    if (!noJail && !zakhost::jailed()) {
        root = resolved(root);
        if (root == "/") return usage_error("the device root cannot be / (the machine itself)");
        qavlua::JailPlan plan;
        plan.root = root;
        std::string exe = resolved("/proc/self/exe");
        plan.readOnly.push_back(directory_of(directory_of(exe)));
        plan.env = {{"ZAKHOST_ROOT", "/"}, {"ZAKHOST_JAILED", "1"}, {"QAVLUA_SANDBOX_SHOWN", shown}};
        plan.workdir = "/";
        plan.command = inner_runner();
        plan.command.insert(plan.command.end(), {"init", "/"});
        return qavlua::RunInJail(plan);
    }
    std::string error = zakhost::init_sandbox(root == "/" ? "" : root);
    if (!error.empty()) {
        std::fprintf(stderr, "qavlua init: %s\n", error.c_str());
        return 1;
    }
    std::printf("device sandbox ready in %s\n", shown.c_str());
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    std::vector<std::string> a(argv + 1, argv + argc);
    Options o;
    const char *envRoot = std::getenv("ZAKHOST_ROOT");
    o.root = envRoot != nullptr ? envRoot : "";
    size_t i = 0;
    for (; i < a.size() && !a[i].empty() && a[i][0] == '-'; ++i) {
        const std::string &opt = a[i];
        bool hasValue = i + 1 < a.size();
        if (opt == "-h" || opt == "--help") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (opt == "--version") {
            std::printf("qavlua %s (%s)\n", QAVLUA_VERSION, LUA_RELEASE);
            return 0;
        } else if (opt == "--no-jail") {
            o.noJail = true;
        } else if (opt == "--root" && hasValue) {
            o.root = a[++i];
        } else if (opt == "--profile" && hasValue) {
            o.profile = absolute(a[++i]);
            if (!exists(o.profile)) return usage_error("no profile " + o.profile);
        } else if (opt == "--ro-bind" && hasValue) {
            if (!exists(a[i + 1])) return usage_error("no such path to keep visible: " + a[i + 1]);
            o.readOnly.push_back(absolute(a[++i]));
        } else if (opt == "-j" && hasValue) {
            if (!parse_jobs(a[++i], &o.jobs))
                return usage_error("-j takes a number of script states from 1 to " +
                                   std::to_string(kMaxJobs));
        } else {
            bool takesValue = opt == "--root" || opt == "--profile" || opt == "--ro-bind" || opt == "-j";
            return usage_error(takesValue ? opt + " needs a value" : "unknown option " + opt);
        }
    }
    if (i < a.size() && a[i] == "init") {
        if (i + 2 != a.size()) return usage_error("init takes one directory");
        return init(a[i + 1], o.noJail);
    }
    if (i >= a.size()) return usage_error("no script to run");
    // In the jail the device root is the jail's root, whatever is given for it (an empty
    // `zakhost.root()` included).
    if (zakhost::jailed() && o.root.empty()) o.root = "/";
    if (o.root.empty())
        return usage_error("no device sandbox: give --root ROOT or set ZAKHOST_ROOT (create one with "
                           "'qavlua init ROOT')");
    std::string root = absolute(o.root);
    if (!exists(root + "/zakv8/main/bin")) {
        std::fprintf(stderr, "qavlua: %s is not a device sandbox (run 'qavlua init %s')\n", root.c_str(),
                     root.c_str());
        return 2;
    }
    if (o.jobs > 0) {
        for (; i < a.size(); ++i)
            o.scripts.push_back(absolute(a[i]));
    } else {
        o.scripts.push_back(absolute(a[i]));
        o.args.assign(a.begin() + static_cast<long>(i) + 1, a.end());
    }
    // Inside the jail (a script that starts qavlua again) the jail already confines the run.
    if (o.noJail || zakhost::jailed()) return run_here(o);
    o.root = resolved(root);
    if (o.root == "/") return usage_error("the device root cannot be / (the machine itself)");
    return run_jailed(o);
}

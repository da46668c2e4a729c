// qavlua: runs device scripts off the device, in a device sandbox, with libqavluacommon preloaded
// as the global `libqavluacommon`.
//
//   qavlua init ROOT                       create the standard sandbox under ROOT
//   qavlua [options] script.lua [args...]
//   qavlua [options] -j N a.lua b.lua ...
//
// This program only builds the device jail (jail.h) and starts the engine (`qavlua-engine`, the
// Lua interpreter with the library, qavlua.cpp) inside it, so it loads neither Lua nor the
// library: a jailed start costs little more than the engine's own start and bubblewrap's. Without
// a jail (--no-jail), inside one already, and for the engine's own commands it hands the whole
// command line to the engine.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "jail.h"
#include "options.h"

namespace {

using qavlua::Absolute;
using qavlua::DirectoryOf;
using qavlua::Exists;
using qavlua::Resolved;

// Commands the engine answers itself, outside any jail (they run no device script here).
constexpr const char *kEngineCommands[] = {"check", "sweep"};

std::string engine_path() {
    return DirectoryOf(Resolved("/proc/self/exe")) + "/qavlua-engine";
}

bool jailed() {
    const char *value = std::getenv("ZAKHOST_JAILED");
    return value != nullptr && std::strcmp(value, "1") == 0;
}

// The engine's command inside the jail. An engine built for another machine runs under an
// emulator there too: QAVLUA_EMULATOR names it, with its arguments, separated by blanks.
std::vector<std::string> engine_command() {
    std::vector<std::string> command;
    const char *emulator = std::getenv("QAVLUA_EMULATOR");
    std::string words = emulator != nullptr ? emulator : "";
    for (size_t start = words.find_first_not_of(' '); start != std::string::npos;
         start = words.find_first_not_of(' ', start)) {
        size_t end = words.find(' ', start);
        command.push_back(words.substr(start, end - start));
        start = end;
    }
    command.push_back(engine_path());
    return command;
}

// Hands the whole command line to the engine (under its emulator, if any).
[[noreturn]] void exec_engine(char **argv) {
    std::vector<std::string> command = engine_command();
    std::vector<char *> words;
    for (std::string &word : command)
        words.push_back(word.data());
    for (char **arg = argv + 1; *arg != nullptr; ++arg)
        words.push_back(*arg);
    words.push_back(nullptr);
    execv(words[0], words.data());
    std::fprintf(stderr, "qavlua: cannot start %s: %s\n", words[0], std::strerror(errno));
    std::exit(2);
}

// The plan every jail of this runner starts from: R, the runner's own tree, the jail's settings.
qavlua::JailPlan base_plan(const std::string &root) {
    qavlua::JailPlan plan;
    plan.root = root;
    plan.readOnly.push_back(DirectoryOf(DirectoryOf(engine_path()))); // the build or install tree
    plan.writable.push_back(root); // R at its own path too, for paths a caller hands in
    const char *path = std::getenv("PATH");
    plan.env = {{"PATH", std::string("/opt/zakhost/bin:") + (path != nullptr ? path : "/usr/bin:/bin")},
                {"ZAKHOST_ROOT", "/"},
                {"ZAKHOST_JAILED", "1"}};
    plan.command = engine_command();
    // A runner named by QAVLUA_EXE (a wrapper that starts it under an emulator) and its neighbours.
    if (const char *exe = std::getenv("QAVLUA_EXE"); exe != nullptr && *exe == '/' && Exists(exe))
        plan.readOnly.push_back(DirectoryOf(Resolved(exe)));
    // What the emulator names (its target libraries, "-E LD_LIBRARY_PATH=a:b") must be there too.
    for (size_t i = 0; i + 1 < plan.command.size(); ++i) {
        std::string word = plan.command[i].substr(plan.command[i].find('=') + 1);
        for (size_t start = 0; start < word.size();) {
            size_t end = std::min(word.find(':', start), word.size());
            std::string path = word.substr(start, end - start);
            if (!path.empty() && path[0] == '/' && Exists(path)) plan.readOnly.push_back(Resolved(path));
            start = end + 1;
        }
    }
    return plan;
}

// What the jail must keep visible for a host path the run names: a directory itself; for a file,
// its directory (neighbouring modules and data), or the file alone where that directory is the
// root or /tmp (binding them would hide the jail's own). A directory holding R may be bound: R's
// own bind comes after it.
void keep_visible(const std::string &path, std::vector<std::string> *readOnly) {
    if (path.empty() || path[0] != '/' || !Exists(path)) return;
    std::string real = Resolved(path);
    struct stat st {};
    std::string dir = stat(real.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? real : DirectoryOf(real);
    bool broad = dir == "/" || dir == "/tmp";
    if (!broad)
        readOnly->push_back(dir);
    else if (dir != real)
        readOnly->push_back(real);
}

// The path a host path inside R has in the jail; other paths stay as they are.
std::string in_jail(const std::string &path, const std::string &root) {
    if (path.empty() || path[0] != '/') return path;
    std::string real = Exists(path) ? Resolved(path) : path;
    if (real == root) return "/";
    if (real.compare(0, root.size() + 1, root + "/") == 0) return real.substr(root.size());
    return path;
}

// A path that the run names: visible in the jail, under the name it has there.
std::string named_path(const std::string &path, qavlua::JailPlan *plan) {
    std::string inside = in_jail(path, plan->root);
    if (inside != path || path.empty() || path[0] != '/' || !Exists(path)) return inside;
    keep_visible(path, &plan->readOnly);
    return Resolved(path); // what is bound: "a/../b" may not exist in the jail, "b" does
}

constexpr const char *kCoverageInR = "/.qavlua-coverage.info";

// Copies a file the jail left in R (a plain file, never a link a script put there) to `to`, and
// removes it from R.
bool move_out_of_root(const std::string &from, const std::string &to) {
    int in = open(from.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (in < 0) return false;
    struct stat st {};
    bool ok = fstat(in, &st) == 0 && S_ISREG(st.st_mode);
    int out = ok ? open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644) : -1;
    char buffer[65536];
    ssize_t n = 0;
    while (out >= 0 && (n = read(in, buffer, sizeof buffer)) > 0)
        ok = ok && write(out, buffer, static_cast<size_t>(n)) == n;
    ok = ok && out >= 0 && n == 0;
    if (out >= 0 && close(out) != 0) ok = false;
    close(in);
    unlink(from.c_str());
    return ok;
}

int run_jailed(const qavlua::Options &o, const std::string &root) {
    qavlua::JailPlan plan = base_plan(root);
    for (const std::string &p : o.readOnly)
        plan.readOnly.push_back(Resolved(p));
    // Module directories of LUA_PATH and LUA_CPATH ("dir/?.lua;...").
    for (const char *name : {"LUA_PATH", "LUA_CPATH", "LUA_PATH_5_4", "LUA_CPATH_5_4"}) {
        const char *value = std::getenv(name);
        std::string text = value != nullptr ? value : "";
        for (size_t start = 0; start < text.size();) {
            size_t end = text.find(';', start);
            if (end == std::string::npos) end = text.size();
            std::string entry = text.substr(start, end - start);
            size_t mark = entry.find('?');
            std::string dir = mark != std::string::npos ? DirectoryOf(entry.substr(0, mark + 1)) : "";
            if (!dir.empty() && dir[0] == '/' && Exists(dir)) plan.readOnly.push_back(Resolved(dir));
            start = end + 1;
        }
    }
    if (!o.profile.empty()) plan.env.emplace_back("ZAKHOST_PROFILE", named_path(o.profile, &plan));
    if (const char *logs = std::getenv("ZAKHOST_LOG_DIR"); logs != nullptr && *logs != '\0') {
        std::string dir = Resolved(logs);
        if (in_jail(dir, root) == dir) plan.writable.push_back(dir);
        plan.env.emplace_back("ZAKHOST_LOG_DIR", in_jail(dir, root));
    }
    // The engine writes the tracefile inside R; the runner moves it to where it was asked for
    // afterwards, so the jail needs no writable way out.
    std::string coverage;
    if (!o.coverage.empty()) {
        coverage = Resolved(DirectoryOf(o.coverage)) + "/" + o.coverage.substr(o.coverage.rfind('/') + 1);
        std::string inside = in_jail(coverage, root);
        plan.command.insert(plan.command.end(), {"--coverage", inside != coverage ? inside : kCoverageInR});
        if (inside != coverage) coverage.clear();
    }
    if (o.jobs > 0) plan.command.insert(plan.command.end(), {"-j", std::to_string(o.jobs)});
    for (const std::string &s : o.scripts)
        plan.command.push_back(named_path(s, &plan));
    for (const std::string &a : o.args)
        plan.command.push_back(named_path(a, &plan));
    plan.workdir = "/zakv8/main/bin";
    int status = qavlua::RunInJail(plan);
    if (!coverage.empty() && !move_out_of_root(root + kCoverageInR, coverage)) {
        std::fprintf(stderr, "qavlua: cannot write the coverage file %s\n", coverage.c_str());
        if (status == 0) status = 1;
    }
    return status;
}

// `qavlua init ROOT`: the layout is written from inside the jail too, so that nothing R already
// holds (a link left by a script) can steer a write out of it.
int init(const std::string &given) {
    std::string root = Absolute(given);
    if (!Exists(root) && mkdir(root.c_str(), 0700) != 0) {
        std::fprintf(stderr, "qavlua init: %s: %s\n", root.c_str(), std::strerror(errno));
        return 1;
    }
    qavlua::JailPlan plan = base_plan(Resolved(root));
    if (plan.root == "/") return qavlua::UsageError("the device root cannot be / (the machine itself)");
    plan.env.emplace_back("QAVLUA_SANDBOX_SHOWN", root);
    plan.workdir = "/";
    plan.command.insert(plan.command.end(), {"init", "/"});
    return qavlua::RunInJail(plan);
}

} // namespace

int main(int argc, char **argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    for (const char *command : kEngineCommands)
        if (!words.empty() && words[0] == command) exec_engine(argv);
    qavlua::Options o = qavlua::ParseCommandLine(words);
    if (int status = qavlua::Answer(o); status >= 0) return status;
    // Inside the jail (a script that starts qavlua again) the jail already confines the run.
    if (o.noJail || jailed()) exec_engine(argv);
    if (o.command == qavlua::Command::Init) return init(o.root);
    if (o.root.empty())
        return qavlua::UsageError("no device sandbox: give --root ROOT or set ZAKHOST_ROOT (create one with "
                                  "'qavlua init ROOT')");
    std::string root = Absolute(o.root);
    if (!Exists(root + "/zakv8/main/bin")) {
        std::fprintf(stderr, "qavlua: %s is not a device sandbox (run 'qavlua init %s')\n", root.c_str(),
                     root.c_str());
        return 2;
    }
    root = Resolved(root);
    if (root == "/") return qavlua::UsageError("the device root cannot be / (the machine itself)");
    return run_jailed(o, root);
}

#include "options.h"

#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>

extern "C" {
#include <lua.h>
}

namespace qavlua {

const char *const kUsage =
    "usage: qavlua init ROOT                       create a device sandbox\n"
    "       qavlua [options] script.lua [args...]  run a script in the sandbox\n"
    "       qavlua [options] -j N a.lua [b.lua...] run scripts at once (one script: N copies)\n"
    "       qavlua check FILE...                    check scripts' library calls (names, counts)\n"
    "       qavlua sweep faults|power-cut|merge ... sweep a script (qavlua sweep for help)\n"
    "options:\n"
    "  --root ROOT        the device sandbox (default: $ZAKHOST_ROOT)\n"
    "  --profile FILE     the device profile (default: ROOT/zakhost.ini)\n"
    "  -j N               script states at once, 1 to 256\n"
    "  --ro-bind PATH     keep a host file or directory visible, read-only, in the jail\n"
    "  --coverage FILE    write the scripts' line coverage to FILE (LCOV tracefile)\n"
    "  --no-jail          no jail: the platform's paths are relocated into ROOT but nothing is\n"
    "                     confined, and the host runs no command (see the README)\n"
    "  -h, --help         this text;  --version  the version\n";

int UsageError(const std::string &why) {
    std::fprintf(stderr, "qavlua: %s\n%s", why.c_str(), kUsage);
    return 2;
}

int Answer(const Options &o) {
    switch (o.command) {
    case Command::Help:
        std::fputs(kUsage, stdout);
        return 0;
    case Command::Version:
        std::printf("qavlua %s (%s)\n", QAVLUA_VERSION, LUA_RELEASE);
        return 0;
    case Command::Error:
        return UsageError(o.error);
    default:
        return -1;
    }
}

std::string Absolute(const std::string &path) {
    if (!path.empty() && path[0] == '/') return path;
    char cwd[PATH_MAX];
    if (getcwd(cwd, sizeof cwd) == nullptr) return path;
    return std::string(cwd) + "/" + path;
}

std::string Resolved(const std::string &path) {
    char buffer[PATH_MAX];
    return realpath(path.c_str(), buffer) != nullptr ? std::string(buffer) : Absolute(path);
}

std::string DirectoryOf(const std::string &path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

bool Exists(const std::string &path) {
    return access(path.c_str(), F_OK) == 0;
}

namespace {

// "1".."256" and nothing else.
bool ParseJobs(const std::string &text, long *jobs) {
    if (text.empty() || text.size() > 4 || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    *jobs = std::strtol(text.c_str(), nullptr, 10);
    return *jobs >= 1 && *jobs <= kMaxJobs;
}

Options Error(std::string why) {
    Options o;
    o.error = std::move(why);
    return o;
}

} // namespace

Options ParseCommandLine(const std::vector<std::string> &a) {
    Options o;
    const char *envRoot = std::getenv("ZAKHOST_ROOT");
    o.root = envRoot != nullptr ? envRoot : "";
    size_t i = 0;
    for (; i < a.size() && !a[i].empty() && a[i][0] == '-'; ++i) {
        const std::string &opt = a[i];
        bool hasValue = i + 1 < a.size();
        if (opt == "-h" || opt == "--help") {
            o.command = Command::Help;
            return o;
        } else if (opt == "--version") {
            o.command = Command::Version;
            return o;
        } else if (opt == "--no-jail") {
            o.noJail = true;
        } else if (opt == "--root" && hasValue) {
            o.root = a[++i];
        } else if (opt == "--profile" && hasValue) {
            o.profile = Absolute(a[++i]);
            if (!Exists(o.profile)) return Error("no profile " + o.profile);
        } else if (opt == "--coverage" && hasValue) {
            o.coverage = Absolute(a[++i]);
            if (!Exists(DirectoryOf(o.coverage))) return Error("no directory for " + o.coverage);
        } else if (opt == "--ro-bind" && hasValue) {
            if (!Exists(a[i + 1])) return Error("no such path to keep visible: " + a[i + 1]);
            o.readOnly.push_back(Absolute(a[++i]));
        } else if (opt == "-j" && hasValue) {
            if (!ParseJobs(a[++i], &o.jobs))
                return Error("-j takes a number of script states from 1 to " + std::to_string(kMaxJobs));
        } else {
            bool takesValue = opt == "--root" || opt == "--profile" || opt == "--ro-bind" ||
                              opt == "--coverage" || opt == "-j";
            return Error(takesValue ? opt + " needs a value" : "unknown option " + opt);
        }
    }
    if (i < a.size() && a[i] == "init") {
        if (i + 2 != a.size()) return Error("init takes one directory");
        o.command = Command::Init;
        o.root = a[i + 1];
        return o;
    }
    if (i >= a.size()) return Error("no script to run");
    if (o.jobs > 0) {
        for (; i < a.size(); ++i)
            o.scripts.push_back(Absolute(a[i]));
    } else {
        o.scripts.push_back(Absolute(a[i]));
        o.args.assign(a.begin() + static_cast<long>(i) + 1, a.end());
    }
    o.command = Command::Run;
    return o;
}

} // namespace qavlua

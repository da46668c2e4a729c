// `qavlua sweep`: runs a script many times, each run a separate `qavlua --root COPY script`
// process in a fresh copy of the sandbox, steered through the environment (see host.h, "Sweep
// runs") and reporting back through a record file under the copy's root.
//
//   faults     a first run records every call into an injectable service; then one run per call,
//              failing exactly that call with the service's general failure
//   power-cut  a first run records every cut point; then one run per cut point, killed there,
//              followed by the recovery script (and the check script) in what it left
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <sstream>
#include <thread>

#include "host.h"
#include "sweep.h"

extern char **environ;

namespace qavlua {
namespace {

using Clock = std::chrono::steady_clock;

uint64_t ms_since(Clock::time_point start) {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

int usage() {
    std::fprintf(
        stderr,
        "usage: qavlua sweep faults [options] SCRIPT [args...]\n"
        "       qavlua sweep power-cut [options] SCRIPT --recover RECOVERY [--check CHECK] [args...]\n"
        "       qavlua sweep merge [--json FILE] [--junit FILE] REPORT.json...\n"
        "options:\n"
        "  --root ROOT      the sandbox every run starts from (a copy each time; default\n"
        "                   ZAKHOST_ROOT, else a new one)\n"
        "  --profile FILE   the device profile of every run\n"
        "  -j N             runs at once (default: the number of cores)\n"
        "  --limit K        at most K runs, spread evenly over what the first run recorded\n"
        "  --shard K/N      only the K-th of N slices (for parallel CI jobs; join with merge)\n"
        "  --timeout S      seconds a process may take before it counts as hung (default:\n"
        "                   ten times the first run, at least 10)\n"
        "  --json FILE, --junit FILE   reports; --coverage FILE  LCOV over every run\n"
        "  --keep           keep the sandboxes of failed runs\n"
        "  --               the rest are the script's arguments\n");
    return 2;
}

std::string absolute(const std::string &path) {
    if (path.empty() || path[0] == '/') return path;
    char cwd[PATH_MAX];
    if (getcwd(cwd, sizeof cwd) == nullptr) return path;
    return std::string(cwd) + "/" + path;
}

struct Options {
    std::string kind;
    std::string script, recover, check;
    std::vector<std::string> args;
    std::string root, profile, json, junit, coverage;
    int jobs = 0;
    uint64_t limit = 0;
    int shard = 1, shards = 1;
    double timeout = 0;
    bool keep = false;
};

bool number(const std::string &text, uint64_t &out) {
    if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    out = std::stoull(text);
    return true;
}

// Sweep options are taken before and after SCRIPT; the other words after it, and everything
// after "--", are the script's arguments.
std::string parse(const std::vector<std::string> &a, Options &o) {
    o.kind = a[0];
    bool rest = false;
    for (size_t i = 1; i < a.size(); ++i) {
        const std::string &w = a[i];
        bool has = i + 1 < a.size();
        uint64_t n = 0;
        if (rest || w.empty() || w[0] != '-') {
            if (o.script.empty())
                o.script = absolute(w);
            else
                o.args.push_back(w);
        } else if (w == "--") {
            rest = true;
        } else if (w == "--root" && has) {
            o.root = absolute(a[++i]);
        } else if (w == "--profile" && has) {
            o.profile = absolute(a[++i]);
        } else if (w == "--recover" && has) {
            o.recover = absolute(a[++i]);
        } else if (w == "--check" && has) {
            o.check = absolute(a[++i]);
        } else if (w == "--json" && has) {
            o.json = absolute(a[++i]);
        } else if (w == "--junit" && has) {
            o.junit = absolute(a[++i]);
        } else if (w == "--coverage" && has) {
            o.coverage = absolute(a[++i]);
        } else if (w == "-j" && has) {
            if (!number(a[++i], n) || n < 1 || n > 1024) return "-j wants a number from 1 to 1024";
            o.jobs = static_cast<int>(n);
        } else if (w == "--limit" && has) {
            if (!number(a[++i], n) || n < 1) return "--limit wants a positive number";
            o.limit = n;
        } else if (w == "--timeout" && has) {
            if (!number(a[++i], n) || n < 1) return "--timeout wants a positive number of seconds";
            o.timeout = static_cast<double>(n);
        } else if (w == "--shard" && has) {
            std::string s = a[++i];
            size_t slash = s.find('/');
            uint64_t k = 0, of = 0;
            if (slash == std::string::npos || !number(s.substr(0, slash), k) ||
                !number(s.substr(slash + 1), of) || of < 1 || of > 100000 || k < 1 || k > of)
                return "--shard wants K/N with 1 <= K <= N";
            o.shard = static_cast<int>(k);
            o.shards = static_cast<int>(of);
        } else if (w == "--keep") {
            o.keep = true;
        } else if (!o.script.empty()) {
            o.args.push_back(w); // an option of the script's own
        } else {
            return "unknown option " + w;
        }
    }
    if (o.script.empty()) return "no script given";
    if (access(o.script.c_str(), R_OK) != 0) return "cannot read the script " + o.script;
    if (o.kind == "power-cut" && o.recover.empty()) return "a power-cut sweep needs --recover RECOVERY";
    for (const std::string *f : {&o.recover, &o.check})
        if (!f->empty() && access(f->c_str(), R_OK) != 0) return "cannot read " + *f;
    if (o.jobs == 0) o.jobs = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    return "";
}

// ---- One process -----------------------------------------------------------------------------

struct Outcome {
    bool timed_out = false;
    int exit_code = -1; // when it exited
    int signal = 0;     // when a signal ended it
    std::string error;  // what stopped it from starting
};

// Waits for `pid` at most `timeout` seconds; on time-out kills its process group.
int wait_for(pid_t pid, double timeout, bool &timed_out) {
    auto deadline = Clock::now() + std::chrono::milliseconds(static_cast<int64_t>(timeout * 1000));
    int status = 0;
    long fd = syscall(SYS_pidfd_open, pid, 0);
    if (fd >= 0) {
        pollfd p{static_cast<int>(fd), POLLIN, 0};
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        int ready = poll(&p, 1, static_cast<int>(std::max<int64_t>(left, 0)));
        close(static_cast<int>(fd));
        if (ready == 0) {
            timed_out = true;
            kill(-pid, SIGKILL);
        }
        waitpid(pid, &status, 0);
        return status;
    }
    // Without pidfd (old kernels, some emulators): ask every few milliseconds.
    for (int pause = 1;; pause = std::min(pause * 2, 20)) {
        if (waitpid(pid, &status, WNOHANG) == pid) return status;
        if (Clock::now() > deadline) {
            timed_out = true;
            kill(-pid, SIGKILL);
            waitpid(pid, &status, 0);
            return status;
        }
        usleep(static_cast<useconds_t>(pause * 1000));
    }
}

// Runs argv with its own process group, standard input from /dev/null and its output into
// `log`.out and `log`.err.
Outcome run_process(const std::vector<std::string> &argv, const std::vector<std::string> &env,
                    const std::string &log, double timeout) {
    Outcome o;
    std::vector<char *> av, ev;
    for (const auto &s : argv)
        av.push_back(const_cast<char *>(s.c_str()));
    av.push_back(nullptr);
    for (const auto &s : env)
        ev.push_back(const_cast<char *>(s.c_str()));
    ev.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attr;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    std::string out = log + ".out", err = log + ".err";
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawnattr_init(&attr);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setpgroup(&attr, 0);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t pid = 0;
    int rc = posix_spawn(&pid, av[0], &actions, &attr, av.data(), ev.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    if (rc != 0) {
        o.error = std::string("cannot start ") + av[0] + ": " + std::strerror(rc);
        return o;
    }
    int status = wait_for(pid, timeout, o.timed_out);
    if (WIFEXITED(status)) o.exit_code = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) o.signal = WTERMSIG(status);
    // A jail reports its process's death by a signal as 128 + the signal.
    if (o.exit_code > 128 && o.exit_code < 128 + 65) {
        o.signal = o.exit_code - 128;
        o.exit_code = -1;
    }
    return o;
}

// ---- The record a run leaves --------------------------------------------------------------------

struct Record {
    std::vector<std::string> calls; // fault-recording run: the service of each call
    std::vector<std::string> cuts;  // cut-counting run: the label of each cut point
    bool faulted = false;           // the planned call was failed
    bool cut = false;               // the planned power cut happened
    std::optional<std::string> end; // "ok", "exit" or "error MESSAGE"
    std::vector<std::string> locks;
};

std::string unescaped(const std::string &text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            ++i;
            out += text[i] == 'n' ? '\n' : text[i];
        } else {
            out += text[i];
        }
    }
    return out;
}

// "<word> <k> <text>": the text after the number.
std::string after_number(const std::string &line) {
    size_t first = line.find(' ');
    size_t second = first == std::string::npos ? first : line.find(' ', first + 1);
    return second == std::string::npos ? "" : line.substr(second + 1);
}

Record read_record(const std::string &path) {
    Record r;
    std::istringstream in(read_text(path));
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("call ", 0) == 0)
            r.calls.push_back(after_number(line));
        else if (line.rfind("cut ", 0) == 0)
            r.cuts.push_back(after_number(line));
        else if (line.rfind("fault ", 0) == 0)
            r.faulted = true;
        else if (line.rfind("power-cut ", 0) == 0)
            r.cut = true;
        else if (line.rfind("end ", 0) == 0)
            r.end = unescaped(line.substr(4));
        else if (line.rfind("lock ", 0) == 0)
            r.locks.push_back(line.substr(5));
    }
    return r;
}

const char *signal_name(int signal) {
    const char *name = sigabbrev_np(signal);
    return name != nullptr ? name : "unknown";
}

// How one script process ended, as a status of a run: "completed" (it returned, or ended itself
// with os.exit), "error" (a Lua error escaped), "hung", "crashed"; holding a lock is judged by
// the caller.
std::string ended(const Outcome &o, const Record &r, double timeout, const std::string &err,
                  std::string &message, std::string &detail) {
    if (!o.error.empty()) {
        message = o.error;
        return "crashed";
    }
    if (o.timed_out) {
        message = "still running after " + std::to_string(static_cast<int>(timeout)) + " s";
        return "hung";
    }
    if (r.end && r.end->rfind("error ", 0) == 0) {
        std::string text = r.end->substr(6);
        size_t nl = text.find('\n');
        message = text.substr(0, nl);
        if (nl != std::string::npos) detail = text.substr(nl + 1);
        return "error";
    }
    if (r.end && o.signal == 0) {
        if (o.exit_code != 0) message = "ended itself with exit status " + std::to_string(o.exit_code);
        return "completed";
    }
    detail = err;
    if (o.signal != 0) {
        message = std::string("killed by SIG") + signal_name(o.signal);
        return "crashed";
    }
    // The runner ended without running the script to its end (it could not start it).
    message = "ended with status " + std::to_string(o.exit_code) + " before the script ended";
    std::string first = err.substr(0, err.find('\n'));
    if (!first.empty()) message += ": " + first;
    return "crashed";
}

// ---- The sweep ------------------------------------------------------------------------------------

class Sweep {
  public:
    explicit Sweep(Options o) : o_(std::move(o)) {}

    int run();

  private:
    Options o_;
    std::string exe_, work_, base_, reference_;
    std::vector<std::string> env_;
    double timeout_ = 10;
    std::mutex lock_;
    Coverage coverage_;
    std::atomic<uint64_t> next_name_{0};

    std::string setup();
    std::vector<std::string> environment(std::initializer_list<std::string> extra) const;
    // A fresh copy of `from` (the base sandbox unless told otherwise) for one run.
    std::string fresh(SweepRun &run, const std::string &from, std::string &error);
    Outcome qavlua(const std::string &sandbox, const std::string &script,
                   const std::vector<std::string> &args, std::initializer_list<std::string> extra,
                   std::string &err);
    void finish(SweepRun &run, const std::string &sandbox);
    SweepRun fault_run(uint64_t k, const std::string &service);
    SweepRun cut_run(uint64_t k, const std::string &label, uint64_t total);
    void recover(SweepRun &run, const std::string &sandbox);
};

std::string Sweep::setup() {
    // Every run goes through the runner, qavlua, beside this engine: it builds the run's jail.
    const char *exe = std::getenv("QAVLUA_EXE"); // a runner started through an emulator
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (exe != nullptr && *exe != '\0') {
        exe_ = exe;
    } else if (n > 0) {
        self[n] = '\0';
        exe_ = std::string(self).substr(0, std::string(self).rfind('/')) + "/qavlua";
    } else {
        return "cannot find this qavlua (/proc/self/exe)";
    }
    const char *tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/qavlua-sweep.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) return "cannot make a work directory " + pattern;
    work_ = pattern;
    base_ = o_.root;
    if (base_.empty() && std::getenv("ZAKHOST_ROOT") != nullptr)
        base_ = absolute(std::getenv("ZAKHOST_ROOT"));
    if (base_.empty()) {
        base_ = work_ + "/base";
        std::string error = zakhost::init_sandbox(base_);
        if (!error.empty()) return "cannot make a sandbox: " + error;
    }
    if (access((base_ + zakhost::kCommonRoot + "/bin").c_str(), F_OK) != 0)
        return base_ + " is not a device sandbox (run 'qavlua init " + base_ + "')";
    for (char **e = environ; *e != nullptr; ++e) {
        std::string v = *e;
        bool ours = false;
        for (const char *name : {"ZAKHOST_RECORD=", "ZAKHOST_FAULT_PLAN=", "ZAKHOST_CUT_AT=",
                                 "ZAKHOST_COVERAGE=", "ZAKHOST_ROOT=", "ZAKHOST_LOG_DIR="})
            ours = ours || v.rfind(name, 0) == 0;
        if (!ours) env_.push_back(v);
    }
    if (!o_.coverage.empty()) env_.push_back(std::string("ZAKHOST_COVERAGE=") + kSweepDir + "/coverage.info");
    return "";
}

std::vector<std::string> Sweep::environment(std::initializer_list<std::string> extra) const {
    std::vector<std::string> env = env_;
    env.insert(env.end(), extra);
    return env;
}

std::string Sweep::fresh(SweepRun &run, const std::string &from, std::string &error) {
    std::string dir = work_ + "/run-" + std::to_string(++next_name_);
    auto start = Clock::now();
    error = copy_tree(from, dir);
    if (error.empty() && mkdir((dir + kSweepDir).c_str(), 0755) != 0)
        error = "cannot make " + dir + kSweepDir;
    run.copy_us += static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count());
    return dir;
}

Outcome Sweep::qavlua(const std::string &sandbox, const std::string &script,
                      const std::vector<std::string> &args, std::initializer_list<std::string> extra,
                      std::string &err) {
    std::vector<std::string> argv{exe_, "--root", sandbox};
    if (!o_.profile.empty()) argv.insert(argv.end(), {"--profile", o_.profile});
    argv.push_back(script);
    argv.insert(argv.end(), args.begin(), args.end());
    std::string log = sandbox + ".log";
    Outcome o = run_process(argv, environment(extra), log, timeout_);
    err = read_text(log + ".err", 2000);
    unlink((log + ".out").c_str());
    unlink((log + ".err").c_str());
    // Each process leaves its own coverage file; it is added up here before the next one runs.
    if (!o_.coverage.empty()) {
        std::string file = sandbox + kSweepDir + "/coverage.info";
        std::lock_guard lock(lock_);
        lcov_read(file, coverage_);
        unlink(file.c_str());
    }
    return o;
}

void Sweep::finish(SweepRun &run, const std::string &sandbox) {
    if (o_.keep && run.failed())
        run.detail += (run.detail.empty() ? "" : "\n") + std::string("sandbox kept: ") + sandbox;
    else
        remove_tree(sandbox);
}

SweepRun Sweep::fault_run(uint64_t k, const std::string &service) {
    SweepRun run;
    run.index = k;
    run.point = service;
    auto start = Clock::now();
    std::string error, err;
    std::string sandbox = fresh(run, base_, error);
    if (!error.empty()) {
        run.status = "crashed";
        run.message = error;
    } else {
        std::string record = std::string(kSweepDir) + "/record";
        Outcome o = qavlua(sandbox, o_.script, o_.args,
                           {"ZAKHOST_RECORD=" + record, "ZAKHOST_FAULT_PLAN=" + std::to_string(k)}, err);
        Record r = read_record(sandbox + record);
        run.status = ended(o, r, timeout_, err, run.message, run.detail);
        run.locks = r.locks;
        if (!r.faulted) {
            run.message = "call " + std::to_string(k) + " (" + service + ") was not reached" +
                          (run.message.empty() ? "" : "; " + run.message);
            run.status = "unreached";
        } else if (run.status == "completed" && !r.locks.empty()) {
            run.status = "lock-held";
            run.message = "ended holding the " + r.locks[0] + (r.locks.size() > 1 ? " and more" : "");
        }
    }
    run.ms = ms_since(start);
    finish(run, sandbox);
    return run;
}

void Sweep::recover(SweepRun &run, const std::string &sandbox) {
    std::string err, record = std::string(kSweepDir) + "/recover-record";
    Outcome o = qavlua(sandbox, o_.recover, {}, {"ZAKHOST_RECORD=" + record}, err);
    std::string message, detail;
    std::string how = ended(o, read_record(sandbox + record), timeout_, err, message, detail);
    if (how != "completed" || o.exit_code != 0) {
        run.status = "recovery-failed";
        run.message = "recovery " + how + (message.empty() ? "" : ": " + message);
        run.detail = detail;
    } else if (!o_.check.empty()) {
        record = std::string(kSweepDir) + "/check-record";
        o = qavlua(sandbox, o_.check, {}, {"ZAKHOST_RECORD=" + record}, err);
        how = ended(o, read_record(sandbox + record), timeout_, err, message, detail);
        if (how != "completed" || o.exit_code != 0) {
            run.status = "check-failed";
            run.message = "check " + how + (message.empty() ? "" : ": " + message);
            run.detail = detail;
        }
    }
    if (run.status.empty()) run.status = "recovered";
    if (run.failed()) run.diff = diff_trees(sandbox, reference_);
}

SweepRun Sweep::cut_run(uint64_t k, const std::string &label, uint64_t total) {
    SweepRun run;
    run.index = k;
    run.point = label;
    auto start = Clock::now();
    std::string error, err;
    bool end = k > total; // the uncut run's final state
    std::string sandbox = fresh(run, end ? reference_ : base_, error);
    if (!error.empty()) {
        run.status = "recovery-failed";
        run.message = error;
    } else if (end) {
        recover(run, sandbox);
    } else {
        std::string record = std::string(kSweepDir) + "/record";
        Outcome o = qavlua(sandbox, o_.script, o_.args,
                           {"ZAKHOST_RECORD=" + record, "ZAKHOST_CUT_AT=" + std::to_string(k)}, err);
        Record r = read_record(sandbox + record);
        if (!r.cut) {
            std::string message, detail;
            std::string how = ended(o, r, timeout_, err, message, detail);
            run.status = "unreached";
            run.message = "the run " + how + " before cut point " + std::to_string(k) +
                          (message.empty() ? "" : ": " + message);
        } else {
            recover(run, sandbox);
        }
    }
    run.ms = ms_since(start);
    finish(run, sandbox);
    return run;
}

int Sweep::run() {
    std::string error = setup();
    if (!error.empty()) {
        std::fprintf(stderr, "qavlua sweep: %s\n", error.c_str());
        if (!work_.empty()) remove_tree(work_);
        return 2;
    }
    auto start = Clock::now();
    bool faults = o_.kind == "faults";
    SweepReport report;
    report.kind = o_.kind;
    report.script = o_.script;
    report.args = o_.args;
    report.recover = o_.recover;
    report.check = o_.check;
    report.shard = o_.shard;
    report.shards = o_.shards;
    report.jobs = o_.jobs;

    // The first run: what there is to sweep. Its time sets the default time limit.
    SweepRun first;
    std::string sandbox = fresh(first, base_, error), err;
    if (!error.empty()) {
        std::fprintf(stderr, "qavlua sweep: %s\n", error.c_str());
        remove_tree(work_);
        return 2;
    }
    std::string record = std::string(kSweepDir) + "/record";
    timeout_ = o_.timeout > 0 ? o_.timeout : 600;
    auto first_start = Clock::now();
    Outcome o =
        qavlua(sandbox, o_.script, o_.args,
               {"ZAKHOST_RECORD=" + record, faults ? "ZAKHOST_FAULT_PLAN=0" : "ZAKHOST_CUT_AT=0"}, err);
    double seconds = static_cast<double>(ms_since(first_start)) / 1000;
    if (o_.timeout <= 0) timeout_ = std::max(10.0, 10 * seconds);
    Record r = read_record(sandbox + record);
    std::string message, detail;
    std::string how = ended(o, r, timeout_, err, message, detail);
    if (how != "completed" || !r.locks.empty()) {
        std::fprintf(stderr, "qavlua sweep: without any %s the script does not complete (%s%s%s)\n%s",
                     faults ? "fault" : "cut", how.c_str(), message.empty() ? "" : ": ", message.c_str(),
                     detail.empty() ? err.c_str() : (detail + "\n").c_str());
        remove_tree(sandbox);
        remove_tree(work_);
        return 2;
    }
    const std::vector<std::string> &points = faults ? r.calls : r.cuts;
    if (faults) {
        remove_tree(sandbox);
    } else {
        reference_ = sandbox; // the uncut run's final state, which failed runs are compared with
    }
    report.total = points.size();

    // What to run: every point, or --limit of them spread evenly; power cuts add the uncut end.
    std::vector<uint64_t> chosen;
    uint64_t total = points.size();
    if (o_.limit > 0 && total > o_.limit) {
        for (uint64_t i = 0; i < o_.limit; ++i)
            chosen.push_back(1 + i * total / o_.limit);
    } else {
        for (uint64_t k = 1; k <= total; ++k)
            chosen.push_back(k);
    }
    if (!faults) chosen.push_back(total + 1);
    report.sampled = chosen.size();
    std::vector<uint64_t> mine;
    for (size_t i = 0; i < chosen.size(); ++i)
        if (static_cast<int>(i % static_cast<size_t>(o_.shards)) == o_.shard - 1) mine.push_back(chosen[i]);

    bool bar = isatty(STDOUT_FILENO) != 0;
    std::printf("%s sweep of %s: %llu %s recorded%s; %zu runs%s with -j %d\n", faults ? "fault" : "power-cut",
                base_name(o_.script).c_str(), static_cast<unsigned long long>(total),
                faults ? "injectable calls" : "cut points",
                o_.limit > 0 && total > o_.limit
                    ? (", sampled evenly to " + std::to_string(o_.limit) + " (--limit)").c_str()
                    : "",
                mine.size(),
                o_.shards > 1
                    ? (" (shard " + std::to_string(o_.shard) + "/" + std::to_string(o_.shards) + ")").c_str()
                    : "",
                o_.jobs);
    std::fflush(stdout);

    report.runs.resize(mine.size());
    std::atomic<size_t> next{0};
    size_t done = 0, failed = 0;
    auto work = [&] {
        for (size_t i = next++; i < mine.size(); i = next++) {
            uint64_t k = mine[i];
            SweepRun run =
                faults ? fault_run(k, points[k - 1])
                       : cut_run(k, k <= total ? points[k - 1] : "after the script's end (no cut)", total);
            std::lock_guard lock(lock_);
            report.runs[i] = std::move(run);
            ++done;
            if (report.runs[i].failed()) ++failed;
            if (bar) {
                size_t width = 30, filled = mine.empty() ? width : done * width / mine.size();
                std::printf("\r  [%s%s] %zu/%zu runs, %zu failed", std::string(filled, '#').c_str(),
                            std::string(width - filled, ' ').c_str(), done, mine.size(), failed);
                std::fflush(stdout);
            }
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < std::min<int>(o_.jobs, static_cast<int>(mine.size())); ++t)
        threads.emplace_back(work);
    for (auto &t : threads)
        t.join();
    if (bar && !mine.empty()) std::printf("\n");
    if (!reference_.empty()) remove_tree(reference_);
    report.ms = ms_since(start);

    print_summary(report);
    int status = failed > 0 ? 1 : 0;
    if (!o_.json.empty() && !write_json(o_.json, report)) {
        std::fprintf(stderr, "qavlua sweep: cannot write %s\n", o_.json.c_str());
        status = 2;
    }
    if (!o_.junit.empty() && !write_junit(o_.junit, report)) {
        std::fprintf(stderr, "qavlua sweep: cannot write %s\n", o_.junit.c_str());
        status = 2;
    }
    if (!o_.coverage.empty() && !lcov_write(o_.coverage, coverage_)) {
        std::fprintf(stderr, "qavlua sweep: cannot write %s\n", o_.coverage.c_str());
        status = 2;
    }
    if (o_.keep && failed > 0) {
        std::printf("work directory kept: %s\n", work_.c_str());
    } else {
        remove_tree(work_);
    }
    return status;
}

} // namespace

int sweep_main(const std::vector<std::string> &args) {
    if (args.empty()) return usage();
    if (args[0] == "merge") return sweep_merge(args);
    if (args[0] != "faults" && args[0] != "power-cut") return usage();
    Options o;
    std::string error = parse(args, o);
    if (!error.empty()) {
        std::fprintf(stderr, "qavlua sweep: %s\n", error.c_str());
        return usage();
    }
    return Sweep(std::move(o)).run();
}

} // namespace qavlua

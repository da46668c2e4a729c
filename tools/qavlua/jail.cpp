// The device jail, built with bubblewrap: R bound as the root file system, the host's programs and
// libraries and the paths the run needs bound read-only, a minimal /dev, a /proc of the jail's own
// PID namespace, a private /tmp, no network, capabilities cut to what file work needs.
//
// bubblewrap creates a missing mount point by following the path inside R, and as root it does
// so with root's rights: a symbolic link that an earlier script left in R could steer that
// creation out of R. So the runner makes every mount point in R itself before bubblewrap starts,
// one component at a time without following links, refuses a path whose components are not
// plain directories, and removes afterwards what it made. Runs on one R are serialised, so no
// other run's script can swap a component in between.
#include "jail.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <cerrno>
#include <csignal>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern char **environ;

namespace qavlua {
namespace {

// The host's own programs and libraries, bound read-only (or, where the host has a link such as
// /bin -> usr/bin, the same link in R).
constexpr const char *kSystemTrees[] = {"/usr", "/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32"};
// What file work on the device's trees needs as root: ownership, permissions, special files and
// switching users. Mounting, raw I/O, modules, the clock, networking and tracing stay out.
constexpr const char *kCapabilities[] = {"CAP_CHOWN",  "CAP_DAC_OVERRIDE", "CAP_DAC_READ_SEARCH",
                                         "CAP_FOWNER", "CAP_FSETID",       "CAP_SETUID",
                                         "CAP_SETGID", "CAP_KILL",         "CAP_MKNOD"};

std::vector<std::string> Components(const std::string &path) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (start < path.size()) {
        size_t slash = path.find('/', start);
        if (slash == std::string::npos) slash = path.size();
        if (slash > start) parts.push_back(path.substr(start, slash - start));
        start = slash + 1;
    }
    return parts;
}

bool Within(const std::string &path, const std::string &tree) {
    return path == tree || (path.size() > tree.size() && path.compare(0, tree.size(), tree) == 0 &&
                            (tree == "/" || path[tree.size()] == '/'));
}

// Entries the runner makes in R for mount points, removed after the run in reverse order.
class MountPoints {
  public:
    explicit MountPoints(int rootFd) : rootFd_(rootFd) {}
    MountPoints(const MountPoints &) = delete;
    MountPoints &operator=(const MountPoints &) = delete;
    ~MountPoints() { Remove(); }

    // `path` (absolute, as seen in the jail) becomes a directory of R. A `lasting` one (the
    // device root's own /usr, /dev, /proc, /tmp) stays after the run, like the links below.
    bool Directory(const std::string &path, bool lasting = false) {
        std::vector<std::string> parts = Components(path);
        size_t made = made_.size();
        int fd = Open(parts, parts.size(), true);
        if (lasting) made_.resize(made);
        if (fd < 0) return false;
        close(fd);
        return true;
    }

    // `path` becomes a file of R (empty when the runner makes it).
    bool File(const std::string &path) {
        std::vector<std::string> parts = Components(path);
        if (parts.empty()) return Fail(path, "is not a file");
        int parent = Open(parts, parts.size() - 1, true);
        if (parent < 0) return false;
        struct stat st {};
        bool ok = true;
        if (fstatat(parent, parts.back().c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
            if (!S_ISREG(st.st_mode)) ok = Fail(path, "is not a plain file");
        } else {
            int fd = openat(parent, parts.back().c_str(),
                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
            if (fd < 0) {
                ok = Fail(path, std::strerror(errno));
            } else {
                close(fd);
                made_.push_back({parts, Kind::File});
            }
        }
        close(parent);
        return ok;
    }

    // A top-level link of R pointing at `target` (/bin -> usr/bin), made when R has nothing there
    // and kept, as a device root has it. Returns what R has at that name in the end: 'l' a link
    // (the runner's or R's own), 'd' a directory, 0 else.
    char Link(const std::string &name, const std::string &target) {
        struct stat st {};
        if (fstatat(rootFd_, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            return symlinkat(target.c_str(), rootFd_, name.c_str()) == 0 ? 'l' : 0;
        return S_ISLNK(st.st_mode) ? 'l' : S_ISDIR(st.st_mode) ? 'd' : 0;
    }

    void Remove() {
        for (auto it = made_.rbegin(); it != made_.rend(); ++it) {
            int parent = Open(it->parts, it->parts.size() - 1, false);
            if (parent < 0) continue;
            const char *name = it->parts.back().c_str();
            struct stat st {};
            if (fstatat(parent, name, &st, AT_SYMLINK_NOFOLLOW) == 0) {
                if (it->kind == Kind::Directory && S_ISDIR(st.st_mode)) {
                    (void)unlinkat(parent, name, AT_REMOVEDIR); // only when still empty
                } else if (it->kind == Kind::File && S_ISREG(st.st_mode) && st.st_size == 0) {
                    (void)unlinkat(parent, name, 0);
                }
            }
            close(parent);
        }
        made_.clear();
    }

    std::string error;

  private:
    enum class Kind { Directory, File };
    struct Made {
        std::vector<std::string> parts;
        Kind kind;
    };

    bool Fail(const std::string &path, const char *why) {
        error = "R" + path + " " + why;
        return false;
    }

    // Opens the directory made of the first `count` components, from R, never following a link;
    // with `create`, makes the missing ones. -1 (and `error`) when it cannot.
    int Open(const std::vector<std::string> &parts, size_t count, bool create) {
        int fd = fcntl(rootFd_, F_DUPFD_CLOEXEC, 0);
        std::string shown;
        for (size_t i = 0; i < count && fd >= 0; ++i) {
            shown += "/" + parts[i];
            if (parts[i] == "..") {
                close(fd);
                Fail(shown, "climbs out");
                return -1;
            }
            int next = openat(fd, parts[i].c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (next < 0 && errno == ENOENT && create && mkdirat(fd, parts[i].c_str(), 0755) == 0) {
                made_.push_back(
                    {std::vector<std::string>(parts.begin(), parts.begin() + static_cast<long>(i) + 1),
                     Kind::Directory});
                next = openat(fd, parts[i].c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            }
            if (next < 0 && create) {
                int error = errno;
                struct stat st {};
                bool link =
                    fstatat(fd, parts[i].c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode);
                Fail(shown, link               ? "is a symbolic link (a mount point must be a directory of R)"
                            : error == ENOTDIR ? "is not a directory"
                                               : std::strerror(error));
            }
            close(fd);
            fd = next;
        }
        return fd;
    }

    int rootFd_;
    std::vector<Made> made_;
};

std::string FindProgram(const char *name) {
    const char *path = std::getenv("PATH");
    std::string dirs = path != nullptr ? path : "/usr/bin:/bin";
    size_t start = 0;
    while (start <= dirs.size()) {
        size_t colon = dirs.find(':', start);
        if (colon == std::string::npos) colon = dirs.size();
        std::string candidate = dirs.substr(start, colon - start) + "/" + name;
        if (colon > start && access(candidate.c_str(), X_OK) == 0) return candidate;
        start = colon + 1;
    }
    return {};
}

// Takes the run lock of R, telling the user when another run holds it.
void LockRoot(int rootFd, const std::string &root) {
    if (flock(rootFd, LOCK_EX | LOCK_NB) == 0) return;
    std::fprintf(stderr, "qavlua: waiting for another run in %s to end\n", root.c_str());
    while (flock(rootFd, LOCK_EX) != 0 && errno == EINTR) {
    }
}

// Runs bubblewrap and waits. bubblewrap reports on the pipe `status` (its write end is the one
// descriptor it inherits) when the jail's child has started: `started`.
int RunBubblewrap(const std::vector<std::string> &args, const int status[2], bool *started) {
    std::vector<char *> argv;
    for (const std::string &a : args)
        argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    // While the jail runs, a terminal's interrupt ends the jail, not the runner: it still has to
    // remove its mount points.
    struct sigaction ignore {
    }, oldInt{}, oldQuit{};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGINT, &ignore, &oldInt);
    sigaction(SIGQUIT, &ignore, &oldQuit);
    // The child gets the default dispositions back; posix_spawn avoids copying this process.
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGINT);
    sigaddset(&defaults, SIGQUIT);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGDEF);
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], nullptr, &attr, argv.data(), environ) != 0) pid = -1;
    posix_spawnattr_destroy(&attr);
    close(status[1]);
    std::string report;
    if (pid > 0) {
        char buffer[256];
        ssize_t n = 0;
        while ((n = read(status[0], buffer, sizeof buffer)) != 0) {
            if (n > 0)
                report.append(buffer, static_cast<size_t>(n));
            else if (errno != EINTR)
                break;
        }
    }
    close(status[0]);
    int wstatus = 0;
    while (pid > 0 && waitpid(pid, &wstatus, 0) < 0 && errno == EINTR) {
    }
    sigaction(SIGINT, &oldInt, nullptr);
    sigaction(SIGQUIT, &oldQuit, nullptr);
    *started = report.find("\"child-pid\"") != std::string::npos;
    if (pid < 0) return 127;
    if (WIFSIGNALED(wstatus)) return 128 + WTERMSIG(wstatus);
    return WEXITSTATUS(wstatus);
}

} // namespace

int RunInJail(const JailPlan &plan) {
    std::string bwrap = FindProgram("bwrap");
    if (bwrap.empty()) {
        std::fprintf(stderr,
                     "qavlua: the device jail needs bubblewrap, which is not installed: apt-get install "
                     "bubblewrap (or give --no-jail: paths relocated, nothing confined)\n");
        return kJailUnavailable;
    }
    int rootFd = open(plan.root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (rootFd < 0) {
        std::fprintf(stderr, "qavlua: %s: %s\n", plan.root.c_str(), std::strerror(errno));
        return kJailUnavailable;
    }
    LockRoot(rootFd, plan.root);
    int result = kJailUnavailable;
    {
        MountPoints points(rootFd);
        std::vector<std::string> args = {bwrap, "--bind", plan.root, "/"};
        bool ok = true;
        // Read relative to the host's root (/proc/self/root): an emulator running this runner maps some
        // absolute paths (/lib, /bin) to its own target tree, but not names relative to a descriptor.
        int hostRoot = open("/proc/self/root", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        for (const char *tree : kSystemTrees) {
            struct stat st {};
            if (fstatat(hostRoot, tree + 1, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
            if (S_ISLNK(st.st_mode)) {
                char target[PATH_MAX];
                ssize_t n = readlinkat(hostRoot, tree + 1, target, sizeof target - 1);
                if (n <= 0) continue;
                // R's own link stays as R has it; a directory of R gets the host's tree over it.
                if (points.Link(tree + 1, std::string(target, static_cast<size_t>(n))) == 'd')
                    args.insert(args.end(), {"--ro-bind", tree, tree});
            } else if (S_ISDIR(st.st_mode)) {
                ok = ok && points.Directory(tree, true);
                args.insert(args.end(), {"--ro-bind", tree, tree});
            }
        }
        if (hostRoot >= 0) close(hostRoot);
        for (const char *dir : {"/dev", "/proc", "/tmp"})
            ok = ok && points.Directory(dir, true);
        args.insert(args.end(), {"--dev", "/dev", "--proc", "/proc", "--tmpfs", "/tmp"});

        // Each path once, parents before children; writable where any request asks for it.
        std::map<std::string, bool> binds;
        for (const std::string &p : plan.readOnly)
            binds.emplace(p, false);
        for (const std::string &p : plan.writable)
            binds[p] = true;
        for (const auto &[path, writable] : binds) {
            if (!ok) break;
            bool system = std::any_of(std::begin(kSystemTrees), std::end(kSystemTrees),
                                      [&](const char *tree) { return Within(path, tree); });
            bool inRoot = Within(path, plan.root) && !(writable && path == plan.root);
            if (path == "/" || inRoot || (system && !writable)) continue;
            struct stat st {};
            if (stat(path.c_str(), &st) != 0) continue;
            // Under /tmp the mount point is made in the jail's own /tmp, not in R.
            if (!Within(path, "/tmp")) ok = S_ISDIR(st.st_mode) ? points.Directory(path) : points.File(path);
            args.insert(args.end(), {writable ? "--bind" : "--ro-bind", path, path});
        }
        if (!ok) {
            std::fprintf(stderr, "qavlua: cannot build the device jail: %s\n", points.error.c_str());
        } else {
            args.insert(args.end(), {"--unshare-pid", "--unshare-net", "--unshare-ipc", "--unshare-uts",
                                     "--unshare-cgroup-try", "--die-with-parent", "--new-session"});
            // As root the jail keeps real ownership; otherwise a user namespace maps the caller to
            // root, as the device's scripts run.
            if (geteuid() != 0) args.insert(args.end(), {"--unshare-user", "--uid", "0", "--gid", "0"});
            args.insert(args.end(), {"--cap-drop", "ALL"});
            for (const char *cap : kCapabilities)
                args.insert(args.end(), {"--cap-add", cap});
            for (const auto &[name, value] : plan.env)
                args.insert(args.end(), {"--setenv", name, value});
            args.insert(args.end(), {"--chdir", plan.workdir});
            int status[2];
            if (pipe2(status, O_CLOEXEC) != 0) {
                std::perror("qavlua: pipe");
            } else {
                // The status descriptor must survive into bubblewrap; it is the only one.
                (void)fcntl(status[1], F_SETFD, 0);
                args.insert(args.end(), {"--json-status-fd", std::to_string(status[1]), "--"});
                args.insert(args.end(), plan.command.begin(), plan.command.end());
                bool started = false;
                result = RunBubblewrap(args, status, &started);
                if (!started) {
                    std::fprintf(
                        stderr,
                        "qavlua: cannot build the device jail with bubblewrap (its message is above): "
                        "run as root or allow user namespaces (sysctl kernel.unprivileged_userns_clone=1, "
                        "user.max_user_namespaces > 0), or give --no-jail (paths relocated, nothing "
                        "confined)\n");
                    result = kJailUnavailable;
                }
            }
        }
    }
    close(rootFd); // also releases the run lock
    return result;
}

} // namespace qavlua

// Sandbox trees for sweeps: a fresh copy per run, removal, and the difference of two states.
// Everything works relative to open directory descriptors, so no path grows with the depth and
// a symbolic link inside a sandbox is copied as a link, never followed.
#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "sweep.h"

namespace qavlua {
namespace {

std::string failure(const std::string &what, const std::string &path) {
    return what + " " + path + ": " + std::strerror(errno);
}

// The names in a directory, "." and ".." left out, in a stable order.
std::vector<std::string> entries(int dirfd) {
    std::vector<std::string> names;
    int fd = dup(dirfd);
    if (fd < 0) return names;
    DIR *dir = fdopendir(fd);
    if (dir == nullptr) {
        close(fd);
        return names;
    }
    while (dirent *entry = readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

bool copy_data(int in, int out, off_t size) {
    if (ioctl(out, FICLONE, in) == 0) return true;
    off_t left = size;
    while (left > 0) {
        ssize_t n = copy_file_range(in, nullptr, out, nullptr, static_cast<size_t>(left), 0);
        if (n <= 0) break;
        left -= n;
    }
    if (left == 0) return true;
    // File systems without copy_file_range: plain reads and writes from where it stopped.
    char buffer[65536];
    for (;;) {
        ssize_t n = read(in, buffer, sizeof buffer);
        if (n == 0) return true;
        if (n < 0) return false;
        for (ssize_t done = 0; done < n;) {
            ssize_t w = write(out, buffer + done, static_cast<size_t>(n - done));
            if (w <= 0) return false;
            done += w;
        }
    }
}

void keep_attributes(int fd, const struct stat &st) {
    if (geteuid() == 0) (void)fchown(fd, st.st_uid, st.st_gid);
    (void)fchmod(fd, st.st_mode & 07777);
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    (void)futimens(fd, times);
}

std::string copy_entry(int from, int to, const std::string &name, const std::string &path);

std::string copy_directory(int from, int to, const std::string &path, bool top) {
    for (const std::string &name : entries(from)) {
        if (top && "/" + name == kSweepDir) continue;
        std::string error = copy_entry(from, to, name, path + "/" + name);
        if (!error.empty()) return error;
    }
    return "";
}

std::string copy_entry(int from, int to, const std::string &name, const std::string &path) {
    struct stat st {};
    if (fstatat(from, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return failure("cannot examine", path);
    const char *n = name.c_str();
    if (S_ISDIR(st.st_mode)) {
        if (mkdirat(to, n, 0700) != 0) return failure("cannot make", path);
        int in = openat(from, n, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        int out = openat(to, n, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        std::string error =
            in < 0 || out < 0 ? failure("cannot open", path) : copy_directory(in, out, path, false);
        if (error.empty()) keep_attributes(out, st); // after the contents, so the times stay
        if (in >= 0) close(in);
        if (out >= 0) close(out);
        return error;
    }
    if (S_ISREG(st.st_mode)) {
        int in = openat(from, n, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
        if (in < 0) return failure("cannot read", path);
        int out = openat(to, n, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        std::string error;
        if (out < 0 || !copy_data(in, out, st.st_size)) error = failure("cannot copy", path);
        if (out >= 0) {
            if (error.empty()) keep_attributes(out, st);
            close(out);
        }
        close(in);
        return error;
    }
    if (S_ISLNK(st.st_mode)) {
        std::string target(static_cast<size_t>(st.st_size) + 1, '\0');
        ssize_t length = readlinkat(from, n, target.data(), target.size());
        if (length < 0) return failure("cannot read link", path);
        target.resize(static_cast<size_t>(length));
        if (symlinkat(target.c_str(), to, n) != 0) return failure("cannot make link", path);
        if (geteuid() == 0) (void)fchownat(to, n, st.st_uid, st.st_gid, AT_SYMLINK_NOFOLLOW);
        const struct timespec times[2] = {st.st_atim, st.st_mtim};
        (void)utimensat(to, n, times, AT_SYMLINK_NOFOLLOW);
        return "";
    }
    // Pipes, sockets and device nodes (the latter only as root, as with cp -a).
    if (mknodat(to, n, st.st_mode, st.st_rdev) != 0) return failure("cannot make", path);
    return "";
}

void remove_in(int dirfd) {
    for (const std::string &name : entries(dirfd)) {
        if (unlinkat(dirfd, name.c_str(), 0) == 0) continue;
        int child = openat(dirfd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (child < 0) continue;
        (void)fchmod(child, 0700); // a script may have left a directory without write access
        remove_in(child);
        close(child);
        (void)unlinkat(dirfd, name.c_str(), AT_REMOVEDIR);
    }
}

struct Node {
    struct stat st {};
    std::string link;
};

void collect(int dirfd, const std::string &path, std::map<std::string, Node> &out) {
    for (const std::string &name : entries(dirfd)) {
        std::string child = path + "/" + name;
        if (child == kSweepDir || child == "/log") continue;
        Node node;
        if (fstatat(dirfd, name.c_str(), &node.st, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (S_ISLNK(node.st.st_mode)) {
            node.link.resize(static_cast<size_t>(node.st.st_size) + 1);
            ssize_t length = readlinkat(dirfd, name.c_str(), node.link.data(), node.link.size());
            node.link.resize(length > 0 ? static_cast<size_t>(length) : 0);
        }
        out[child] = node;
        if (S_ISDIR(node.st.st_mode)) {
            int fd = openat(dirfd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (fd >= 0) {
                collect(fd, child, out);
                close(fd);
            }
        }
    }
}

ssize_t read_full(int fd, char *buffer, size_t size) {
    size_t got = 0;
    while (got < size) {
        ssize_t n = read(fd, buffer + got, size - got);
        if (n < 0) return -1;
        if (n == 0) break;
        got += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(got);
}

bool same_content(const std::string &a, const std::string &b) {
    int fa = open(a.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    int fb = open(b.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    bool same = fa >= 0 && fb >= 0;
    static thread_local char x[65536], y[65536];
    while (same) {
        ssize_t n = read_full(fa, x, sizeof x);
        ssize_t m = read_full(fb, y, sizeof y);
        same = n >= 0 && n == m && std::memcmp(x, y, static_cast<size_t>(n)) == 0;
        if (n <= 0) break;
    }
    if (fa >= 0) close(fa);
    if (fb >= 0) close(fb);
    return same;
}

} // namespace

std::string copy_tree(const std::string &from, const std::string &to) {
    int in = open(from.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (in < 0) return failure("cannot open", from);
    struct stat st {};
    std::string error;
    if (fstat(in, &st) != 0 || mkdir(to.c_str(), 0700) != 0) error = failure("cannot make", to);
    int out = error.empty() ? open(to.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
    if (error.empty() && out < 0) error = failure("cannot open", to);
    if (error.empty()) error = copy_directory(in, out, "", true);
    if (error.empty()) keep_attributes(out, st);
    if (out >= 0) close(out);
    close(in);
    return error;
}

void remove_tree(const std::string &path) {
    int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0) {
        (void)fchmod(fd, 0700);
        remove_in(fd);
        close(fd);
    }
    (void)rmdir(path.c_str());
}

std::string read_text(const std::string &path, size_t tail) {
    std::ifstream in(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (tail > 0 && text.size() > tail) text = "..." + text.substr(text.size() - tail);
    return text;
}

std::vector<std::string> diff_trees(const std::string &state, const std::string &reference) {
    std::map<std::string, Node> mine, theirs;
    for (auto [root, nodes] : {std::pair{&state, &mine}, std::pair{&reference, &theirs}}) {
        int fd = open(root->c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) continue;
        collect(fd, "", *nodes);
        close(fd);
    }
    std::vector<std::string> lines;
    for (const auto &[path, node] : theirs)
        if (mine.count(path) == 0) lines.push_back("- " + path);
    for (const auto &[path, node] : mine) {
        auto other = theirs.find(path);
        if (other == theirs.end()) {
            lines.push_back("+ " + path);
            continue;
        }
        const struct stat &a = node.st, &b = other->second.st;
        std::string what;
        if ((a.st_mode & S_IFMT) != (b.st_mode & S_IFMT))
            what = "type";
        else if (S_ISLNK(a.st_mode) && node.link != other->second.link)
            what = "link target";
        else if (S_ISREG(a.st_mode) &&
                 (a.st_size != b.st_size || !same_content(state + path, reference + path)))
            what = "content";
        else if ((a.st_mode & 07777) != (b.st_mode & 07777))
            what = "mode";
        if (!what.empty()) lines.push_back("~ " + path + " (" + what + ")");
    }
    std::sort(lines.begin(), lines.end(),
              [](const std::string &x, const std::string &y) { return x.substr(2) < y.substr(2); });
    return lines;
}

} // namespace qavlua

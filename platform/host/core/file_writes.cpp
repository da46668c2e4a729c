// The host's own file helpers: directory chains, tree removal, the whole-file replacement every
// host service that rewrites a file uses, and bounded text copies into callers' buffers.
#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host.h"
#include "securec.h"

namespace {

int remove_entry(const char *path, const struct stat *, int, struct FTW *) {
    return ::remove(path) == 0 || errno == ENOENT ? 0 : -1;
}

} // namespace

namespace zakhost {

std::string make_dirs(const std::string &path) {
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = path.find('/', pos + 1);
        std::string partial = path.substr(0, pos);
        if (!partial.empty() && mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST)
            return partial + ": " + std::strerror(errno);
    }
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) return path + ": " + std::strerror(errno);
    return S_ISDIR(st.st_mode) ? "" : path + ": " + std::strerror(ENOTDIR);
}

bool remove_tree(const std::string &path) {
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0) return errno == ENOENT;
    nftw(path.c_str(), remove_entry, 16, FTW_DEPTH | FTW_PHYS);
    return lstat(path.c_str(), &st) != 0;
}

bool copy_out(const std::string &text, char *out, uint32_t size) {
    if (out == nullptr || text.size() >= size) return false;
    return strcpy_s(out, size, text.c_str()) == EOK;
}

bool replace_file(const std::string &path, const std::string &content) {
    std::string target = path;
    if (char *real = realpath(path.c_str(), nullptr)) {
        target = real;
        std::free(real);
    }
    struct stat old {};
    bool existed = stat(target.c_str(), &old) == 0;
    std::string temporary = target + ".XXXXXX";
    int error = 0;
    int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        error = errno;
    } else {
        if (existed) {
            (void)fchown(fd, old.st_uid, old.st_gid); // only root can give the file away; best effort
            (void)fchmod(fd, old.st_mode & 07777);
        } else {
            (void)fchmod(fd, 0644);
        }
        for (size_t done = 0; error == 0 && done < content.size();) {
            ssize_t n = ::write(fd, content.data() + done, content.size() - done);
            if (n >= 0)
                done += static_cast<size_t>(n);
            else if (errno != EINTR)
                error = errno;
        }
        if (::close(fd) != 0 && error == 0) error = errno;
        if (error == 0 && std::rename(temporary.c_str(), target.c_str()) != 0) error = errno;
        if (error != 0) (void)::unlink(temporary.c_str());
    }
    if (error != 0) report_write_failure(path, error);
    return error == 0;
}

} // namespace zakhost

// The platform file layer on Linux: the system's descriptor calls, with errno mapped to the
// layer's negative codes. Each call can be made to fail through fault injection.
// The layer works only on descriptors it opened itself. A script hands descriptor numbers in as
// plain integers; without the check, "close 2" would close the runner's standard error and
// "write 5" would write into whatever file the interpreter or another script state has as 5.
// A number the layer did not open gets the bad-descriptor code, as a closed one does.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "files/fd_register.h"
#include "host.h"
#include "zak_file.h"
#include "zak_fs.h"

namespace {

int32_t code_of(int error) {
    switch (error) {
    case ENOMEM:
        return ZAK_FILE_NO_MEMORY;
    case EEXIST:
        return ZAK_FILE_EXISTS;
    case ENOENT:
        return ZAK_FILE_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
        return ZAK_FILE_DENIED;
    case ENOTDIR:
        return ZAK_FILE_NOT_DIR;
    case EISDIR:
        return ZAK_FILE_IS_DIR;
    case ENOSPC:
    case EDQUOT:
        return ZAK_FILE_NO_SPACE;
    case EBADF:
        return ZAK_FILE_BAD_DESCRIPTOR;
    case EINVAL:
        return ZAK_FILE_INVALID;
    default:
        return ZAK_FILE_ERROR;
    }
}

bool fail_injected(const char *service, int32_t *out) {
    int64_t result = 0;
    if (!zakhost::injected(service, &result)) return false;
    *out = result == 0 ? ZAK_FILE_ERROR : static_cast<int32_t>(result);
    return true;
}

int32_t checked(long result) {
    return result < 0 ? code_of(errno) : static_cast<int32_t>(result);
}

// Power-cut sweeps: every file the library's copy, move and remove engine completes is a cut
// point (a file written and closed, a directory made, a rename, an unlink, a directory removed).
// Only runs with a cut plan keep this book.
std::mutex g_writtenLock;
std::map<int32_t, std::string> g_written; // descriptors opened for writing, with their paths

std::string device_path(const char *path) {
    std::string root = zakhost::root();
    std::string text = path != nullptr ? path : "";
    if (!root.empty() && text.compare(0, root.size(), root) == 0 &&
        (text.size() == root.size() || text[root.size()] == '/'))
        text.erase(0, root.size());
    return text;
}

void file_done(const char *what, const char *path, const char *to = nullptr) {
    std::string label = std::string(what) + " " + device_path(path);
    if (to != nullptr) label += " -> " + device_path(to);
    zakhost::cut_point_in_call(label);
}

} // namespace

extern "C" {

int32_t P_ZAK_Open(const char *path, uint32_t flags, uint32_t, uint32_t mode) {
    int32_t fail = 0;
    if (fail_injected("P_ZAK_Open", &fail)) return fail;
    if (path == nullptr) return ZAK_FILE_INVALID;
    int os = 0;
    if (flags & ZAK_O_RDWR)
        os = O_RDWR;
    else if (flags & ZAK_O_WRONLY)
        os = O_WRONLY;
    else if (flags & ZAK_O_RDONLY)
        os = O_RDONLY;
    else
        return ZAK_FILE_INVALID;
    if (flags & ZAK_O_APPEND) os |= O_APPEND;
    if (flags & ZAK_O_CREAT) os |= O_CREAT;
    if (flags & ZAK_O_TRUNC) os |= O_TRUNC;
    int32_t fd = checked(open(path, os | O_CLOEXEC, static_cast<mode_t>(mode)));
    zakhost::fd_opened(fd, path);
    if (fd >= 0 && (os & (O_WRONLY | O_RDWR)) != 0 && zakhost::cut_plan_set()) {
        std::lock_guard lock(g_writtenLock);
        g_written[fd] = path;
    }
    return fd;
}

int32_t P_ZAK_Read(int32_t fd, void *buffer, uint32_t length, uint32_t) {
    int32_t fail = 0;
    if (fail_injected("P_ZAK_Read", &fail)) return fail;
    if (!zakhost::fd_is_open(fd)) return ZAK_FILE_BAD_DESCRIPTOR;
    if (buffer == nullptr && length > 0) return ZAK_FILE_INVALID;
    return checked(read(fd, buffer, length));
}

int32_t P_ZAK_Write(int32_t fd, const void *buffer, uint32_t length, uint32_t) {
    int32_t fail = 0;
    if (fail_injected("P_ZAK_Write", &fail)) return fail;
    if (!zakhost::fd_is_open(fd)) return ZAK_FILE_BAD_DESCRIPTOR;
    if (buffer == nullptr && length > 0) return ZAK_FILE_INVALID;
    return checked(write(fd, buffer, length));
}

int32_t P_ZAK_LSeek(int32_t fd, int32_t offset, int32_t origin, uint32_t) {
    int32_t fail = 0;
    if (fail_injected("P_ZAK_LSeek", &fail)) return fail;
    if (!zakhost::fd_is_open(fd)) return ZAK_FILE_BAD_DESCRIPTOR;
    int whence = origin == ZAK_SEEK_SET   ? SEEK_SET
                 : origin == ZAK_SEEK_CUR ? SEEK_CUR
                 : origin == ZAK_SEEK_END ? SEEK_END
                                          : -1;
    if (whence < 0) return ZAK_FILE_INVALID;
    off_t position = lseek(fd, offset, whence);
    if (position < 0) return code_of(errno);
    if (position > 0x7FFFFFFF) return ZAK_FILE_INVALID; // a position the 32-bit result cannot carry
    return static_cast<int32_t>(position);
}

int32_t P_ZAK_FSync(int32_t fd, uint32_t) {
    int32_t fail = 0;
    if (fail_injected("P_ZAK_FSync", &fail)) return fail;
    if (!zakhost::fd_is_open(fd)) return ZAK_FILE_BAD_DESCRIPTOR;
    return checked(fsync(fd));
}

int32_t P_ZAK_Close(int32_t fd, uint32_t) {
    int32_t fail = 0;
    if (fail_injected("P_ZAK_Close", &fail)) return fail;
    // Linux frees the number even when close reports an error, so it leaves the register anyway.
    if (!zakhost::cut_plan_set()) {
        if (!zakhost::fd_closing(fd)) return ZAK_FILE_BAD_DESCRIPTOR;
        return checked(close(fd));
    }
    std::optional<std::string> written;
    {
        std::lock_guard lock(g_writtenLock);
        auto it = g_written.find(fd);
        if (it != g_written.end()) {
            written = it->second;
            g_written.erase(it);
        }
    }
    if (!zakhost::fd_closing(fd)) return ZAK_FILE_BAD_DESCRIPTOR;
    int32_t closed = checked(close(fd));
    if (written) file_done("wrote", written->c_str());
    return closed;
}

int32_t P_ZAK_Mkdir(const char *path, uint32_t mode, uint32_t) {
    int32_t fail = 0;
    if (fail_injected("P_ZAK_Mkdir", &fail)) return fail;
    if (path == nullptr) return ZAK_FILE_INVALID;
    int32_t made = checked(mkdir(path, static_cast<mode_t>(mode)));
    if (made == 0 && zakhost::cut_plan_set()) file_done("made directory", path);
    return made;
}

// The library renames and removes through the C library, as on the device. With a cut plan,
// these definitions (found before the C library's when the runner loads the host platform) mark
// each completed step; they act exactly as the C library's do.
int rename(const char *from, const char *to) noexcept {
    int result = renameat(AT_FDCWD, from, AT_FDCWD, to);
    if (result == 0 && zakhost::cut_plan_set()) file_done("renamed", from, to);
    return result;
}

int unlink(const char *path) noexcept {
    int result = unlinkat(AT_FDCWD, path, 0);
    if (result == 0 && zakhost::cut_plan_set()) file_done("removed", path);
    return result;
}

int rmdir(const char *path) noexcept {
    int result = unlinkat(AT_FDCWD, path, AT_REMOVEDIR);
    if (result == 0 && zakhost::cut_plan_set()) file_done("removed directory", path);
    return result;
}

} // extern "C"

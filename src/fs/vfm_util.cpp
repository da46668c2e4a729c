// Path, memory and error helpers of the file engine.
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "binding/memory.h"
#include "binding/script_frame.h"
#include "fs/vfm.h"
#include "securec.h"
#include "zak_file.h"
#include "zak_fs.h"

namespace {
// Source name and lines the allocator records for the engine's blocks.
constexpr const char *kEngineTag = "rpmfs";
constexpr uint32_t kMallocLine = 143;
constexpr uint32_t kFreeLine = 154;
constexpr int32_t kStrdupLine = 128;
// Messages are formatted into a 128-byte buffer; longer ones are dropped.
constexpr size_t kMessageSize = 128;

int classify(int result, const char *path, const struct stat *record) {
    if (result != 0) {
        if (errno == ENOENT) return kVfmMissing;
        vfm_record_errmsg("can't stat '%s'", path);
        return -1;
    }
    return S_ISDIR(record->st_mode) ? kVfmDirectory : kVfmNotDirectory;
}
} // namespace

extern "C" {

void vfm_record_errmsg(const char *format, ...) {
    char message[kMessageSize] = {0};
    va_list values;
    va_start(values, format);
    int length = vsnprintf_s(message, sizeof message, sizeof message - 1, format, values);
    va_end(values);
    if (length >= 0) QAV_STLOG(qav::kDiagModule, "vfm record err msg fatal: %s", message);
}

int vfm_file_stat(const char *path, struct stat *record) {
    return classify(stat(path, record), path, record);
}

int vfm_file_lstat(const char *path, struct stat *record) {
    return classify(lstat(path, record), path, record);
}

char *vfm_last_char_is(const char *text, int character) {
    if (text == nullptr || text[0] == '\0') return nullptr;
    const char *last = text + std::strlen(text) - 1;
    return *last == static_cast<char>(character) ? const_cast<char *>(last) : nullptr;
}

void *vfm_malloc(uint32_t size) {
    if (size == 0) {
        vfm_record_errmsg("alloc failed size zero.");
        return nullptr;
    }
    void *block = qav::PlatformAlloc(size, kEngineTag, kMallocLine);
    if (block == nullptr) vfm_record_errmsg("alloc failed");
    return block;
}

char *vfm_strdup(const char *text) {
    if (text == nullptr) return nullptr;
    size_t length = std::strlen(text);
    auto *copy = static_cast<char *>(vfm_malloc(static_cast<uint32_t>(length + 1)));
    if (copy == nullptr) {
        vfm_record_errmsg("alloc failed");
        return nullptr;
    }
    errno_t rc = strncpy_s(copy, length + 1, text, length);
    if (rc != EOK) qav::LogCallFailure("vfm_strdup", rc, kStrdupLine);
    copy[length] = '\0';
    return copy;
}

void vfm_free(void *pointer) {
    qav::PlatformFree(pointer, kEngineTag, kFreeLine);
}

int vfm_vajoin(char **out, const char *format, va_list values) {
    char buffer[kMessageSize];
    va_list again;
    va_copy(again, values);
    int length = vsnprintf_s(buffer, sizeof buffer, sizeof buffer - 1, format, values);
    if (length < 0) {
        *out = nullptr;
        va_end(again);
        return -1;
    }
    if (static_cast<size_t>(length) < sizeof buffer) {
        *out = vfm_strdup(buffer);
        va_end(again);
        return *out == nullptr ? -1 : length;
    }
    // Only reachable with a formatter that reports the full length of a cut text.
    *out = static_cast<char *>(vfm_malloc(static_cast<uint32_t>(length) + 1));
    if (*out != nullptr &&
        vsnprintf_s(*out, static_cast<size_t>(length) + 1, static_cast<size_t>(length), format, again) < 0) {
        vfm_free(*out);
        *out = nullptr;
    }
    va_end(again);
    return *out == nullptr ? -1 : length;
}

char *vfm_ajoin(const char *format, ...) {
    char *joined = nullptr;
    va_list values;
    va_start(values, format);
    int length = vfm_vajoin(&joined, format, values);
    va_end(values);
    if (length < 0) {
        vfm_record_errmsg("alloc failed");
        if (joined != nullptr) vfm_free(joined);
        return nullptr;
    }
    return joined;
}

char *vfm_join_path_file(const char *directory, const char *name) {
    if (name == nullptr) return const_cast<char *>(directory);
    if (directory == nullptr) directory = "";
    const char *separator = vfm_last_char_is(directory, '/') != nullptr ? "" : "/";
    while (*name == '/')
        ++name;
    return vfm_ajoin("%s%s%s", directory, separator, name);
}

char *vfm_join_childrenpath_file(const char *directory, const char *name, int *isDot) {
    if (name != nullptr && (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)) {
        *isDot = 1;
        return nullptr;
    }
    return vfm_join_path_file(directory, name);
}

char *vfm_get_last_dir(char *path) {
    size_t length = std::strlen(path);
    while (length > 1 && path[length - 1] == '/')
        path[--length] = '\0';
    char *slash = std::strrchr(path, '/');
    if (slash == nullptr || (slash == path && path[1] == '\0')) return path;
    return slash + 1;
}

int32_t vfm_open(const char *path, uint32_t flags, uint32_t permission) {
    int32_t fd = P_ZAK_Open(path, flags, 0, permission);
    if (fd < 0) vfm_record_errmsg("can't open '%s', iRet:%d", path, fd);
    // A descriptor the engine still holds a day after opening it is reported as leaked.
    constexpr uint32_t kFdLeakTimeoutMs = 86400000;
    ZAK_FD_LEAK_CHECK_INFO info = {fd, kFdLeakTimeoutMs};
    (void)P_ZAK_FdLeakCheckInfoSet(&info);
    return fd;
}

int32_t vfm_read(int32_t fd, void *buffer, uint32_t length) {
    return P_ZAK_Read(fd, buffer, length, 0);
}

int32_t vfm_write(int32_t fd, const void *buffer, uint32_t length) {
    return P_ZAK_Write(fd, buffer, length, 0);
}

int32_t vfm_write_all(int32_t fd, const void *buffer, int32_t length) {
    if (length < 1) return 0;
    const auto *bytes = static_cast<const uint8_t *>(buffer);
    int32_t total = 0;
    while (total < length) {
        int32_t written = vfm_write(fd, bytes + total, static_cast<uint32_t>(length - total));
        if (written < 0) {
            vfm_record_errmsg("zak write error, ret = %d", written);
            return total != 0 ? total : written;
        }
        if (written == 0) break; // no progress: give what was written rather than spin
        total += written;
    }
    return total;
}

int vfm_unlink(const char *path) {
    int saved = errno;
    if (unlink(path) == 0) return 1;
    errno = saved;
    vfm_record_errmsg("can't delete '%s'", path);
    return -1;
}

char *vfm_readlink(const char *path) {
    constexpr uint32_t kLinkBufferStep = 80;
    uint32_t size = 0;
    for (;;) {
        size += kLinkBufferStep;
        auto *buffer = static_cast<char *>(vfm_malloc(size));
        if (buffer == nullptr) return nullptr;
        (void)memset_s(buffer, size, 0, size);
        ssize_t length = readlink(path, buffer, size);
        if (length < 0) {
            vfm_free(buffer);
            return nullptr;
        }
        if (static_cast<uint32_t>(length) < size) {
            buffer[length] = '\0';
            return buffer;
        }
        vfm_free(buffer);
    }
}

} // extern "C"

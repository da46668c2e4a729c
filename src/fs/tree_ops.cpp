// Recursive removal, move (rename, or copy and remove across file systems) and directory
// creation with optional parents.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "fs/vfm.h"
#include "zak_file.h"

namespace {

constexpr uint32_t kMoveCopyFlags = kCopyRecursive | kCopyKeep;
constexpr uint32_t kMoveRemoveFlags = kRemoveRecursive | kRemoveForce;
constexpr uint32_t kKeepPermission = 0xFFFFFFFF;
constexpr mode_t kIntermediateMask = 027;
constexpr mode_t kOwnerWriteSearch = 0300;
constexpr uint32_t kAllPermissions = 0777;

int remove_directory(const char *path, uint32_t flags) {
    if ((flags & kRemoveRecursive) == 0) {
        vfm_record_errmsg("%s: is a directory", path);
        return -1;
    }
    if ((flags & kRemoveForce) == 0 && access(path, W_OK) < 0) {
        vfm_record_errmsg("cannot remove %s: Permission denied", path);
        return -1;
    }
    DIR *directory = opendir(path);
    if (directory == nullptr) return -1;
    int result = 0;
    while (dirent *entry = readdir(directory)) {
        int isDot = 0;
        char *child = vfm_join_childrenpath_file(path, entry->d_name, &isDot);
        if (child == nullptr) {
            if (isDot != 0) continue;
            closedir(directory);
            return -1;
        }
        if (vfm_remove_file(child, flags) < 0) result = -1;
        vfm_free(child);
    }
    if (closedir(directory) < 0) {
        vfm_record_errmsg("can't close '%s'", path);
        return -1;
    }
    if (rmdir(path) == 0) return result;
    vfm_record_errmsg("can't remove '%s'", path);
    return -1;
}

bool is_directory(const char *path) {
    struct stat record {};
    return stat(path, &record) == 0 && S_ISDIR(record.st_mode);
}

// Reports a failed creation, restores the mask when it was changed, gives -1.
int32_t creation_failed(const char *path, bool maskChanged, mode_t oldMask) {
    vfm_record_errmsg("can't %s directory '%s'", "create", path);
    if (maskChanged) umask(oldMask);
    return -1;
}

int32_t creation_code(int32_t code, const char *path, bool maskChanged, mode_t oldMask) {
    if (code == ZAK_FILE_NO_MEMORY) {
        vfm_record_errmsg("No memory for path :%s %d", path, kMkdirNoMemory);
        if (maskChanged) umask(oldMask);
        return kMkdirNoMemory;
    }
    return creation_failed(path, maskChanged, oldMask);
}

} // namespace

extern "C" {

int vfm_remove_file(const char *path, uint32_t flags) {
    struct stat record {};
    if (lstat(path, &record) < 0) {
        if (errno != ENOENT) {
            vfm_record_errmsg("can't stat '%s'", path);
            return -1;
        }
        if ((flags & kRemoveForce) != 0) return 0;
        vfm_record_errmsg("can't remove '%s'", path);
        return -1;
    }
    if (S_ISDIR(record.st_mode)) return remove_directory(path, flags);
    // A symbolic link is always removable: its own permission bits mean nothing.
    bool refused = (flags & kRemoveForce) == 0 && access(path, W_OK) < 0 && !S_ISLNK(record.st_mode);
    if (!refused && unlink(path) == 0) return 0;
    vfm_record_errmsg("can't remove '%s'", path);
    return -1;
}

int vfm_move(char *source, char *destination, uint32_t flags) {
    if (source == nullptr) return -1;
    struct stat record {};
    char *target = destination;
    bool joined = false;
    int targetKind = kVfmMissing;
    if (destination != nullptr) {
        targetKind = vfm_file_stat(destination, &record);
        if (targetKind == -1) return -1;
        if (targetKind == kVfmDirectory) {
            target = vfm_join_path_file(destination, vfm_get_last_dir(source));
            joined = true;
        }
    } else {
        target = vfm_join_path_file(".", vfm_get_last_dir(source));
        joined = true;
    }
    if (joined) {
        if (target == nullptr) return 1;
        targetKind = vfm_file_stat(target, &record);
        if (targetKind == -1) {
            vfm_free(target);
            return 1;
        }
    }

    int result = 1;
    if (targetKind != kVfmMissing && (flags & kMoveForce) == 0 && access(target, W_OK) < 0) {
        vfm_record_errmsg("%s:cannot overwrite", target);
    } else if (rename(source, target) == 0) {
        result = 0;
    } else {
        int error = errno;
        struct stat sourceRecord {};
        int sourceKind = vfm_file_lstat(source, &sourceRecord);
        if (error == EXDEV && sourceKind > 0) {
            bool replaceable = true;
            if (targetKind != kVfmMissing) {
                if (targetKind == kVfmDirectory && sourceKind != kVfmDirectory) {
                    vfm_record_errmsg("can't overwrite directory with non-directory, pcSrcFile:%s", source);
                    replaceable = false;
                } else if (targetKind != kVfmDirectory && sourceKind == kVfmDirectory) {
                    vfm_record_errmsg("can't overwrite non-directory with directory, pcSrcFile:%s", source);
                    replaceable = false;
                } else if (unlink(target) < 0) {
                    vfm_record_errmsg("can't remove '%s', iErrno:%d", target, errno);
                    replaceable = false;
                }
            }
            // The source is removed only once its copy is complete.
            if (replaceable && vfm_copy_file(source, target, kMoveCopyFlags) == 0 &&
                vfm_remove_file(source, kMoveRemoveFlags) == 0)
                result = 0;
        } else {
            vfm_record_errmsg("can't rename '%s', errno:%d, iSrcIsExists:%d, iDestIsExists:%d, destFile:%s",
                              source, error, sourceKind, targetKind, target);
        }
    }
    if (joined) vfm_free(target);
    return result;
}

int32_t vfm_make_directory(char *path, uint32_t permission, uint32_t flags) {
    if (std::strcmp(path, ".") == 0) return 0;
    bool maskChanged = false;
    mode_t oldMask = 0;
    if ((flags & kMkdirParents) != 0) {
        char *cursor = path;
        for (;;) {
            char *slash = std::strchr(cursor, '/');
            if (slash == nullptr) break;
            char *next = slash;
            while (*next == '/')
                ++next;
            if (*next == '\0') break;
            char kept = *next;
            *next = '\0';
            if (!maskChanged) {
                oldMask = umask(kIntermediateMask);
                maskChanged = true;
                // Intermediate directories must stay writable and searchable by their owner; a
                // mask that would then be empty leaves 027 in force.
                mode_t intermediate = oldMask & ~kOwnerWriteSearch;
                if (intermediate != 0) umask(intermediate);
            }
            int32_t made = P_ZAK_Mkdir(path, kAllPermissions, 0);
            if (made == ZAK_FILE_EXISTS && !is_directory(path)) {
                int32_t result = creation_failed(path, maskChanged, oldMask);
                *next = kept;
                return result;
            }
            if (made != 0 && made != ZAK_FILE_EXISTS) {
                int32_t result = creation_code(made, path, maskChanged, oldMask);
                *next = kept;
                return result;
            }
            *next = kept;
            cursor = next;
        }
    }
    if (maskChanged) {
        umask(oldMask);
        maskChanged = false;
    }
    int32_t made = P_ZAK_Mkdir(path, kAllPermissions, 0);
    if (made == 0) {
        if (permission == kKeepPermission) return 0;
        if (chmod(path, permission) == 0) return 0;
        vfm_record_errmsg("can't %s directory '%s'", "set permissions of", path);
        return -1;
    }
    if (made == ZAK_FILE_EXISTS) {
        if ((flags & kMkdirParents) != 0 && is_directory(path)) return 0;
        return creation_failed(path, false, 0);
    }
    return creation_code(made, path, false, 0);
}

} // extern "C"

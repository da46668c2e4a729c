// The copy engine: files, links, special files and directory trees, with a process-wide table of
// the directories it has created so that a tree copied into itself stops at the copy of the copy.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <cstring>

#include "fs/vfm.h"
#include "securec.h"
#include "zak_file.h"

namespace {

constexpr uint32_t kSeenBuckets = 311;
constexpr uint32_t kCopyBlock = 4096;
constexpr uint32_t kReadOnly = ZAK_O_RDONLY;
constexpr uint32_t kWriteTruncate = ZAK_O_WRONLY | ZAK_O_CREAT | ZAK_O_TRUNC;
constexpr uint32_t kOtherFilePermission = 0640;
constexpr mode_t kOwnerAll = 0700;
constexpr mode_t kSetIds = 0xC00;
constexpr mode_t kPermissionBits = 07777;

struct SeenDirectory {
    SeenDirectory *next;
    uint64_t inode;
    uint64_t device;
    char name[1];
};

// Lives for the process and is never emptied: a directory created as a copy destination stays
// known, so copying it again later in the same process is refused as recursion.
SeenDirectory **g_seenDirectories = nullptr;

bool same_file(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

int copy_symlink(const char *source, const struct stat &sourceStat, const char *destination, uint32_t flags) {
    char *target = vfm_readlink(source);
    if (target == nullptr) {
        vfm_record_errmsg("%s: cannot read link.", source);
        return -1;
    }
    if (symlink(target, destination) < 0) {
        vfm_record_errmsg("can't create symlink '%s'", destination);
        vfm_free(target);
        return -1;
    }
    if ((flags & kCopyKeep) != 0 && lchown(destination, sourceStat.st_uid, sourceStat.st_gid) < 0)
        vfm_record_errmsg("can't preserve %s of '%s'", "ownership", destination);
    vfm_free(target);
    return 0;
}

int make_link(const char *source, const char *destination, uint32_t flags) {
    auto attempt = [&] {
        return (flags & kCopySymlink) != 0 ? symlink(source, destination) : link(source, destination);
    };
    if (attempt() == 0) return 0;
    if (vfm_unlink(destination) < 0) return -1;
    if (attempt() == 0) return 0;
    vfm_record_errmsg("can't create link '%s'", destination);
    return -1;
}

int copy_data(const char *source, struct stat &sourceStat, const char *destination, uint32_t flags) {
    // A destination that is another name of the source (a link to it) would be truncated before
    // it is read; refuse it like the same file under its own name.
    struct stat followed {};
    if (stat(destination, &followed) == 0 && same_file(followed, sourceStat)) {
        vfm_record_errmsg("'%s' and '%s' are the same file", source, destination);
        return -1;
    }
    bool regular = S_ISREG(sourceStat.st_mode);
    int32_t input = vfm_open(source, kReadOnly, kOtherFilePermission);
    if (input < 0) return -1;
    int32_t output =
        vfm_open(destination, kWriteTruncate, regular ? sourceStat.st_mode : kOtherFilePermission);
    if (output < 0) {
        (void)P_ZAK_Close(input, 0);
        return -1;
    }
    int status = 0;
    if (vfm_copyfd(input, output) == -1) status = -1;
    if (P_ZAK_Close(output, 0) < 0) {
        vfm_record_errmsg("error writing to '%s'", destination);
        status = -1;
    }
    (void)P_ZAK_Close(input, 0);
    if (regular && (flags & kCopyKeep) != 0) vfm_keep_stat(&sourceStat, destination);
    return status;
}

} // namespace

extern "C" {

const char *VFM_IsInHashtable(const struct stat *record) {
    if (g_seenDirectories == nullptr) return nullptr;
    for (SeenDirectory *entry = g_seenDirectories[record->st_ino % kSeenBuckets]; entry != nullptr;
         entry = entry->next) {
        if (entry->inode == record->st_ino && entry->device == record->st_dev) return entry->name;
    }
    return nullptr;
}

void VFM_AddToHashtable(const struct stat *record, const char *name) {
    if (g_seenDirectories == nullptr) {
        constexpr uint32_t size = kSeenBuckets * sizeof(SeenDirectory *);
        auto **table = static_cast<SeenDirectory **>(vfm_malloc(size));
        if (table == nullptr) return;
        (void)memset_s(table, size, 0, size);
        g_seenDirectories = table;
    }
    size_t nameLength = name != nullptr ? std::strlen(name) : 0;
    auto *entry =
        static_cast<SeenDirectory *>(vfm_malloc(static_cast<uint32_t>(sizeof(SeenDirectory) + nameLength)));
    if (entry == nullptr) return;
    entry->inode = record->st_ino;
    entry->device = record->st_dev;
    if (nameLength > 0) (void)memcpy_s(entry->name, nameLength + 1, name, nameLength);
    entry->name[nameLength] = '\0';
    SeenDirectory *&bucket = g_seenDirectories[record->st_ino % kSeenBuckets];
    entry->next = bucket;
    bucket = entry;
}

int64_t vfm_copyfd(int32_t input, int32_t output) {
    if (input < 0) return -1;
    auto *buffer = static_cast<uint8_t *>(vfm_malloc(kCopyBlock));
    if (buffer == nullptr) return -1;
    int64_t total = 0;
    for (;;) {
        int32_t count = vfm_read(input, buffer, kCopyBlock);
        if (count == 0) break;
        if (count < 0) {
            vfm_record_errmsg("read error");
            vfm_free(buffer);
            return -1;
        }
        total += count;
        if (output < 0) continue; // counting only
        int32_t written = vfm_write_all(output, buffer, count);
        if (written < count) {
            vfm_record_errmsg("write error, ret = %d", written);
            vfm_free(buffer);
            return -1;
        }
    }
    vfm_free(buffer);
    return total;
}

int vfm_keep_stat(struct stat *sourceStat, const char *destination) {
    struct utimbuf times = {sourceStat->st_mtime, sourceStat->st_mtime};
    if (utime(destination, &times) < 0) vfm_record_errmsg("can't keep astTimes of '%s'", destination);
    if (chown(destination, sourceStat->st_uid, sourceStat->st_gid) < 0) {
        sourceStat->st_mode &= ~kSetIds;
        vfm_record_errmsg("can't keep ownership of '%s'", destination);
    }
    if (chmod(destination, sourceStat->st_mode & kPermissionBits) < 0)
        vfm_record_errmsg("can't keep permissions of '%s'", destination);
    return 0;
}

int vfm_copy_dir(const char *source, struct stat *sourceStat, const char *destination,
                 struct stat *destinationStat, int destinationExists, uint32_t flags, int *status) {
    *status = 0;
    if ((flags & kCopyRecursive) == 0) {
        vfm_record_errmsg("omitting directory '%s'", source);
        return -1;
    }
    if (VFM_IsInHashtable(sourceStat) != nullptr) {
        vfm_record_errmsg("recursion detected, omitting directory '%s'", source);
        return -1;
    }
    bool created = false;
    mode_t oldMask = 0;
    if (destinationExists && !S_ISDIR(destinationStat->st_mode)) {
        vfm_record_errmsg("target '%s' is not a directory", destination);
        return -1;
    }
    if (!destinationExists) {
        oldMask = umask(0);
        mode_t bits = sourceStat->st_mode & kPermissionBits;
        mode_t mode = ((flags & kCopyKeep) != 0 ? bits : (bits & ~oldMask)) | kOwnerAll;
        int32_t made = P_ZAK_Mkdir(destination, mode, 0);
        umask(oldMask);
        if (made < 0) {
            vfm_record_errmsg("can't create directory '%s'", destination);
            return -1;
        }
        if (lstat(destination, destinationStat) < 0) {
            vfm_record_errmsg("can't stat '%s'", destination);
            return -1;
        }
        created = true;
    }
    VFM_AddToHashtable(destinationStat, nullptr);

    DIR *directory = opendir(source);
    if (directory == nullptr) {
        *status = -1;
        return 0;
    }
    while (dirent *entry = readdir(directory)) {
        int isDot = 0;
        char *childSource = vfm_join_childrenpath_file(source, entry->d_name, &isDot);
        if (childSource == nullptr) {
            if (isDot != 0) continue;
            *status = -1;
            closedir(directory);
            return 0;
        }
        char *childDestination = vfm_join_path_file(destination, entry->d_name);
        if (childDestination == nullptr) {
            *status = -1;
            vfm_free(childSource);
            closedir(directory);
            return 0;
        }
        if (vfm_copy_file(childSource, childDestination, flags & ~kCopyFollowArgument) < 0) *status = -1;
        vfm_free(childSource);
        vfm_free(childDestination);
    }
    if (created && chmod(destination, (sourceStat->st_mode & kPermissionBits) & ~oldMask) < 0)
        vfm_record_errmsg("can't keep permissions of '%s'", destination);
    closedir(directory);
    return 0;
}

int vfm_copy_file(const char *source, const char *destination, uint32_t flags) {
    struct stat sourceStat {};
    struct stat destinationStat {};
    bool follow = (flags & (kCopyFollowArgument | kCopyFollowAll)) != 0;
    bool linkMode = (flags & (kCopySymlink | kCopyHardLink)) != 0;
    if ((follow ? stat(source, &sourceStat) : lstat(source, &sourceStat)) < 0) {
        if (linkMode) return make_link(source, destination, flags); // a link may name a missing file
        vfm_record_errmsg("can't stat '%s'", source);
        return -1;
    }
    bool destinationExists = true;
    if (lstat(destination, &destinationStat) < 0) {
        if (errno != ENOENT) {
            vfm_record_errmsg("can't stat '%s'", destination);
            return -1;
        }
        destinationExists = false;
    } else if (same_file(sourceStat, destinationStat)) {
        vfm_record_errmsg("'%s' and '%s' are the same file", source, destination);
        return -1;
    }

    if (S_ISDIR(sourceStat.st_mode)) {
        int status = 0;
        int result = vfm_copy_dir(source, &sourceStat, destination, &destinationStat,
                                  destinationExists ? 1 : 0, flags, &status);
        if (result != 0) return result;
        if ((flags & kCopyKeep) != 0) vfm_keep_stat(&sourceStat, destination);
        return status;
    }
    if (linkMode) return make_link(source, destination, flags);

    if (S_ISREG(sourceStat.st_mode) || (flags & kCopyRecursive) == 0) {
        if (S_ISLNK(sourceStat.st_mode) && !follow)
            return copy_symlink(source, sourceStat, destination, flags);
        return copy_data(source, sourceStat, destination, flags);
    }

    // Recursive copy of anything but a regular file: recreate it in place of what is there.
    if (destinationExists) {
        errno = EEXIST;
        if (vfm_unlink(destination) < 0) return -1;
    }
    if (S_ISLNK(sourceStat.st_mode)) return copy_symlink(source, sourceStat, destination, flags);
    if (S_ISCHR(sourceStat.st_mode) || S_ISBLK(sourceStat.st_mode) || S_ISFIFO(sourceStat.st_mode) ||
        S_ISSOCK(sourceStat.st_mode)) {
        if (mknod(destination, sourceStat.st_mode, sourceStat.st_rdev) < 0) {
            vfm_record_errmsg("can't create '%s'", destination);
            return -1;
        }
        if ((flags & kCopyKeep) != 0) vfm_keep_stat(&sourceStat, destination);
        return 0;
    }
    vfm_record_errmsg("unrecognized file '%s' with mode %x", source,
                      static_cast<unsigned>(sourceStat.st_mode));
    return -1;
}

int vfm_copy(char *source, char *destination, uint32_t flags) {
    if (source == nullptr) return -1;
    if (destination != nullptr) {
        struct stat sourceStat {};
        struct stat destinationStat {};
        int sourceKind = (flags & kCopyFollowAll) != 0 ? vfm_file_stat(source, &sourceStat)
                                                       : vfm_file_lstat(source, &sourceStat);
        if (sourceKind == -1) return -1;
        int destinationKind = vfm_file_stat(destination, &destinationStat);
        if (destinationKind == -1) return -1;
        if ((flags & kCopyParents) != 0 && destinationKind != kVfmDirectory) {
            vfm_record_errmsg("with --parents, the destination must be a directory");
            return -1;
        }
        if (sourceKind != kVfmDirectory && destinationKind != kVfmDirectory)
            return vfm_copy_file(source, destination, flags);
        if ((flags & kCopyRecursive) != 0 && destinationKind == kVfmMissing && sourceKind == kVfmDirectory)
            return vfm_copy_file(source, destination, flags);
    }

    const char *directory = destination != nullptr ? destination : ".";
    char *target = nullptr;
    if ((flags & kCopyParents) != 0) {
        target = vfm_join_path_file(directory, source);
        if (target == nullptr) return -1;
        char *parent = vfm_strdup(target);
        if (parent == nullptr) {
            vfm_free(target);
            return -1;
        }
        (void)vfm_get_last_dir(parent); // drops trailing slashes
        char *slash = std::strrchr(parent, '/');
        if (slash != nullptr && slash != parent) *slash = '\0';
        int32_t made = vfm_make_directory(parent, 0xFFFFFFFF, kMkdirParents);
        vfm_free(parent);
        if (made != 0) {
            vfm_free(target);
            return -1;
        }
    } else {
        target = vfm_join_path_file(directory, vfm_get_last_dir(source));
        if (target == nullptr) return -1;
    }
    int result = vfm_copy_file(source, target, flags) < 0 ? -1 : 0;
    vfm_free(target);
    return result;
}

} // extern "C"

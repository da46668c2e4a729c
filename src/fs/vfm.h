// The file engine: copy, remove, move and make-directory over the operating system and the
// platform file layer, and the small path, memory and error helpers they rest on. Every failure
// is reported through vfm_record_errmsg into the diagnostic log.
#pragma once

#include <sys/stat.h>

#include <cstdarg>
#include <cstdint>

// Path classification of vfm_file_stat and vfm_file_lstat.
inline constexpr int kVfmMissing = 0;
inline constexpr int kVfmNotDirectory = 1;
inline constexpr int kVfmDirectory = 3;

// Copy flags.
inline constexpr uint32_t kCopyRecursive = 0x002;
inline constexpr uint32_t kCopyKeep = 0x004;
inline constexpr uint32_t kCopyFollowArgument = 0x010;
inline constexpr uint32_t kCopyFollowAll = 0x020;
inline constexpr uint32_t kCopySymlink = 0x040;
inline constexpr uint32_t kCopyHardLink = 0x080;
inline constexpr uint32_t kCopyParents = 0x100;
// Remove flags.
inline constexpr uint32_t kRemoveRecursive = 0x2;
inline constexpr uint32_t kRemoveForce = 0x8;
// Move flags.
inline constexpr uint32_t kMoveForce = 0x1;
// Directory flags.
inline constexpr uint32_t kMkdirParents = 0x2;
// Directory creation's result when the file layer ran out of memory.
inline constexpr int32_t kMkdirNoMemory = 0x40022B;

extern "C" {

void vfm_record_errmsg(const char *format, ...) __attribute__((format(printf, 1, 2)));
int vfm_file_stat(const char *path, struct stat *record);
int vfm_file_lstat(const char *path, struct stat *record);
char *vfm_last_char_is(const char *text, int character);
void *vfm_malloc(uint32_t size);
char *vfm_strdup(const char *text);
void vfm_free(void *pointer);
int vfm_vajoin(char **out, const char *format, va_list values) __attribute__((format(printf, 2, 0)));
char *vfm_ajoin(const char *format, ...) __attribute__((format(printf, 1, 2)));
char *vfm_join_path_file(const char *directory, const char *name);
char *vfm_join_childrenpath_file(const char *directory, const char *name, int *isDot);
char *vfm_get_last_dir(char *path);
int32_t vfm_open(const char *path, uint32_t flags, uint32_t permission);
int32_t vfm_read(int32_t fd, void *buffer, uint32_t length);
int32_t vfm_write(int32_t fd, const void *buffer, uint32_t length);
int32_t vfm_write_all(int32_t fd, const void *buffer, int32_t length);
int vfm_unlink(const char *path);
char *vfm_readlink(const char *path);

// Seen-directory table.
const char *VFM_IsInHashtable(const struct stat *record);
void VFM_AddToHashtable(const struct stat *record, const char *name);

int vfm_copy(char *source, char *destination, uint32_t flags);
int vfm_copy_file(const char *source, const char *destination, uint32_t flags);
int vfm_copy_dir(const char *source, struct stat *sourceStat, const char *destination,
                 struct stat *destinationStat, int destinationExists, uint32_t flags, int *status);
int64_t vfm_copyfd(int32_t input, int32_t output);
int vfm_keep_stat(struct stat *sourceStat, const char *destination);

int vfm_remove_file(const char *path, uint32_t flags);
int vfm_move(char *source, char *destination, uint32_t flags);
int32_t vfm_make_directory(char *path, uint32_t permission, uint32_t flags);

} // extern "C"

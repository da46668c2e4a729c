/* The platform file layer: descriptor calls over the device's file systems. Every call returns a
 * descriptor, a byte count or 0 on success, or one of the negative codes below. The access
 * handle names the file-system owner; the host accepts any handle. Paths are Linux paths. */
#ifndef PLATFORM_ZAK_FILE_H
#define PLATFORM_ZAK_FILE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Open flags. */
#define ZAK_O_RDONLY 0x01u
#define ZAK_O_WRONLY 0x02u
#define ZAK_O_RDWR 0x04u
#define ZAK_O_APPEND 0x08u
#define ZAK_O_CREAT 0x10u
#define ZAK_O_TRUNC 0x20u

/* Seek origins, as the platform numbers them. */
#define ZAK_SEEK_SET 1
#define ZAK_SEEK_CUR 2
#define ZAK_SEEK_END 4

/* Result codes. */
#define ZAK_FILE_ERROR ((int32_t)0xFFEFFFFF)          /* general error */
#define ZAK_FILE_NO_MEMORY ((int32_t)0xFFEFFFFE)      /* out of memory */
#define ZAK_FILE_EXISTS ((int32_t)0xFFEFFFFD)         /* already exists */
#define ZAK_FILE_NOT_FOUND ((int32_t)0xFFEFFFFC)      /* no such file or directory */
#define ZAK_FILE_DENIED ((int32_t)0xFFEFFFFB)         /* permission denied */
#define ZAK_FILE_NOT_DIR ((int32_t)0xFFEFFFFA)        /* a path component is not a directory */
#define ZAK_FILE_IS_DIR ((int32_t)0xFFEFFFF9)         /* is a directory */
#define ZAK_FILE_NO_SPACE ((int32_t)0xFFEFFFF8)       /* no space left */
#define ZAK_FILE_BAD_DESCRIPTOR ((int32_t)0xFFEFFFF7) /* not an open descriptor */
#define ZAK_FILE_INVALID ((int32_t)0xFFEFFFF6)        /* invalid argument */

int32_t P_ZAK_Open(const char *path, uint32_t flags, uint32_t handle, uint32_t mode);
int32_t P_ZAK_Read(int32_t fd, void *buffer, uint32_t length, uint32_t handle);
int32_t P_ZAK_Write(int32_t fd, const void *buffer, uint32_t length, uint32_t handle);
int32_t P_ZAK_LSeek(int32_t fd, int32_t offset, int32_t origin, uint32_t handle);
int32_t P_ZAK_FSync(int32_t fd, uint32_t handle);
int32_t P_ZAK_Close(int32_t fd, uint32_t handle);
int32_t P_ZAK_Mkdir(const char *path, uint32_t mode, uint32_t handle);

#ifdef __cplusplus
}
#endif

#endif

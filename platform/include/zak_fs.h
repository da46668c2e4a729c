/* File-system services of the platform beyond the descriptor calls of zak_file.h: the descriptor
 * leak register, access handles, ownership changes to the platform's accounts, device paths and
 * the package manager's path helpers. */
#ifndef PLATFORM_ZAK_FS_H
#define PLATFORM_ZAK_FS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One descriptor for the leak register: a descriptor still open `uiTimeOutMs` milliseconds after
 * it was registered counts as leaked. Closing it through P_ZAK_Close unregisters it. */
typedef struct {
    int32_t iFd;
    uint32_t uiTimeOutMs;
} ZAK_FD_LEAK_CHECK_INFO;

/* 0 when registered; a negative file-layer code for a null record or a negative descriptor. */
int32_t P_ZAK_FdLeakCheckInfoSet(const ZAK_FD_LEAK_CHECK_INFO *info);

/* Maps a file-system number to the access handle of `ownerTag`; 0 on success (handle written),
 * nonzero on failure (handle untouched). */
uint32_t QAV_GetZakHandle(uint32_t number, uint32_t *handle, uint32_t ownerTag);

/* Give the path to the platform's service account or to the FTP account; 0 or -1. */
int32_t P_BOOT_Chown2ZAK(const char *path, uint32_t flag);
int32_t P_BOOT_Chown2Ftp(const char *path, uint32_t flag);

/* 0 when `path` is a device path ("<storage>:<relative path>") of a known storage. */
uint32_t ZAK_InputPathCheck(const char *path);
/* Device path to Linux path and back; 0 on success, else a nonzero code (out left empty). */
uint32_t ZAK_ZakPathToLinuxPath(const char *zakPath, char *linuxPath, uint32_t size);
uint32_t ZAK_LinuxPathToZakPath(const char *linuxPath, char *zakPath, uint32_t size);

/* Tidies a Linux path in place (runs of '/' made one, "." components and a trailing '/' dropped);
 * 0, or nonzero for a null path or a size of 0. */
uint32_t RPM_CutPathStr(char *path, uint32_t size);
/* The platform's common root directory into buffer[size]; 0, or nonzero when it does not fit. */
uint32_t RPM_GetCommonRootPath(uint32_t size, char *buffer);
/* 1 when the path exists, else 0. */
uint32_t RPM_IsExistFile(const char *path);
/* 1 when the package or file named by `text` must pass a CMS signature check, else 0. */
uint32_t RPM_NeedCMSCheck_HOOK(const char *text);

#ifdef __cplusplus
}
#endif

#endif

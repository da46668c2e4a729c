/* Package manager paths, package files and RPG images. Calls return 0 on success unless said. */
#ifndef PLATFORM_RPM_PATHS_H
#define PLATFORM_RPM_PATHS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Path modes of RPM_GetFullPath. */
#define RPM_PATH_DEVICE_ROOT 1u /* relative to the device root */
#define RPM_PATH_PROGRAM 2u     /* relative to the common root, for program images */
#define RPM_PATH_COMMON 3u      /* relative to the common root */

/* The information of an RPG image (its rpg.rinfo). */
typedef struct RPM_RPG_INFO {
    char szRpgName[64];
    char szRpgVersion[64];
    char szRpgType[64];
} RPM_RPG_INFO;

/* 0 when the text can name a package file. */
uint32_t RPMFS_CheckFileName(const char *name);
/* Removes one file. */
uint32_t RPMFS_DelFile(const char *path);
/* The full path of `relative` in the given mode. */
uint32_t RPM_GetFullPath(const char *relative, char *out, uint32_t size, uint32_t mode);
/* The full path of a package file given as a name under the storage or a full path. */
uint32_t RPM_GetPktFullName(const char *package, char *out, uint32_t size);
/* Rewrites a directory path in place into standard form: '/' separators, no repeated
 * separators, one trailing '/'. */
uint32_t RPM_ChgPath2Standad(char *path, uint32_t size);
/* The name of the running deployment's description file; `envName` names the environment
 * variable that may give it; `flags` may be null. */
uint32_t RPM_GetCurrDesFile_HOOK(const char *envName, char *out, uint32_t size, uint32_t *flags);
/* Reads an rpg.rinfo file. */
uint32_t RPM_SU_GetRpgInfo_HOOK(const char *rinfoFile, RPM_RPG_INFO *info);
/* Mounts an RPG image on a mount point (created when absent). */
uint32_t RPM_SU_MountRpg_HOOK(const char *image, const char *mountPoint);
uint32_t RPMFS_UnMount(const char *mountPoint);
/* Nonzero when something is mounted on the directory. */
uint32_t RPM_IsDirMounted_HOOK(const char *dir);
/* Removes a directory; with `recursive` nonzero, with everything under it. */
uint32_t RPM_RmParentDir(const char *dir, uint32_t recursive);
/* Nonzero when the file exists. */
uint32_t PAT_IsFileExist(const char *path);

/* Device paths "<storage>:<relative path>": 0 when the text is one of a known storage. */
uint32_t ZAK_InputPathCheck(const char *path);
/* The Linux path of a device path. */
uint32_t ZAK_ZakPathToLinuxPath(const char *devicePath, char *out, uint32_t size);
/* Gives the file to the platform's service account; 0 on success. */
uint32_t P_ZAK_Chown2ZAK(const char *path, uint32_t flags);

#ifdef __cplusplus
}
#endif

#endif

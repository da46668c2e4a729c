/* Package-manager and security state that the upgrade scripts query through the library. */
#ifndef PLATFORM_RPM_STATE_H
#define PLATFORM_RPM_STATE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Size of the name buffer RPM_GetFileListNameByFileTypeOnMPU fills. */
#define RPM_FILELIST_NAME_SIZE 64u

/* Writes the package manager's upgrade flag; 0 on success (the flag is left alone otherwise). */
uint32_t RPM_GetUpgradeFlag(uint32_t *flag);
/* Saves a copy of the patch history INI file; 0 on success. */
uint32_t RPM_BackupPatchHistoryIni(void);
/* The device's FIPS mode: 1 when enabled, else 0. */
uint32_t QAV_FIPS_GetFipsStatus(void);
/* Writes the file-list name of a file type of the main processing unit into
 * name[RPM_FILELIST_NAME_SIZE]; 0 on success, non-zero when there is none or it does not fit. */
uint32_t RPM_GetFileListNameByFileTypeOnMPU(uint32_t fileType, uint32_t subType, uint32_t flag, char *name);

#ifdef __cplusplus
}
#endif

#endif

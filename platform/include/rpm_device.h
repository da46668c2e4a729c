/* What the package manager knows of the running deployment: VNF, VNFC and NE identity, the
 * common home path, the running version file, package versions, the inner hardware record and
 * the backup state. Every call returns 0 on success and a nonzero code otherwise; texts are
 * NUL-terminated and cut to the given size. */
#ifndef PLATFORM_RPM_DEVICE_H
#define PLATFORM_RPM_DEVICE_H

#include <stdint.h>

#include "zak_device.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The running VNF: instance id, name, descriptor (VNFD) id, version. */
uint32_t RPM_GetVNFInfo_HOOK(char *instanceId, uint32_t instanceIdSize, char *name, uint32_t nameSize,
                             char *vnfdId, uint32_t vnfdIdSize, char *version, uint32_t versionSize);
/* The running VNFC: instance id, name, type. */
uint32_t RPM_GetVNFCInfo_HOOK(char *instanceId, uint32_t instanceIdSize, char *name, uint32_t nameSize,
                              char *type, uint32_t typeSize);
/* The network element this node belongs to: its id and its name, each in a buffer of `size`. */
uint32_t RPM_GetCurNEResInfo_HOOK(char *neId, char *neName, uint32_t size);
/* The package manager's common home directory (no trailing '/'); `logId` names the log a
 * failure is written to. */
uint32_t RPM_GetCommHomePath_HOOK(char *path, uint32_t size, uint32_t logId);
/* The version configuration file of the running version. */
uint32_t RPM_GetVercfgFileName_HOOK(char *path, uint32_t size);
/* The version of the package that ran before the current one. */
uint32_t RPM_GetLastRpgVersion(char *version, uint32_t size);
/* The version of the running package. */
uint32_t RPM_GetCurPkgVersion(uint32_t size, char *version);
/* The hardware record as the package manager sees it (its own board type may differ from the
 * one the board reports, for boards that run another board's software). */
uint32_t RPM_GetHardInfo_Inner(ZAK_HARD_INFO *info);

/* Nonzero when the platform offers the backup-state query. */
uint32_t QAV_ExistZAK_GetBackupInfoState(void);
/* The two backup states: of this board and of its mate. */
uint32_t QAV_ZAKGetBackupInfoState(uint16_t *state1, uint16_t *state2);

/* Services of the package manager's file and XML layers that the device functions use. */
/* The text of the element at a slash-separated path from the root ("Product/InterfaceId"). */
uint32_t RPM_ParseXmlElementNodeValueByPath_HOOK(const char *xmlPath, const char *elementPath, char *out,
                                                 uint32_t size);
/* Removes one file; 0 on success. */
uint32_t RPMFS_DelFile(const char *path);
/* The full path of `relative` under the platform's roots (mode 2: the common root, mode 3:
 * storage flash0). */
uint32_t RPM_GetFullPath(const char *relative, char *out, uint32_t size, uint32_t mode);

#ifdef __cplusplus
}
#endif

#endif

/* The file-system interface's access policy: which access a user has to a path, and the
 * canonical form of a path. */
#ifndef PLATFORM_TFSI_H
#define PLATFORM_TFSI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Operation and access bits. */
#define TFSI_ACCESS_READ 0x1u
#define TFSI_ACCESS_WRITE 0x2u
#define TFSI_ACCESS_EXEC 0x4u
#define TFSI_ACCESS_DELETE 0x8u

/* Result codes. */
#define TFSI_OK 0u
#define TFSI_ERR_PARA 0x401C10u     /* null pointer, no entries, unknown policy deliver type */
#define TFSI_ERR_PATH 0x401C11u     /* empty path, or ".." above the root */
#define TFSI_ERR_TOO_LONG 0x401C12u /* canonical path longer than TFSI_PATH_MAX - 1 characters */

#define TFSI_PATH_MAX 256u

/* Why an entry got its access. */
#define TFSI_DETAIL_ALLOWED 0u     /* a rule grants every requested operation */
#define TFSI_DETAIL_OPER_DENIED 1u /* a rule applies but lacks a requested operation */
#define TFSI_DETAIL_LEVEL 2u       /* the user's level is below every rule for the path */
#define TFSI_DETAIL_GROUP 3u       /* rules for the path exclude the user's group */
#define TFSI_DETAIL_NO_RULE 4u     /* no rule covers the path: the default access applies */
#define TFSI_DETAIL_BAD_PATH 5u    /* the path cannot be made canonical: nothing granted */

/* The user asking (seven words, zero-filled by the caller). */
typedef struct TFSI_USER_INFO {
    uint32_t uiPolicyDeliverType; /* 0 local policy, 1 policy delivered by the management plane */
    uint32_t uiReserved;
    uint32_t uiUserLrId;
    uint32_t uiUserVrId;
    uint32_t uiUserId;
    uint32_t uiUserGroup;
    uint32_t uiUserLevel;
} TFSI_USER_INFO;

/* One path asked about; the caller fills the path and the operation, the policy the rest. */
typedef struct TFSI_PATH_ACCESS {
    const char *pcPath;
    uint32_t uiOper;       /* TFSI_ACCESS_* bits requested */
    uint32_t uiFileAccess; /* TFSI_ACCESS_* bits granted on the path */
    uint32_t uiPathAccess; /* TFSI_ACCESS_* bits granted on the directory holding it */
    uint32_t uiOperAllow;  /* 1 when every requested bit is granted, else 0 */
    uint32_t uiDetailType; /* TFSI_DETAIL_* */
} TFSI_PATH_ACCESS;

/* Fills the four output words of each of `count` entries for `user`. */
uint32_t TFSI_FilesAccessOfOneUserQuery(const TFSI_USER_INFO *user, uint32_t count,
                                        TFSI_PATH_ACCESS *entries);
/* The canonical form of `path` into out[TFSI_PATH_MAX]: an optional storage prefix ("flash0:")
 * kept as written, then '/' and the components, with "." and empty components dropped and ".."
 * removing the one before it; no trailing '/', except that `isDirectory` nonzero ends the result
 * with one. */
uint32_t TFSI_FormatPath(const char *path, uint32_t isDirectory, char *out);

#ifdef __cplusplus
}
#endif

#endif

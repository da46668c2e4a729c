/* Patch packages and patch metadata: the 6480-byte patch package header, its hot-patch
 * descriptors, patch file names and custom patch versions, package digests, the certificate
 * revocation list path, and the doubly linked list the hardware-type query answers in. */
#ifndef PLATFORM_PAT_PKG_H
#define PLATFORM_PAT_PKG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Patch package header (little-endian fields) ------------------------------------------ */

#define PAT_PKG_HEAD_LEN 6480
#define PAT_PKG_NAME_LEN 32 /* bytes 0..31: RPG name followed by the 8-character main version */
#define PAT_PKG_MAINVER_LEN 8
#define PAT_PKG_PATCHVER_OFFSET 32 /* bytes 32..63: patch version text */
#define PAT_PKG_PATCHVER_LEN 32
#define PAT_PKG_TYPE_OFFSET 64    /* u32 patch type */
#define PAT_PKG_NUM_OFFSET 68     /* u32 patch number: descriptor entries in use */
#define PAT_PKG_FILELEN_OFFSET 72 /* u32 length of the whole package file */
#define PAT_PKG_CMS_OFFSET 76     /* u32 CMS information word */
#define PAT_PKG_DESC_OFFSET 80    /* 100 descriptor entries of 64 bytes */
#define PAT_PKG_DESC_NUM 100
#define PAT_PKG_DESC_LEN 64

/* Descriptor entry fields. */
#define PAT_DESC_SUBVER_LEN 32    /* bytes 0..31: sub-file version text */
#define PAT_DESC_TYPE_OFFSET 32   /* u32 patch type */
#define PAT_DESC_BOARD_OFFSET 36  /* u32 board type */
#define PAT_DESC_OFFSET_OFFSET 52 /* u32 offset of the sub-file in the package */
#define PAT_DESC_LENGTH_OFFSET 56 /* u32 length of the sub-file */

/* Patch type of a descriptor entry that describes a hot patch. */
#define PAT_TYPE_HOT 171

/* Results of the header reader. */
#define PAT_OK 0
#define PAT_ERR_MEMORY 5001
#define PAT_ERR_OPEN 5002
#define PAT_ERR_SHORT 5003
#define PAT_ERR_HEADER 5004
#define PAT_ERR_PARAM 5005
#define PAT_ERR_LENGTH 5006 /* the header is sound but the file's length differs from its record */

/* Reads the header of a patch package into buffer[PAT_PKG_HEAD_LEN]. PAT_OK, or PAT_ERR_LENGTH
 * with the header filled, or another PAT_ERR_ code. */
uint32_t PAT_GetPatPkgHeaderInfo(const char *path, uint8_t *buffer);
/* The CMS information word of a header read by PAT_GetPatPkgHeaderInfo. 0 or PAT_ERR_PARAM. */
uint32_t PAT_GetPatPkgHeadCmsInfo(const uint8_t *buffer, uint32_t *cmsInfo);
/* The board type of the package's first descriptor entry; 0 when it has none, 0xFFFFFFFF when
 * the header cannot be read. */
uint32_t PAT_GetPatPkgBoardType(const char *path);
/* 1 when the file exists, else 0. */
uint32_t PAT_IsFileExist(const char *path);
/* 1 when the path names a patch file (extension ".pat"); `isPackage` is then 1 when the file
 * starts with a sound patch package header and 0 for a bare patch file. 0 otherwise. */
uint32_t PAT_IsPatchFile(const char *path, uint32_t *isPackage);
/* Checks the patch package `first` against the installed patch package `second`: `firstNum`
 * and `secondNum` get their patch numbers, `sameBase` is 1 when both are for the same RPG name
 * and main version, `contains` is 1 when every hot-patch sub-file version of `second` is also
 * in `first`. 0, or the header reader's code for the package that could not be read. */
uint32_t PAT_CheckInrPkg(const char *first, const char *second, uint32_t *firstNum, uint32_t *secondNum,
                         uint32_t *sameBase, uint32_t *contains);

/* ---- Doubly linked list ------------------------------------------------------------------- */

typedef struct DLL_NODE {
    struct DLL_NODE *next;
    struct DLL_NODE *prev;
} DLL_NODE;

typedef struct {
    DLL_NODE *first;
    DLL_NODE *last;
    uint32_t count;
} DLL_LIST;

/* A hardware type in a DLL_LIST. */
typedef struct {
    DLL_NODE node;
    uint32_t uiHardType;
} PAT_HARDTYPE_NODE;

void DLL_Init(DLL_LIST *list);
void DLL_Add(DLL_LIST *list, DLL_NODE *node);
/* Unlinks every node and hands each to freeNode; the list ends empty. */
void DLL_FreeAll(DLL_LIST *list, void (*freeNode)(void *node));

/* Appends to `list` (initialised by the caller) the hardware types that need a hard reset to
 * take the cold patches of the patch package `patch` for the RPG `rpgName` at main version
 * `rpgVersion`: the board types of its cold descriptor entries, each once, in entry order.
 * 0, a header reader code, or PAT_ERR_PARAM when the package is for another RPG or version. */
uint32_t PAT_GetHardTypeOfColdPatHardRst(const char *patch, const char *rpgName, const char *rpgVersion,
                                         DLL_LIST *list);

/* ---- Patch names, versions and digests ---------------------------------------------------- */

/* Finds the patch `name` (with or without its ".pat" extension) in the patch directory:
 * fileName gets the file's name, fullPath its full path. 0 when found, else 1. */
uint32_t RPM_GetRealPatchFileName(const char *name, char *fileName, uint32_t fileNameSize, char *fullPath,
                                  uint32_t fullPathSize, uint32_t flags);
/* 1 when `pattern` is a well-formed custom patch version pattern, else 0. */
uint32_t isPatFullPatternCorrect(const char *pattern);
/* The custom version of patch `name` after `pattern`. 0 or 1. */
uint32_t RPM_GetPatchCustomVersion(const char *name, const char *pattern, char *version, uint32_t size);
/* The MD5 digest of a whole patch package file as 32 lower-case hexadecimal characters. 0 or 1. */
uint32_t RPM_MD5_HashFile_ForPatPkg(const char *path, char *digest, uint32_t size);
/* The MD5 digest of `length` bytes of a file from `offset` (length 0: to the end). 0, 1 when the
 * file cannot be read, 2 when the range lies outside the file. */
uint32_t RPM_MD5_HashFileRange(const char *path, uint64_t offset, uint64_t length, char *digest,
                               uint32_t size);

/* ---- Certificate revocation lists --------------------------------------------------------- */

/* The platform's CRL root-path service: 0 with the path, or non-zero. Optional: a platform
 * that does not offer it answers null from ZAK_FindCRLFileRootPath. */
typedef uint32_t (*ZAK_CRL_ROOT_PATH_FUNC)(char *path, uint32_t size);
uint32_t ZAK_GetCRLFileRootPath(char *path, uint32_t size);
/* ZAK_GetCRLFileRootPath when the platform offers it in this process, else null. */
ZAK_CRL_ROOT_PATH_FUNC ZAK_FindCRLFileRootPath(void);

#ifdef __cplusplus
}
#endif

#endif

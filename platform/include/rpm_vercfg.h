/* The package manager's readers of a package's version configuration file (vercfg.xml) and the
 * records they fill. Every hook returns 0 on success and a nonzero code otherwise. */
#ifndef PLATFORM_RPM_VERCFG_H
#define PLATFORM_RPM_VERCFG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Type code that selects every file node. */
#define RPM_ALL_TYPE_CODE 0xFFFFFFFFu

/* One file node of vercfg.xml (524 bytes). */
typedef struct RPM_FILE_NODE_INFO {
    uint32_t uiTypeCode;     /* 0: type code */
    uint32_t uiNodeType;     /* 4: node type word */
    uint32_t uiAttr;         /* 8: numeric attribute */
    char szDestObjType[128]; /* 12: destination object type */
    char szSha256[128];      /* 140: SHA-256 as hexadecimal text, empty when none */
    char szFileName[256];    /* 268: file name relative to the directory of vercfg.xml */
} RPM_FILE_NODE_INFO;

/* The application entry (257 bytes): its type and its second field. */
typedef struct RPM_APP_INFO {
    char szAppType[65];
    char szAppInfo[192];
} RPM_APP_INFO;

/* The VNF entry: its product type first. */
typedef struct RPM_VNF_INFO {
    char szProductType[64];
    char szInterfaceId[128];
} RPM_VNF_INFO;

/* The key check items (448 bytes): six texts at offsets 0, 64, 128, 256, 320 and 384. */
typedef struct RPM_KEY_NODE_INFO {
    char szItem1[64];
    char szItem2[64];
    char szItem3[128];
    char szItem4[64];
    char szItem5[64];
    char szItem6[64];
} RPM_KEY_NODE_INFO;

/* The text of the first element named `name` (document order), into out[size]. */
uint32_t RPM_ParseXmlElementNodeValue_HOOK(const char *xmlFile, const char *name, char *out, uint32_t size);
/* The text of the element at the slash-separated path below the root ("Product/VNF/ProductType"). */
uint32_t RPM_ParseXmlElementNodeValueByPath_HOOK(const char *xmlFile, const char *path, char *out,
                                                 uint32_t size);
/* Number of file nodes of a type code (RPM_ALL_TYPE_CODE: all). */
uint32_t RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK(const char *xmlFile, uint32_t typeCode, uint32_t *count);
uint32_t RPM_ParseXmlDstTypeCodeFileNodeNum(const char *xmlFile, uint32_t typeCode, uint32_t *count);
/* The file nodes of a type code in document order; at most `capacity` records are written and a
 * file holding more than `capacity` such nodes is an error. */
uint32_t RPM_ParseXmlDstTypeCodeFileNodeInfo_HOOK(const char *xmlFile, uint32_t typeCode,
                                                  RPM_FILE_NODE_INFO *nodes, uint32_t capacity);
uint32_t RPM_ParseXmlAllFileNodeInfo_HOOK(const char *xmlFile, RPM_FILE_NODE_INFO *nodes, uint32_t capacity);
/* Number of file nodes and their records by destination object type. */
uint32_t RPM_ParseXmlDstObjTypeFileNodeNum_HOOK(const char *xmlFile, const char *destObjType,
                                                uint32_t *count);
uint32_t RPM_ParseXmlDstObjTypeFileNodeInfo_HOOK(const char *xmlFile, const char *destObjType,
                                                 RPM_FILE_NODE_INFO *nodes, uint32_t capacity);
/* The application, VNF and key check item records. */
uint32_t RPM_ParseXmlGetAppInfo_HOOK(const char *xmlFile, RPM_APP_INFO *app);
uint32_t RPM_ParseXmlGetVnfInfo_HOOK(const char *xmlFile, RPM_VNF_INFO *vnf);
uint32_t RPM_ParseXmlGetKeyNodeInfo_HOOK(const char *xmlFile, RPM_KEY_NODE_INFO *keys);
/* Replaces every `from` character of text in place. */
uint32_t RPM_ReplaceSrcChar2Dst_HOOK(char *text, char from, char to);
/* Nonzero when the file exists. */
uint32_t RPMFS_ProcIsFileExist(const char *path);

#ifdef __cplusplus
}
#endif

#endif

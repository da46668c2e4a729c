/* The configuration database of components and boards, and the component address service.
 *
 * A table is named by a table id (CMF_GetTabIdByClassId finds it from its class id). A record is
 * an array of 32-bit words, its fields, numbered from 1. A select takes a condition: the database
 * id, how many records the caller wants at most (0: all) and up to CMF_DB_MAX_KEYS keys, each a
 * field number, a value width in bytes (1, 2 or 4: that many low-order bytes of the field are
 * compared) and the value; a record matches when every key matches. */
#ifndef PLATFORM_CMF_DB_H
#define PLATFORM_CMF_DB_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CMF_DB_MAX_KEYS 4u

/* Result codes of the database calls. */
#define CMF_DB_OK 0u
#define CMF_DB_ERR_PARA 0x80A00001u      /* null pointer, bad key width or field, zero record size */
#define CMF_DB_ERR_NO_TABLE 0x80A00002u  /* no table with this id, or no table of this class */
#define CMF_DB_ERR_NOT_FOUND 0x80A00003u /* no record matches, or the OS node has no component */

/* Tables the library names. */
#define CMF_TAB_COMPONENT 45u /* one record per component: field 1 component id (CID), */
                              /* field 2 component type, field 3 OS node */
#define CMF_COMP_FIELD_CID 1u
#define CMF_COMP_FIELD_TYPE 2u
#define CMF_CLASS_OSNODE 0x809A024u /* one record per OS node: field 1 OS node id, 2 CPU id, */
                                    /* 3 node type, 5 chassis, 6 shelf, 7 board (slot) */
#define CMF_OSNODE_FIELD_NODE 1u
#define CMF_OSNODE_FIELD_CHASSIS 5u
#define CMF_OSNODE_FIELD_SHELF 6u
#define CMF_OSNODE_FIELD_BOARD 7u

typedef struct CMF_DB_KEY {
    uint32_t uiFieldId; /* field number, from 1 */
    uint32_t uiLen;     /* bytes compared: 1, 2 or 4 */
    uint32_t uiValue;
} CMF_DB_KEY;

typedef struct CMF_DB_COND {
    uint32_t uiDbId;     /* database id (ZAK_GetEnvValue(2, ...) on a device) */
    uint32_t uiMatchNum; /* records wanted at most; 0 for all */
    uint32_t uiKeyNum;   /* keys in use, 0 to CMF_DB_MAX_KEYS; 0 matches every record */
    CMF_DB_KEY astKey[CMF_DB_MAX_KEYS];
} CMF_DB_COND;

/* The id of the table holding records of `classId`. */
uint32_t CMF_GetTabIdByClassId(uint32_t classId, uint32_t *tableId);
/* How many records of the table match the condition (bounded by uiMatchNum when non-zero). */
uint32_t CMF_DBGetRecNum(uint32_t tableId, const CMF_DB_COND *cond, uint32_t *count);
/* Copies the first matching record into record[recordSize]: its fields in order, cut to
 * recordSize bytes, the rest of the buffer zero-filled. */
uint32_t CMF_DBSelectFirstRec(uint32_t tableId, const CMF_DB_COND *cond, void *record, uint32_t recordSize);
/* Copies up to maxRecords matching records (also bounded by uiMatchNum when non-zero), each as
 * CMF_DBSelectFirstRec lays one out in recordSize bytes, one after another; *count receives
 * how many were written. No match is success with *count 0. */
uint32_t CMF_DBSelectAllRec(uint32_t tableId, const CMF_DB_COND *cond, void *records, uint32_t recordSize,
                            uint32_t maxRecords, uint32_t *count);
/* The process id of the component that runs on an OS node. A negative id is a component
 * process instance (CPI), a non-negative one a component service instance (CSI). `mode` 2 asks
 * for the node's main component (the only mode in use). */
uint32_t CMF_GetPIDByOsNode(uint32_t mode, uint32_t osNode, int32_t *pid);

/* Address and state of one component instance: 16 bytes, four words. */
typedef struct DMS_COMP_ADDR_INFO {
    uint32_t uiCompType; /* component type */
    uint32_t uiCompId;   /* component id (CID) */
    uint32_t uiOsNode;   /* OS node the instance runs on */
    uint32_t uiState;    /* 0 absent, 1 active, 2 standby, 3 faulty */
} DMS_COMP_ADDR_INFO;

#define DMS_CSI_MAX_ENTRIES 2u

/* The address of a CPI. */
uint32_t DMS_CamCompAddrInfoGetByCpi(int32_t cpi, DMS_COMP_ADDR_INFO *entry);
/* The addresses of the instances of a CSI: *count receives how many the CSI has; at most
 * DMS_CSI_MAX_ENTRIES are written to entries, so a count above that is a misconfiguration the
 * caller rejects. */
uint32_t DMS_CamCompAddrInfoGetByCsi(int32_t csi, uint32_t *count, DMS_COMP_ADDR_INFO *entries);

#ifdef __cplusplus
}
#endif

#endif

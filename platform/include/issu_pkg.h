/* The package manager: package descriptions (entities, versions, requirements), their
 * comparison for an in-service upgrade, requirement queries, entity groups, the containers and
 * pointer lists the queries answer in, and the package information file (rpg.rinfo).
 *
 * Ownership: a package object owns its entity records, their texts, versions, file lists and
 * requirements. Lists and containers filled by a query borrow the records of the package they
 * were filled from, so they must be freed before the package is deleted. Texts returned by the
 * *_ToString functions belong to the caller, who frees them with RPM_Os_Free. */
#ifndef PLATFORM_ISSU_PKG_H
#define PLATFORM_ISSU_PKG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Pointer lists ------------------------------------------------------------------------ */

/* Releases one item of a list; null for items the list only borrows. */
typedef void (*ISSU_PTR_FREE_FUNC)(void *item);

/* An ordered list of pointers, each with its own release function. */
typedef struct ISSU_PTR_LIST ISSU_PTR_LIST;

/* A new empty list, or null when it cannot be allocated. */
ISSU_PTR_LIST *ISSU_PtrListCreate(void);
/* Appends `item`; `freeItem` (may be null) releases it when the list is freed. Returns 0, or
 * non-zero when the list is null or no memory is left for the node (the item is then not owned by
 * the list and the caller keeps it). */
uint32_t ISSU_PtrListAppend(ISSU_PTR_LIST *list, void *item, ISSU_PTR_FREE_FUNC freeItem);
/* Number of items; 0 for a null list. */
uint32_t ISSU_PtrListCountNum(const ISSU_PTR_LIST *list);
/* The item at 1-based position `index` (1 .. count), or null when out of range. */
void *ISSU_PtrListGetNode(const ISSU_PTR_LIST *list, uint32_t index);
/* Releases every item with its release function, then the list itself. Null is accepted. */
void ISSU_PtrListFree(ISSU_PTR_LIST *list);

/* ---- Versions and relations --------------------------------------------------------------- */

#define ISSU_VER_MAX_PARTS 8

/* A dotted version "1.2.10": up to 8 numeric parts compared in order, missing parts count 0.
 * A version with no parts is set but has no text form. */
typedef struct {
    uint32_t uiPartNum;
    uint32_t auiPart[ISSU_VER_MAX_PARTS];
} ISSU_VER;

/* Relation operators of a requirement. */
typedef enum {
    ISSU_REL_ANY = 0, /* no version given: any version of the entity */
    ISSU_REL_EQ = 1,  /* "=" */
    ISSU_REL_GE = 2,  /* ">=" */
    ISSU_REL_LE = 3,  /* "<=" */
    ISSU_REL_GT = 4,  /* ">" */
    ISSU_REL_LT = 5,  /* "<" */
} ISSU_REL_OP;

/* One requirement of an entity: the required entity's name, a relation and a version. */
typedef struct {
    char *pcName;
    uint32_t uiOp;        /* ISSU_REL_OP */
    ISSU_VER *pstVersion; /* null for ISSU_REL_ANY */
} ISSU_REL;

/* "1.2.10"; null when the version is null, has no parts or the text cannot be allocated. */
char *ISSU_VER_ToString(const ISSU_VER *version);
/* "rib >= 1.2", or "rib" for a requirement on any version; null when it cannot be formed. */
char *ISSU_REL_ToString(const ISSU_REL *relation);
/* <0, 0, >0 as first is below, equal to or above second. */
int32_t ISSU_VER_Compare(const ISSU_VER *first, const ISSU_VER *second);

/* ---- Entities and packages ---------------------------------------------------------------- */

/* One entity of a package description. Absent texts and versions are null. */
typedef struct {
    uint32_t uiId;
    char *pcName;
    char *pcSection; /* "entity" for installable entities; other sections describe features, boards ... */
    char *pcType;
    char *pcCpu;
    ISSU_VER *pstVersion;
    ISSU_VER *pstCurVersion;
    ISSU_VER *pstCompVersion;
    ISSU_PTR_LIST *pstFiles; /* file names (char *); a null item is a file entry without a name */
    uint8_t ucCompat;
    uint8_t ucChangeFlag;
    char *pcUpgradeMode;
    char *pcIncompatibleUpgradeMode;
    char *pcCompatibilityVer;
    ISSU_PTR_LIST *pstRequires; /* ISSU_REL * in description order */
} ISSU_ENTITY;

typedef struct ISSU_PKG ISSU_PKG;

/* Change flags the comparison reports an entity under. */
#define ISSU_CHANGE_MODIFIED 1
#define ISSU_CHANGE_ADDED 2
#define ISSU_CHANGE_REMOVED 3

/* Result codes of the package manager (negative: load failures). */
#define ISSU_PKG_OK 0
#define ISSU_PKG_ERR_PARAM (-1)
#define ISSU_PKG_ERR_OPEN (-2)
#define ISSU_PKG_ERR_PARSE (-3)
#define ISSU_PKG_ERR_MEMORY (-4)
#define ISSU_PKG_ERR_NOT_FOUND (-5)
#define ISSU_PKG_ERR_LOADED (-6)

/* A new empty package object, or null. */
ISSU_PKG *ISSU_PKG_CreatePkg(void);
/* Loads a package description file into an empty object. The name "c_entity" loads the device's
 * current entity database (the file the profile names). 0, or a negative ISSU_PKG_ERR_ code. */
int32_t ISSU_PKG_Load(ISSU_PKG *package, const char *path);
/* Frees the object with everything it owns. Null is accepted. */
void ISSU_PKG_DeletePkg(ISSU_PKG *package);
/* The entity record of that name, or null. */
ISSU_ENTITY *ISSU_PKG_QueryEntity(ISSU_PKG *package, const char *name);
/* Compares two packages by entity name: `modified` gets the second package's records of
 * entities present in both whose version, files or requirements differ, `added` the second
 * package's records of entities only it has, `removed` the first package's records of entities
 * only it has; each in description order. The lists borrow the records. 0 or an error code. */
int32_t ISSU_Pkg_Compare(ISSU_PKG *first, ISSU_PKG *second, ISSU_PTR_LIST *modified, ISSU_PTR_LIST *added,
                         ISSU_PTR_LIST *removed);
/* Sorts the requirements of entity `name`: those met by an entity of the package go to
 * `matched`, the rest (entity missing or its version outside the relation) to `mismatched`;
 * both lists borrow the ISSU_REL records. 0, or ISSU_PKG_ERR_NOT_FOUND for an unknown entity. */
int32_t ISSU_PKG_CheckDep(ISSU_PKG *package, const char *name, ISSU_PTR_LIST *matched,
                          ISSU_PTR_LIST *mismatched);

/* ---- Containers (entity sets in name order) ------------------------------------------------ */

typedef struct ISSU_CDT ISSU_CDT;

/* A node of a container, visited in ascending entity-name order. */
typedef struct QAV_RBT_NODE {
    ISSU_ENTITY *pstEntity;
} QAV_RBT_NODE;

ISSU_CDT *ISSU_CDT_Create(void);
void ISSU_CDT_Delete(ISSU_CDT *container);
/* Number of entities held. */
uint32_t ISSU_CDT_Count(const ISSU_CDT *container);
QAV_RBT_NODE *QAV_RBT_FirstNode(ISSU_CDT *container);
QAV_RBT_NODE *QAV_RBT_NextNode(QAV_RBT_NODE *node);

/* Fills `container` with every entity of the package that requires `name` directly or through
 * other entities (the transitive closure of requirements, cycles included once; the entity
 * itself is never listed). `name` need not be an entity of the package. 0 or an error code. */
int32_t ISSU_PKG_WhoRequireDeap(ISSU_PKG *package, const char *name, ISSU_CDT *container);

/* One group of entities that must be upgraded together. */
typedef struct {
    uint32_t uiGroupId; /* from 1, in the order of the groups' first names */
    ISSU_CDT *pstEntities;
} ISSU_ENTITY_GROUP;

/* Groups the entities that differ between the packages, together with the names in `names`
 * (char *, typically the entities that require a differing one): two entities share a group
 * when one requires the other in either package. Each group's container holds the second
 * package's record of an entity, else the first's. `groups` gets ISSU_ENTITY_GROUP items it
 * owns. 0 or an error code. */
int32_t ISSU_PKG_EntityGroup(ISSU_PKG *first, ISSU_PKG *second, ISSU_PTR_LIST *names, ISSU_PTR_LIST *groups);

/* ---- Package information file (rpg.rinfo) --------------------------------------------------- */

/* The fields of an rpg.rinfo file, in field order; absent fields are null. */
typedef struct {
    char *pcName;                      /* "Name" */
    char *pcVersion;                   /* "Version" */
    char *pcType;                      /* "Type" */
    char *pcProduct;                   /* "Product" */
    char *pcCopyright;                 /* "Copyright" */
    char *pcOrigin;                    /* "Origin" */
    char *pcCustomPatchVersionPattern; /* "CustomPatchVersionPattern" */
} ISSU_PKGINFO;

/* Reads a package information file; null when it cannot be read. */
ISSU_PKGINFO *ISSU_PKGINFO_Open(const char *path);
void ISSU_PKGINFO_Delete(ISSU_PKGINFO *info);

/* ---- Memory and logs ---------------------------------------------------------------------- */

/* Allocates and frees blocks of the package manager (texts it returns to callers). */
void *RPM_Os_Alloc(uint32_t size);
void RPM_Os_Free(void *block);

#ifdef __cplusplus
}

/* The fields of ISSU_PKGINFO with the keys that name them in the file, in field order: the
 * reader and the script queries walk the same table. */
struct ISSU_PKGINFO_FIELD {
    const char *key;
    char *ISSU_PKGINFO::*member;
};
inline constexpr ISSU_PKGINFO_FIELD kIssuPkgInfoFields[] = {
    {"Name", &ISSU_PKGINFO::pcName},
    {"Version", &ISSU_PKGINFO::pcVersion},
    {"Type", &ISSU_PKGINFO::pcType},
    {"Product", &ISSU_PKGINFO::pcProduct},
    {"Copyright", &ISSU_PKGINFO::pcCopyright},
    {"Origin", &ISSU_PKGINFO::pcOrigin},
    {"CustomPatchVersionPattern", &ISSU_PKGINFO::pcCustomPatchVersionPattern},
};
#endif

#endif

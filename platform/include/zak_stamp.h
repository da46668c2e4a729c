/* The platform's startup stamp store: timed records of start-up and upgrade steps. */
#ifndef PLATFORM_ZAK_STAMP_H
#define PLATFORM_ZAK_STAMP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define ZAK_STAMP_ITEM_NUMBER 3u
#define ZAK_STAMP_ITEM_TEXT 16u
#define ZAK_STAMP_MAX_ITEMS 16u
#define ZAK_STAMP_TEXT_SIZE 64u

/* One extra item: type, data length, then the data. Allocated with ZAK_Malloc_F by the caller;
 * the store takes it over and frees it. */
typedef struct {
    uint16_t usType;
    uint16_t usLen;
    uint8_t aucData[4]; /* usLen bytes; at least the 4 of a number */
} ZAK_STAMP_ITEM;

#define ZAK_STAMP_ITEM_HEADER_SIZE 4u

typedef struct {
    uint32_t auiValue[3];
    uint32_t uiReserved;
    char szText[ZAK_STAMP_TEXT_SIZE];
    uint32_t auiTime[2];
    uint32_t uiValue4;
    uint32_t uiItemCount;
    uint32_t uiItemDataLen;
    ZAK_STAMP_ITEM *apItems[ZAK_STAMP_MAX_ITEMS];
} ZAK_STARTUP_STAMP;

/* The stamp time: seconds and microseconds since the system started; 0 or nonzero. */
uint32_t ZAK_StartupStampGetTime(uint32_t time[2]);
/* Records the stamp with a message formatted from `format`; 0 or nonzero. */
uint32_t ZAK_StartupStampAdd(uint32_t flag1, uint32_t flag2, ZAK_STARTUP_STAMP *stamp, uint32_t kind,
                             const char *format, ...) __attribute__((format(printf, 5, 6)));
/* Records the stamp with its items; the store frees the items whatever it returns. */
uint32_t ZAK_StartupStampAddImpl(uint32_t flag1, uint32_t flag2, ZAK_STARTUP_STAMP *stamp, void *extra,
                                 uint32_t option);

#ifdef __cplusplus
}
#endif

#endif

/* The platform's system time record: 12 bytes, packed as the platform lays it out. */
#ifndef PLATFORM_ZAK_TIME_H
#define PLATFORM_ZAK_TIME_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct __attribute__((packed)) SYS_TIME {
    uint16_t year;   /* full year, e.g. 2024 */
    uint8_t month;   /* 1..12 */
    uint8_t date;    /* 1..31 */
    uint8_t hour;    /* 0..23 */
    uint8_t minute;  /* 0..59 */
    uint8_t second;  /* 0..59 */
    uint8_t week;    /* day of week, 0 = Sunday */
    uint32_t millSec;
} SYS_TIME;

#ifdef __cplusplus
static_assert(sizeof(SYS_TIME) == 12, "the system time record is 12 bytes");
#endif

#ifdef __cplusplus
}
#endif

#endif

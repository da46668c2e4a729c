/* Clocks, calendar arithmetic on the system time record, and time-zone and daylight-saving
 * conversion. Status 22 is the failure code of every call that returns a status. */
#ifndef PLATFORM_ZAK_SYSTIME_H
#define PLATFORM_ZAK_SYSTIME_H

#include <stdint.h>

#include "zak_time.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ZAK_TIME_FAILED 22u

/* Results of NUK_SystimeCompare. */
#define NUK_SYSTIME_CMP_FAILED 0u
#define NUK_SYSTIME_CMP_EARLIER 1u
#define NUK_SYSTIME_CMP_EQUAL 2u
#define NUK_SYSTIME_CMP_LATER 3u

/* The time-zone record, packed as the platform reads it (44 bytes). */
typedef struct __attribute__((packed)) ZAK_TIME_ZONE {
    char szName[33];   /* NUL-terminated, at most 32 characters */
    uint32_t uiOption; /* 0: local time is ahead of GMT; 1: behind */
    uint8_t ucHour;    /* offset from GMT */
    uint8_t ucMinute;
    uint8_t ucSecond;
    uint32_t uiLrId;
} ZAK_TIME_ZONE;

/* A month-day pair of a repeated daylight-saving range (4 bytes, the last two zero). */
typedef struct __attribute__((packed)) ZAK_DST_MONTH_DAY {
    uint8_t ucMonth;
    uint8_t ucDay;
    uint8_t aucReserved[2];
} ZAK_DST_MONTH_DAY;

/* The daylight-saving rule record, packed as the platform reads it (117 bytes). */
typedef struct __attribute__((packed)) ZAK_DST_RULE {
    char szName[33];
    uint32_t uiType;     /* 0: one period between two dates; 1: every year */
    uint8_t ucStartHour; /* start, in local standard time */
    uint8_t ucStartMinute;
    uint16_t usStartYear; /* start date of a type 0 rule */
    uint8_t ucStartMonth;
    uint8_t ucStartDay;
    uint8_t ucEndHour; /* end, in local daylight time */
    uint8_t ucEndMinute;
    uint16_t usEndDateYear; /* end date of a type 0 rule */
    uint8_t ucEndDateMonth;
    uint8_t ucEndDateDay;
    uint8_t ucOffsetHour; /* added to local standard time while daylight saving is on */
    uint8_t ucOffsetMinute;
    uint32_t uiStartWeekNum; /* 1..4, 5 = last */
    uint32_t uiStartWeekDay; /* 0 = Sunday .. 6 */
    uint32_t uiStartMonth;
    uint32_t uiEndWeekNum;
    uint32_t uiEndWeekDay;
    uint32_t uiEndMonth;
    uint16_t usFirstYear; /* years a type 1 rule applies to; 0 = open */
    uint16_t usLastYear;
    uint32_t uiDstEnabled;
    uint32_t uiStartDay; /* day of uiStartMonth (repeat mode 2) */
    uint32_t uiEndDay;
    uint32_t uiLrId;
    uint32_t uiRepeatMode; /* type 1: 0 by weekday, 1 repeated month-day range, 2 by month and day */
    ZAK_DST_MONTH_DAY stRepeatStart;
    ZAK_DST_MONTH_DAY stRepeatEnd;
    uint8_t aucReserved[10];
} ZAK_DST_RULE;

#ifdef __cplusplus
static_assert(sizeof(ZAK_TIME_ZONE) == 44, "the time-zone record is 44 bytes");
static_assert(sizeof(ZAK_DST_RULE) == 117, "the daylight-saving rule record is 117 bytes");
#endif

/* Wall clocks: 0 or 22. `extra` receives 1 while daylight saving is in force, else 0. */
uint32_t ZAK_Local_SystimeGet(SYS_TIME *local, uint32_t *extra);
uint32_t ZAK_GMT_SystimeGet(SYS_TIME *gmt);
/* Seconds and microseconds since 1970-01-01 00:00:00 GMT. */
uint32_t ZAK_GetSystemTime(uint32_t *seconds, uint32_t *microseconds);
/* Time since start as a 64-bit count in two words: high word first, then low word. */
uint32_t ZAK_GetUptimeMillSec(uint32_t *high, uint32_t *low);
uint32_t ZAK_GetUptimeSec(uint32_t *high, uint32_t *low);
/* CPU time of this process: whole seconds and the microseconds beyond them. */
uint32_t ZAK_GetCPURunTime(uint32_t *seconds, uint32_t *microseconds);

/* Calendar arithmetic on valid records (years 1970..9999, real dates, millSec < 1000). */
uint32_t NUK_SystimeCompare(const SYS_TIME *first, const SYS_TIME *second);
/* first - second in whole seconds; 22 when first is earlier or the difference exceeds 32 bits. */
uint32_t NUK_SystimeRelSecCal(const SYS_TIME *first, const SYS_TIME *second, uint32_t *seconds);
/* Calendar days from second's date to first's date, or 0xFFFFFFFF. */
uint32_t NUK_SystimeRelDayCal(const SYS_TIME *first, const SYS_TIME *second);
uint32_t NUK_SystimeAdd(SYS_TIME *time, uint32_t milliSeconds);
/* Seconds since 1970-01-01 00:00:00 as a calendar record. */
uint32_t NUK_SystimeSec2Time(uint32_t seconds, SYS_TIME *time);
/* The weekNum-th (5 = last) weekDay (0 = Sunday) of month in year, at 00:00:00. */
uint32_t NUK_TzWeekDayToTime(uint16_t year, uint8_t month, uint8_t weekNum, uint8_t weekDay, SYS_TIME *time);

/* The device's zone and rule (default: UTC, no daylight saving). */
uint32_t ZAK_SetTzDstCfg(const ZAK_TIME_ZONE *zone, const ZAK_DST_RULE *rule);
/* isDst chooses the reading of a local time in the repeated hour: 1 daylight, 0 standard. */
uint32_t ZAK_LocalTime2Gmt(const SYS_TIME *local, uint32_t isDst, SYS_TIME *gmt);
uint32_t ZAK_Gmt2LocalTime(const SYS_TIME *gmt, SYS_TIME *local, uint32_t *isDst);
uint32_t ZAK_LocalTime2GmtByCfg(const SYS_TIME *local, uint32_t isDst, const ZAK_TIME_ZONE *zone,
                                const ZAK_DST_RULE *rule, SYS_TIME *gmt);
uint32_t ZAK_Gmt2LocalTimeByCfg(const SYS_TIME *gmt, const ZAK_TIME_ZONE *zone, const ZAK_DST_RULE *rule,
                                SYS_TIME *local, uint32_t *isDst);
/* Texts of the device's zone and offsets, NUL-terminated within size. */
uint32_t ZAK_dataType_getTimeZone(char *text, uint32_t size);
uint32_t ZAK_dataType_getAllTimeOffset(char *text, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif

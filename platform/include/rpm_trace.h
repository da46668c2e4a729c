/* Package-manager trace and log helpers, stamp texts, dictionaries and HA fault records. */
#ifndef PLATFORM_RPM_TRACE_H
#define PLATFORM_RPM_TRACE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* 1 when patch tracing is on for this text, else 0. */
uint32_t RPM_IsTracePatchOn(const char *text);
/* One line of the performance trace file. */
uint32_t RPM_SavePerformTraceFileToFile(uint32_t level, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
/* The Linux path of a platform path found in a log ("flash0:log/a.log"); 0 or 22. */
uint32_t RPM_LogParseLinuxPath(const char *text, char *out, uint32_t size);

#define ZAK_STAMP_NO_TEXT 515u
/* The display text of a startup-stamp info code: 0 with the text, 515 with `text` echoed when the
 * code has no text of its own, 22 for bad arguments. */
uint32_t ZAK_GetStampShowStrByInfoCode(uint32_t infoCode, const char *text, uint32_t size, char *out);

/* Frees a platform dictionary by its handle: 0, or 22 for an unknown handle. */
uint32_t ZAK_FreeMemoryOfDictionary(int32_t handle);

/* Records an HA fault. */
uint32_t ISSU_RecHaFault(uint32_t faultType, uint32_t instanceId, uint32_t osNode);

#ifdef __cplusplus
}
#endif

#endif

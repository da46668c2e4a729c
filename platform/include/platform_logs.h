/* Platform log services. Each call produces one record in the log it names. */
#ifndef PLATFORM_LOGS_H
#define PLATFORM_LOGS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define QAV_PRINTF(fmtIndex, firstArg) __attribute__((format(printf, fmtIndex, firstArg)))

/* Upgrade log. */
void RPM_LogToFile(uint32_t logId, uint32_t level, const char *format, ...) QAV_PRINTF(3, 4);
/* ISSU log. */
void RPM_IssuLogToFile(uint32_t logId, uint32_t level, const char *format, ...) QAV_PRINTF(3, 4);
/* Certificate (CMS) log. */
void RPM_CmsLogToFile(uint32_t level, const char *format, ...) QAV_PRINTF(2, 3);
/* Patch log. */
void PAT_LogToFile(uint32_t logId, uint32_t level, uint32_t flag, const char *format, ...) QAV_PRINTF(4, 5);
/* Base log: component id, info code. */
void QAV_Log(uint32_t componentId, uint32_t infoCode, const char *format, ...) QAV_PRINTF(3, 4);
/* Diagnostic log of the file API. */
void QAV_DiagLog(uint32_t componentId, uint32_t moduleId, const char *format, ...) QAV_PRINTF(3, 4);
/* Status-trace log. */
void QAV_STLOG(uint32_t moduleId, const char *format, ...) QAV_PRINTF(2, 3);
/* Diagnostic file log. */
void QAV_STDiagLogToFile(uint32_t moduleId, uint32_t level, const char *format, ...) QAV_PRINTF(3, 4);
/* Software-management log. */
void QAV_STLogToFile(uint32_t logType, const char *format, ...) QAV_PRINTF(2, 3);
/* System log. */
void QAV_syslog(const char *format, ...) QAV_PRINTF(1, 2);
/* An internal assertion: logs and returns, the caller continues its failure path. */
void ZAK_Assert(const char *sourceName, uint32_t line, uint32_t value);
/* HA log, written only when level is at or below g_iLogLevel. */
void ha_log(int32_t level, const char *format, ...) QAV_PRINTF(2, 3);
extern int32_t g_iLogLevel;

#ifdef __cplusplus
}
#endif

#endif

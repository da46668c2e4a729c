/* The notice record service: how scripts tell the management plane about progress, finished
 * collections and HA vote settings. */
#ifndef PLATFORM_QAV_REPORT_H
#define PLATFORM_QAV_REPORT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Sends one notice under `infoCode`: `count` numbers followed by a text (null for none);
 * 0 on success. */
uint32_t QAV_ReportNotice(uint32_t infoCode, uint32_t count, const uint32_t *numbers, const char *text);

#ifdef __cplusplus
}
#endif

#endif

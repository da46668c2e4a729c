/* Event-log records with a control block of typed elements. */
#ifndef PLATFORM_EVENT_CTRL_H
#define PLATFORM_EVENT_CTRL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The control block: elements of 16-bit type, 16-bit length and that many bytes. */
typedef struct QAV_EVENT_CTRL {
    uint8_t *pucBuffer;
    uint16_t usUsedLen;
    uint16_t usCapacity;
} QAV_EVENT_CTRL;

/* Writes one event record; 0 on success. */
uint32_t QAV_EventLogCtrl(uint32_t cid, const QAV_EVENT_CTRL *control, uint32_t eventId, const char *format,
                          ...) __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif

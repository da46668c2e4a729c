/* The event log, traps and the patch logging settings.
 *
 * An event record is an info code, a compact type string ("%d" signed, "%u" unsigned, "%s" text,
 * "%_T_12" a system time record by address) and the values it describes. The values travel as a
 * counted array of tagged values, so the service checks the type string against what was really
 * passed and never reads a value that was not: a mismatch becomes an error record and status 22.
 * C++ callers write the familiar variadic call (QAV_EventLog(cid, info, "%d%s", i, s)); the
 * templates below build the array, and a value of any other type does not compile. */
#ifndef PLATFORM_QAV_EVENT_H
#define PLATFORM_QAV_EVENT_H

#include <stdint.h>

#include "zak_time.h"

#ifdef __cplusplus
extern "C" {
#endif

#define QAV_EVENT_MISMATCH 22u

typedef enum QAV_EVENT_KIND {
    QAV_EVENT_INT = 1,  /* int32_t */
    QAV_EVENT_UINT = 2, /* uint32_t */
    QAV_EVENT_STR = 3,  /* const char * */
    QAV_EVENT_TIME = 4, /* const SYS_TIME * */
} QAV_EVENT_KIND;

typedef struct QAV_EVENT_VALUE {
    uint32_t kind;
    union {
        int32_t i;
        uint32_t u;
        const char *s;
        const SYS_TIME *t;
    } v;
} QAV_EVENT_VALUE;

typedef enum QAV_EVENT_CALL {
    QAV_EVENT_CALL_LOG = 0,  /* QAV_EventLog */
    QAV_EVENT_CALL_VS = 1,   /* QAV_EventLogVs: with a virtual-system id */
    QAV_EVENT_CALL_CTRL = 2, /* QAV_EventLogCtrl: with a control word */
} QAV_EVENT_CALL;

/* Writes one event record; 0, or 22 for a type string that does not match the values. `extra` is
 * the virtual-system id or the control word, as `call` says. */
uint32_t QAV_EventLogValues(uint32_t call, uint32_t componentId, uint32_t extra, uint32_t infoCode,
                            const char *format, const QAV_EVENT_VALUE *values, uint32_t count);

/* The clock-change trap with the new local time. */
uint32_t ZAK_SendClockChangeTrap(uint32_t componentId, const SYS_TIME *newTime);

/* The component ids of components of `type` at a location: a list from the platform memory pool
 * (free it with ZAK_Free_F) and its length. 0 or 22. */
uint32_t QAV_GetCidByBaseCompAddr(uint32_t type, uint32_t locationId, uint32_t **list, uint32_t *count);

/* Values of the platform environment: kind 2 is the configuration database id. 0 or 22. */
uint32_t ZAK_GetEnvValue(uint32_t kind, uint32_t *value);

/* Patch logging settings of the patch library: when the level is above 1, patch records are also
 * handed to the dialog hook, or, without one, written to the patch log. */
typedef uint32_t (*PAT_DIALOG_FUNC)(uint32_t componentId, uint32_t infoCode, const char *format,
                                    const QAV_EVENT_VALUE *values, uint32_t count);
extern uint32_t g_uiPatchLogLevel;
extern PAT_DIALOG_FUNC g_pfPatchDialogFunc;

/* Rewrites a patch version for display into buffer[size]: 0, or 22 when it does not fit. */
uint32_t PAT_WrapPkgModifyPatVer(const char *version, char *buffer, uint32_t size);

#ifdef __cplusplus
}

namespace qav_event_values {
inline QAV_EVENT_VALUE Of(int32_t value) {
    QAV_EVENT_VALUE item{QAV_EVENT_INT, {}};
    item.v.i = value;
    return item;
}
inline QAV_EVENT_VALUE Of(uint32_t value) {
    QAV_EVENT_VALUE item{QAV_EVENT_UINT, {}};
    item.v.u = value;
    return item;
}
inline QAV_EVENT_VALUE Of(const char *value) {
    QAV_EVENT_VALUE item{QAV_EVENT_STR, {}};
    item.v.s = value;
    return item;
}
inline QAV_EVENT_VALUE Of(const SYS_TIME *value) {
    QAV_EVENT_VALUE item{QAV_EVENT_TIME, {}};
    item.v.t = value;
    return item;
}
template <typename... Values>
uint32_t Send(uint32_t call, uint32_t componentId, uint32_t extra, uint32_t infoCode, const char *format,
              Values... values) {
    const QAV_EVENT_VALUE list[sizeof...(Values) + 1] = {Of(values)..., QAV_EVENT_VALUE{}};
    return QAV_EventLogValues(call, componentId, extra, infoCode, format, list, sizeof...(Values));
}
} // namespace qav_event_values

template <typename... Values>
uint32_t QAV_EventLog(uint32_t componentId, uint32_t infoCode, const char *format, Values... values) {
    return qav_event_values::Send(QAV_EVENT_CALL_LOG, componentId, 0, infoCode, format, values...);
}
template <typename... Values>
uint32_t QAV_EventLogVs(uint32_t componentId, uint32_t vsId, uint32_t infoCode, const char *format,
                        Values... values) {
    return qav_event_values::Send(QAV_EVENT_CALL_VS, componentId, vsId, infoCode, format, values...);
}
template <typename... Values>
uint32_t QAV_EventLogCtrl(uint32_t componentId, uint32_t control, uint32_t infoCode, const char *format,
                          Values... values) {
    return qav_event_values::Send(QAV_EVENT_CALL_CTRL, componentId, control, infoCode, format, values...);
}
// Hands a record to the patch dialog hook, which must be set.
template <typename... Values>
uint32_t PAT_CallDialogFunc(uint32_t componentId, uint32_t infoCode, const char *format, Values... values) {
    const QAV_EVENT_VALUE list[sizeof...(Values) + 1] = {qav_event_values::Of(values)..., QAV_EVENT_VALUE{}};
    return g_pfPatchDialogFunc(componentId, infoCode, format, list, sizeof...(Values));
}
#endif

#endif

// The platform log calls: each writes one record to the log named in its comment.
#include "host.h"
#include "platform_logs.h"

namespace {

#define ZAKHOST_LOG(log, id, level, format)                                                                  \
    do {                                                                                                     \
        va_list values;                                                                                      \
        va_start(values, format);                                                                            \
        std::string message = zakhost::vformat(format, values);                                              \
        va_end(values);                                                                                      \
        zakhost::log_text(log, id, level, std::move(message));                                               \
    } while (0)

} // namespace

extern "C" {

// Set from the profile when the host starts (startup.cpp).
int32_t g_iLogLevel = 3;

void RPM_LogToFile(uint32_t logId, uint32_t level, const char *format, ...) {
    ZAKHOST_LOG("upgrade", logId, level, format);
}
void RPM_IssuLogToFile(uint32_t logId, uint32_t level, const char *format, ...) {
    ZAKHOST_LOG("issu", logId, level, format);
}
void RPM_CmsLogToFile(uint32_t level, const char *format, ...) {
    ZAKHOST_LOG("cms", 0, level, format);
}
void PAT_LogToFile(uint32_t logId, uint32_t level, uint32_t, const char *format, ...) {
    ZAKHOST_LOG("patch", logId, level, format);
}
void QAV_Log(uint32_t, uint32_t infoCode, const char *format, ...) {
    ZAKHOST_LOG("base", infoCode, 0, format);
}
void QAV_DiagLog(uint32_t, uint32_t moduleId, const char *format, ...) {
    ZAKHOST_LOG("diag", moduleId, 0, format);
}
void QAV_STLOG(uint32_t moduleId, const char *format, ...) {
    ZAKHOST_LOG("diag", moduleId, 0, format);
}
void QAV_STDiagLogToFile(uint32_t moduleId, uint32_t level, const char *format, ...) {
    ZAKHOST_LOG("diag", moduleId, level, format);
}
void QAV_STLogToFile(uint32_t logType, const char *format, ...) {
    ZAKHOST_LOG("sdm", logType, 0, format);
}
void QAV_syslog(const char *format, ...) {
    ZAKHOST_LOG("syslog", 0, 0, format);
}
void ZAK_Assert(const char *sourceName, uint32_t line, uint32_t value) {
    zakhost::log_text("syslog", 0, 0,
                      "ZAK_Assert " + std::string(sourceName ? sourceName : "?") + ":" +
                          std::to_string(line) + " value " + std::to_string(value));
}
void ha_log(int32_t level, const char *format, ...) {
    if (level > g_iLogLevel) return;
    ZAKHOST_LOG("ha", 0, static_cast<uint32_t>(level), format);
}

} // extern "C"

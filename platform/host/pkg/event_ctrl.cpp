// Event records with a control block. The event log records the call, the component id, the
// event id, the formatted text and the control block's elements as hexadecimal bytes.
#include <cstdarg>
#include <string>

#include "event_ctrl.h"
#include "pkg_host.h"

namespace {
const zakhost::ProfileDefault kEcmCid{"event", "ecm_cid", "0x0D18"};
}

extern "C" {

__attribute__((weak)) uint32_t QAV_GetEcmCid(void) {
    return static_cast<uint32_t>(zakhost::profile_int("event", "ecm_cid", 0x0D18));
}

__attribute__((weak)) uint32_t QAV_EventLogCtrl(uint32_t cid, const QAV_EVENT_CTRL *control, uint32_t eventId,
                                                const char *format, ...) {
    if (uint32_t code = 0; zakhost::pkg::injected_code("QAV_EventLogCtrl", &code)) return code;
    if (format == nullptr) return 1;
    va_list values;
    va_start(values, format);
    std::string text = zakhost::vformat(format, values);
    va_end(values);
    std::string bytes;
    static const char kHex[] = "0123456789abcdef";
    if (control != nullptr && control->pucBuffer != nullptr)
        for (uint16_t i = 0; i < control->usUsedLen && i < control->usCapacity; ++i) {
            bytes += kHex[control->pucBuffer[i] >> 4];
            bytes += kHex[control->pucBuffer[i] & 0xF];
        }
    char info[16];
    std::snprintf(info, sizeof(info), "0x%08X", eventId);
    zakhost::Json record = zakhost::Json::object();
    record.set("call", zakhost::Json::of(std::string("QAV_EventLogCtrl")))
        .set("cid", zakhost::Json::of(static_cast<int64_t>(cid)))
        .set("info", zakhost::Json::of(std::string(info)))
        .set("format", zakhost::Json::of(std::string(format)))
        .set("text", zakhost::Json::of(text))
        .set("control", zakhost::Json::of(bytes));
    zakhost::log_json("event", record);
    return 0;
}

} // extern "C"

// Event records with a control block. The record follows the event log's shape (call, cid,
// info, format, values from the compact type string: %d, %u, %x, %s) and adds the used part of
// the control block as hexadecimal bytes under "control".
#include <cstdarg>
#include <cstdio>
#include <string>

#include "event_ctrl.h"
#include "pkg_host.h"

namespace {

// Reads the values the format names; false at a conversion the compact type string does not use.
bool read_values(const char *format, va_list values, zakhost::Json *out) {
    for (const char *p = format; *p != '\0'; ++p) {
        if (*p != '%') continue;
        ++p;
        while (*p != '\0' && std::string("-+ #0123456789.l").find(*p) != std::string::npos)
            ++p;
        switch (*p) {
        case '%':
            break;
        case 'd':
        case 'i':
            out->push(zakhost::Json::of(static_cast<int64_t>(va_arg(values, int))));
            break;
        case 'u':
        case 'x':
        case 'X':
            out->push(zakhost::Json::of(static_cast<int64_t>(va_arg(values, unsigned int))));
            break;
        case 's': {
            const char *text = va_arg(values, const char *);
            out->push(text != nullptr ? zakhost::Json::of(std::string(text)) : zakhost::Json{});
            break;
        }
        default:
            return false;
        }
        if (*p == '\0') break;
    }
    return true;
}

} // namespace

extern "C" {

__attribute__((weak)) uint32_t QAV_EventLogCtrl(uint32_t cid, const QAV_EVENT_CTRL *control, uint32_t eventId,
                                                const char *format, ...) {
    if (uint32_t code = 0; zakhost::pkg::injected_code("QAV_EventLogCtrl", &code)) return code;
    if (format == nullptr) return 1;
    zakhost::Json values = zakhost::Json::array();
    va_list args;
    va_start(args, format);
    bool complete = read_values(format, args, &values);
    va_end(args);
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
        .set("values", values)
        .set("control", zakhost::Json::of(bytes));
    if (!complete) record.set("error", zakhost::Json::of(std::string("unsupported conversion")));
    zakhost::log_json("event", record);
    return complete ? 0 : 1;
}

} // extern "C"

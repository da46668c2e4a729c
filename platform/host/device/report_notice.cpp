// The notice record service: each notice becomes one record of the event log,
//   {"seq":N,"call":"QAV_ReportNotice","info":"0x08091020","values":[numbers..., text]}
#include <cstdio>

#include "host.h"
#include "qav_report.h"

extern "C" uint32_t QAV_ReportNotice(uint32_t infoCode, uint32_t count, const uint32_t *numbers,
                                     const char *text) {
    int64_t result = 0;
    if (zakhost::injected("QAV_ReportNotice", &result))
        return result == 0 ? 1 : static_cast<uint32_t>(result);
    if (count != 0 && numbers == nullptr) return 1;
    char info[16];
    std::snprintf(info, sizeof info, "0x%08X", infoCode);
    zakhost::Json values = zakhost::Json::array();
    for (uint32_t i = 0; i < count; ++i)
        values.push(zakhost::Json::of(static_cast<int64_t>(numbers[i])));
    if (text != nullptr) values.push(zakhost::Json::of(std::string(text)));
    zakhost::Json record = zakhost::Json::object();
    record.set("call", zakhost::Json::of(std::string("QAV_ReportNotice")));
    record.set("info", zakhost::Json::of(std::string(info)));
    record.set("values", std::move(values));
    zakhost::log_json("event", std::move(record));
    return 0;
}

// The package manager's trace file and log-path helper, startup-stamp display texts, platform
// dictionaries and HA fault records.
#include <cstdarg>
#include <cstring>
#include <string>

#include "host.h"
#include "rpm_trace.h"

namespace {

bool Failing(const char *service, uint32_t *status) {
    int64_t result = 0;
    if (!zakhost::injected(service, &result)) return false;
    *status = result == 0 ? 22 : static_cast<uint32_t>(result);
    return true;
}

// The display texts of startup-stamp info codes. Codes not listed answer 515.
struct StampText {
    uint32_t infoCode;
    const char *text;
};
const StampText kStampTexts[] = {
    {0x0B000001, "Software loading started"}, {0x0B000002, "Software loading finished"},
    {0x0B000003, "Configuration restored"},   {0x0B000004, "Upgrade started"},
    {0x0B000005, "Upgrade finished"},         {0x0B000006, "Patch loaded"},
    {0x0B000007, "Patch activated"},          {0x0B000008, "System ready"},
};

} // namespace

extern "C" {

// On when [patch] trace is set and the text contains [patch] trace_filter (an empty filter
// matches every text).
uint32_t RPM_IsTracePatchOn(const char *text) {
    if (zakhost::injected("RPM_IsTracePatchOn")) return 0;
    if (text == nullptr || !zakhost::profile_bool("patch", "trace")) return 0;
    std::string filter = zakhost::profile_string("patch", "trace_filter");
    return std::strstr(text, filter.c_str()) != nullptr ? 1 : 0;
}

uint32_t RPM_SavePerformTraceFileToFile(uint32_t level, const char *format, ...) {
    uint32_t status = 0;
    if (Failing("RPM_SavePerformTraceFileToFile", &status)) return status;
    if (format == nullptr) return 22;
    va_list values;
    va_start(values, format);
    std::string message = zakhost::vformat(format, values);
    va_end(values);
    zakhost::log_text("trace", 0, level, std::move(message));
    return 0;
}

// "flash0:<path>" is <common root>/home/<path>; a text without a storage prefix is already a
// Linux path and comes back unchanged.
uint32_t RPM_LogParseLinuxPath(const char *text, char *out, uint32_t size) {
    uint32_t status = 0;
    if (Failing("RPM_LogParseLinuxPath", &status)) return status;
    if (text == nullptr || out == nullptr || size == 0) return 22;
    std::string path = text;
    if (path.rfind("flash0:", 0) == 0) {
        std::string rest = path.substr(7);
        while (!rest.empty() && rest.front() == '/')
            rest.erase(0, 1);
        path = zakhost::common_root() + "/home/" + rest;
    } else if (path.size() > 7 && path[6] == ':') {
        return 22; // a storage this device does not have
    }
    if (path.size() >= size) return 22;
    std::memcpy(out, path.c_str(), path.size() + 1);
    return 0;
}

// "<code's text>" or "<code's text>: <text>"; for a code without a text, the caller's text.
uint32_t ZAK_GetStampShowStrByInfoCode(uint32_t infoCode, const char *text, uint32_t size, char *out) {
    uint32_t status = 0;
    if (Failing("ZAK_GetStampShowStrByInfoCode", &status)) return status;
    if (text == nullptr || out == nullptr || size == 0) return 22;
    std::memset(out, 0, size);
    std::string shown;
    uint32_t result = ZAK_STAMP_NO_TEXT;
    for (const auto &entry : kStampTexts) {
        if (entry.infoCode != infoCode) continue;
        shown = entry.text;
        if (*text != '\0') shown += std::string(": ") + text;
        result = 0;
    }
    if (result == ZAK_STAMP_NO_TEXT) shown = text;
    std::memcpy(out, shown.data(), shown.size() < size ? shown.size() : size - 1);
    return result;
}

// The host keeps no dictionaries; a null handle is refused.
uint32_t ZAK_FreeMemoryOfDictionary(int32_t handle) {
    uint32_t status = 0;
    if (Failing("ZAK_FreeMemoryOfDictionary", &status)) return status;
    return handle == 0 ? 22 : 0;
}

uint32_t ISSU_RecHaFault(uint32_t faultType, uint32_t instanceId, uint32_t osNode) {
    uint32_t status = 0;
    if (Failing("ISSU_RecHaFault", &status)) return status;
    zakhost::log_text("ha", 0, 1,
                      "HA fault type " + std::to_string(faultType) + " instance " +
                          std::to_string(instanceId) + " node " + std::to_string(osNode));
    return 0;
}

} // extern "C"

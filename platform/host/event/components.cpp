// Component ids and environment values of the host device, from the profile's [component] and
// [cmf] sections, and the display form of patch versions.
#include <cstring>
#include <string>
#include <vector>

#include "host.h"
#include "qav_event.h"
#include "zak_memory.h"

namespace {

std::vector<uint32_t> IdList(const std::string &text) {
    std::vector<uint32_t> ids;
    size_t at = 0;
    while (at < text.size()) {
        size_t comma = text.find(',', at);
        std::string item = text.substr(at, comma == std::string::npos ? std::string::npos : comma - at);
        if (std::optional<int64_t> value = zakhost::parse_int(item))
            ids.push_back(static_cast<uint32_t>(*value));
        if (comma == std::string::npos) break;
        at = comma + 1;
    }
    return ids;
}

} // namespace

extern "C" {

uint32_t ZAK_GetEnvValue(uint32_t kind, uint32_t *value) {
    int64_t injected = 0;
    if (zakhost::injected("ZAK_GetEnvValue", &injected))
        return injected == 0 ? 22 : static_cast<uint32_t>(injected);
    if (value == nullptr || kind != 2) return 22;
    *value = static_cast<uint32_t>(zakhost::profile_int("cmf", "db_id", 1));
    return 0;
}

// Every component type at every location answers with the profile's base_cids list.
uint32_t QAV_GetCidByBaseCompAddr(uint32_t, uint32_t, uint32_t **list, uint32_t *count) {
    int64_t injected = 0;
    if (zakhost::injected("QAV_GetCidByBaseCompAddr", &injected))
        return injected == 0 ? 22 : static_cast<uint32_t>(injected);
    if (list == nullptr || count == nullptr) return 22;
    std::vector<uint32_t> ids = IdList(zakhost::profile_string("component", "base_cids"));
    if (ids.empty()) return 22;
    auto *block = static_cast<uint32_t *>(
        ZAK_Malloc_F(nullptr, 0, static_cast<uint32_t>(ids.size() * sizeof(uint32_t)), "zakhost", __LINE__));
    if (block == nullptr) return 22;
    std::memcpy(block, ids.data(), ids.size() * sizeof(uint32_t));
    *list = block;
    *count = static_cast<uint32_t>(ids.size());
    return 0;
}

// The display form of a patch version: the part after the last '/', without a ".pat" ending
// (any letter case): "flash0:/patch/SPH001.PAT" -> "SPH001".
uint32_t PAT_WrapPkgModifyPatVer(const char *version, char *buffer, uint32_t size) {
    int64_t injected = 0;
    if (zakhost::injected("PAT_WrapPkgModifyPatVer", &injected))
        return injected == 0 ? 22 : static_cast<uint32_t>(injected);
    if (version == nullptr || buffer == nullptr || size == 0) return 22;
    std::string text = version;
    size_t slash = text.rfind('/');
    if (slash != std::string::npos) text.erase(0, slash + 1);
    if (text.size() >= 4 && strcasecmp(text.c_str() + text.size() - 4, ".pat") == 0)
        text.resize(text.size() - 4);
    if (text.size() >= size) return 22;
    std::memmove(buffer, text.c_str(), text.size() + 1);
    return 0;
}

} // extern "C"

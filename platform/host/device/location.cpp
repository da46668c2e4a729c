// Location and board facts of the host device, all from the profile's [device] and [board]
// sections.
#include <cstring>

#include "host.h"
#include "loc.h"
#include "zak_device.h"

namespace {
uint32_t u32(const char *section, const char *key) {
    return static_cast<uint32_t>(zakhost::profile_int(section, key, 0));
}
} // namespace

extern "C" {

uint32_t LOC_GetNodeId(void) {
    return u32("device", "node_id");
}
uint32_t LOC_GetLocationID(uint32_t) {
    return u32("device", "location_id");
}
uint32_t LOC_GetLocationChassis(void) {
    return u32("device", "chassis");
}
uint32_t LOC_IsMorlo(void) {
    return u32("device", "morlo") != 0 ? 1 : 0;
}
uint32_t ZAK_IsNps(void) {
    return u32("device", "nps") != 0 ? 1 : 0;
}

uint32_t ZAK_GetHard_Info(ZAK_HARD_INFO *info) {
    int64_t injected = 0;
    if (info == nullptr) return 1;
    if (zakhost::injected("ZAK_GetHard_Info", &injected))
        return injected == 0 ? 1 : static_cast<uint32_t>(injected);
    std::memset(info, 0, sizeof *info);
    info->usShelfID = static_cast<uint16_t>(u32("board", "shelf"));
    info->usChassisID = static_cast<uint16_t>(u32("board", "chassis"));
    info->usBoardID = static_cast<uint16_t>(u32("board", "slot"));
    info->usCpuID = static_cast<uint16_t>(u32("board", "cpu"));
    info->uiBoardHardType = u32("board", "hard_type");
    info->uiBoardHardExtType = u32("board", "hard_ext_type");
    // "aa:bb:cc:..." into bytes
    std::string mac = zakhost::profile_string("board", "mac");
    uint32_t n = 0;
    for (size_t i = 0; i + 1 < mac.size() + 1 && n < sizeof info->aucMacAddr;) {
        size_t end = mac.find(':', i);
        std::string part = mac.substr(i, end == std::string::npos ? std::string::npos : end - i);
        if (part.empty()) break;
        info->aucMacAddr[n++] = static_cast<uint8_t>(std::strtoul(part.c_str(), nullptr, 16));
        if (end == std::string::npos) break;
        i = end + 1;
    }
    info->uiMacAddrLen = n;
    info->uiSoftResetSupport = u32("board", "soft_reset") != 0 ? 1 : 0;
    return 0;
}

} // extern "C"

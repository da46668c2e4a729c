// Facts of the running deployment as the package manager would answer them, all from the
// profile: VNF, VNFC and NE identity ([vnf], [vnfc], [ne]), the common home path, the running
// version file and package versions ([rpm]), the inner hardware record ([board]) and the backup
// state ([backup]). An empty value means the platform has no answer: the call fails with 1.
#include <cstring>

#include "host.h"
#include "rpm_device.h"

namespace {

constexpr uint32_t kNoAnswer = 1;
constexpr uint32_t kTooSmall = 2;

// A profile text into out[size]; 0, or 1 when empty or absent, 2 when it does not fit (out then
// holds the text cut to size - 1 characters).
uint32_t answer(const std::string &text, char *out, uint32_t size) {
    if (out == nullptr || size == 0) return kTooSmall;
    out[0] = '\0';
    if (text.empty()) return kNoAnswer;
    size_t n = text.size() < size ? text.size() : size - 1;
    std::memcpy(out, text.data(), n);
    out[n] = '\0';
    return n == text.size() ? 0 : kTooSmall;
}

uint32_t fact(const char *section, const char *key, char *out, uint32_t size) {
    return answer(zakhost::profile_string(section, key), out, size);
}

// A device path of the profile answered as the path the host opens (inside the sandbox).
uint32_t device_path(const char *key, char *out, uint32_t size) {
    std::string path = zakhost::profile_string("rpm", key);
    return answer(path.empty() ? path : zakhost::in_root(path), out, size);
}

uint32_t injected_code(const char *service) {
    int64_t result = 0;
    if (!zakhost::injected(service, &result)) return 0;
    return result == 0 ? kNoAnswer : static_cast<uint32_t>(result);
}

} // namespace

extern "C" {

uint32_t RPM_GetVNFInfo_HOOK(char *instanceId, uint32_t instanceIdSize, char *name, uint32_t nameSize,
                             char *vnfdId, uint32_t vnfdIdSize, char *version, uint32_t versionSize) {
    if (uint32_t code = injected_code("RPM_GetVNFInfo_HOOK")) return code;
    uint32_t codes[] = {fact("vnf", "instance_id", instanceId, instanceIdSize),
                        fact("vnf", "name", name, nameSize), fact("vnf", "vnfd_id", vnfdId, vnfdIdSize),
                        fact("vnf", "version", version, versionSize)};
    for (uint32_t code : codes)
        if (code != 0) return code;
    return 0;
}

uint32_t RPM_GetVNFCInfo_HOOK(char *instanceId, uint32_t instanceIdSize, char *name, uint32_t nameSize,
                              char *type, uint32_t typeSize) {
    if (uint32_t code = injected_code("RPM_GetVNFCInfo_HOOK")) return code;
    uint32_t codes[] = {fact("vnfc", "instance_id", instanceId, instanceIdSize),
                        fact("vnfc", "name", name, nameSize), fact("vnfc", "type", type, typeSize)};
    for (uint32_t code : codes)
        if (code != 0) return code;
    return 0;
}

uint32_t RPM_GetCurNEResInfo_HOOK(char *neId, char *neName, uint32_t size) {
    if (uint32_t code = injected_code("RPM_GetCurNEResInfo_HOOK")) return code;
    uint32_t code = fact("ne", "id", neId, size);
    uint32_t nameCode = fact("ne", "name", neName, size);
    return code != 0 ? code : nameCode;
}

uint32_t RPM_GetCommHomePath_HOOK(char *path, uint32_t size, uint32_t logId) {
    if (uint32_t code = injected_code("RPM_GetCommHomePath_HOOK")) return code;
    uint32_t code = device_path("comm_home_path", path, size);
    if (code != 0) zakhost::log_text("upgrade", logId, 3, "RPM_GetCommHomePath_HOOK: no common home path");
    return code;
}

uint32_t RPM_GetVercfgFileName_HOOK(char *path, uint32_t size) {
    if (uint32_t code = injected_code("RPM_GetVercfgFileName_HOOK")) return code;
    return device_path("vercfg_file", path, size);
}

uint32_t RPM_GetLastRpgVersion(char *version, uint32_t size) {
    if (uint32_t code = injected_code("RPM_GetLastRpgVersion")) return code;
    return fact("rpm", "last_rpg_version", version, size);
}

uint32_t RPM_GetCurPkgVersion(uint32_t size, char *version) {
    if (uint32_t code = injected_code("RPM_GetCurPkgVersion")) return code;
    return fact("rpm", "cur_pkg_version", version, size);
}

uint32_t RPM_GetHardInfo_Inner(ZAK_HARD_INFO *info) {
    if (uint32_t code = injected_code("RPM_GetHardInfo_Inner")) return code;
    if (info == nullptr) return kNoAnswer;
    uint32_t code = ZAK_GetHard_Info(info);
    if (code != 0) return code;
    std::string inner = zakhost::profile_string("board", "inner_hard_type");
    if (!inner.empty())
        info->uiBoardHardType = static_cast<uint32_t>(zakhost::profile_int("board", "inner_hard_type"));
    return 0;
}

uint32_t QAV_ExistZAK_GetBackupInfoState(void) {
    return zakhost::profile_bool("backup", "present") ? 1 : 0;
}

uint32_t QAV_ZAKGetBackupInfoState(uint16_t *state1, uint16_t *state2) {
    if (uint32_t code = injected_code("QAV_ZAKGetBackupInfoState")) return code;
    if (state1 == nullptr || state2 == nullptr) return kNoAnswer;
    *state1 = static_cast<uint16_t>(zakhost::profile_int("backup", "state1"));
    *state2 = static_cast<uint16_t>(zakhost::profile_int("backup", "state2"));
    return 0;
}

} // extern "C"

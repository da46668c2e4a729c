// Package-manager and security state the upgrade scripts query: the upgrade flag, the patch
// history backup, the FIPS mode and the file-list names, all driven by the device profile.
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "host.h"
#include "rpm_state.h"

namespace {

uint32_t injected_failure(const char *service) {
    int64_t result = 0;
    if (!zakhost::injected(service, &result)) return 0;
    return result == 0 ? 1 : static_cast<uint32_t>(result);
}

} // namespace

extern "C" {

uint32_t RPM_GetUpgradeFlag(uint32_t *flag) {
    if (uint32_t fail = injected_failure("RPM_GetUpgradeFlag")) return fail;
    if (flag == nullptr) return 1;
    *flag = static_cast<uint32_t>(zakhost::profile_int("rpm", "upgrade_flag", 0));
    return 0;
}

// Copies the patch history file (relative to the common root) to the same name plus ".bak".
// 1 when there is no history file, 2 when the copy cannot be written.
uint32_t RPM_BackupPatchHistoryIni(void) {
    if (uint32_t fail = injected_failure("RPM_BackupPatchHistoryIni")) return fail;
    std::string source = zakhost::common_root() + "/" + zakhost::profile_string("rpm", "patch_history_ini");
    std::error_code error;
    if (!std::filesystem::is_regular_file(source, error)) return 1;
    std::filesystem::copy_file(source, source + ".bak", std::filesystem::copy_options::overwrite_existing,
                               error);
    return error ? 2 : 0;
}

uint32_t QAV_FIPS_GetFipsStatus(void) {
    int64_t result = 0;
    if (zakhost::injected("QAV_FIPS_GetFipsStatus", &result)) return static_cast<uint32_t>(result);
    return zakhost::profile_int("security", "fips", 0) != 0 ? 1 : 0;
}

// The name is the profile value [filelist] "<fileType>_<subType>_<flag>". 1 when there is none,
// 2 when it does not fit or the buffer is null.
uint32_t RPM_GetFileListNameByFileTypeOnMPU(uint32_t fileType, uint32_t subType, uint32_t flag, char *name) {
    if (uint32_t fail = injected_failure("RPM_GetFileListNameByFileTypeOnMPU")) return fail;
    if (name == nullptr) return 2;
    std::string key = std::to_string(fileType) + "_" + std::to_string(subType) + "_" + std::to_string(flag);
    auto value = zakhost::profile_value("filelist", key);
    if (!value) return 1;
    if (value->size() >= RPM_FILELIST_NAME_SIZE) return 2;
    std::memcpy(name, value->c_str(), value->size() + 1);
    return 0;
}

} // extern "C"

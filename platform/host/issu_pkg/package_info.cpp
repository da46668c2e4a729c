// The package information file rpg.rinfo: "Key=Value" lines; the keys below fill the record,
// other lines are ignored; a key given twice keeps its last value.
#include <cstring>
#include <fstream>

#include "host.h"
#include "pkg_internal.h"

namespace {

std::string trim(const std::string &text) {
    size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

} // namespace

extern "C" {

void ISSU_PKGINFO_Delete(ISSU_PKGINFO *info) {
    if (info == nullptr) return;
    for (const ISSU_PKGINFO_FIELD &field : kIssuPkgInfoFields)
        RPM_Os_Free(info->*field.member);
    RPM_Os_Free(info);
}

ISSU_PKGINFO *ISSU_PKGINFO_Open(const char *path) {
    if (zakhost::injected("ISSU_PKGINFO_Open")) return nullptr;
    if (path == nullptr) return nullptr;
    std::ifstream in(path);
    if (!in) return nullptr;
    auto *info = static_cast<ISSU_PKGINFO *>(RPM_Os_Alloc(sizeof(ISSU_PKGINFO)));
    if (info == nullptr) return nullptr;
    std::memset(info, 0, sizeof *info);
    std::string line;
    while (std::getline(in, line)) {
        size_t eq = line.find('=');
        if (eq == std::string::npos) continue;
        std::string key = trim(line.substr(0, eq));
        for (const ISSU_PKGINFO_FIELD &field : kIssuPkgInfoFields) {
            if (key != field.key) continue;
            char *value = zakhost::pkgmgr::host_strdup(trim(line.substr(eq + 1)));
            if (value == nullptr) {
                ISSU_PKGINFO_Delete(info);
                return nullptr;
            }
            RPM_Os_Free(info->*field.member);
            info->*field.member = value;
        }
    }
    return info;
}

} // extern "C"

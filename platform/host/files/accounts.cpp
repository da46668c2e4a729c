// Access handles and ownership changes to the platform's accounts. The service account and the
// FTP account come from the profile's [accounts] section; an empty name means the user running
// the process (so an unconfigured host changes nothing it could not change back).
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <string>

#include "host.h"
#include "zak_fs.h"

namespace {

// Resolves a user and group name (empty: the process's own ids); false for an unknown name.
bool resolve(const std::string &user, const std::string &group, uid_t *uid, gid_t *gid) {
    *uid = getuid();
    *gid = getgid();
    if (!user.empty()) {
        passwd *pw = getpwnam(user.c_str());
        if (pw == nullptr) return false;
        *uid = pw->pw_uid;
        *gid = pw->pw_gid;
    }
    if (!group.empty()) {
        struct group *gr = getgrnam(group.c_str());
        if (gr == nullptr) return false;
        *gid = gr->gr_gid;
    }
    return true;
}

int32_t chown_to(const char *service, const char *path, const char *userKey, const char *groupKey) {
    int64_t result = 0;
    if (zakhost::injected(service, &result)) return result == 0 ? -1 : static_cast<int32_t>(result);
    if (path == nullptr) return -1;
    uid_t uid = 0;
    gid_t gid = 0;
    if (!resolve(zakhost::profile_string("accounts", userKey), zakhost::profile_string("accounts", groupKey),
                 &uid, &gid))
        return -1;
    return chown(path, uid, gid) == 0 ? 0 : -1;
}

} // namespace

extern "C" {

// File-system numbers 0 to handle_count - 1 are known; the handle carries the owner tag's top
// byte, a marker bit (so no handle is 0) and the number.
uint32_t QAV_GetZakHandle(uint32_t number, uint32_t *handle, uint32_t ownerTag) {
    int64_t result = 0;
    if (zakhost::injected("QAV_GetZakHandle", &result))
        return result == 0 ? 1 : static_cast<uint32_t>(result);
    if (handle == nullptr) return 1;
    if (number >= static_cast<uint64_t>(zakhost::profile_int("files", "handle_count", 16))) return 1;
    *handle = (ownerTag & 0xFF000000u) | 0x00010000u | number;
    return 0;
}

int32_t P_BOOT_Chown2ZAK(const char *path, uint32_t) {
    return chown_to("P_BOOT_Chown2ZAK", path, "service_user", "service_group");
}

int32_t P_BOOT_Chown2Ftp(const char *path, uint32_t) {
    return chown_to("P_BOOT_Chown2Ftp", path, "ftp_user", "ftp_group");
}

} // extern "C"

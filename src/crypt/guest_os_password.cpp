// Changing the password of a guest operating-system account: the account and its old password are
// checked against the account databases, the system's password tool is run with the new password
// (handed over in the environment, never in the command text), the account files are synchronised
// and the new stored hash is returned.
#include <crypt.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "binding/memory.h"
#include "binding/script_frame.h"
#include "crypt/secret_buffer.h"
#include "os_accounts.h"
#include "os_env.h"
#include "securec.h"
#include "zak_device.h"

// Not every platform offers the NPS query; where it is missing the change is always allowed.
#pragma weak ZAK_IsNps

namespace {

using qav::crypt::kChangeFailed;
using qav::crypt::kNoSuchUser;
using qav::crypt::kOldPasswordWrong;
using qav::crypt::kPasswordUsedBefore;
constexpr uint32_t kChangeOk = qav::kOk;
constexpr int32_t kCommandFormatFailed = -1;

constexpr uint32_t kCommandSize = 512;
constexpr uint32_t kPathSize = 256;
constexpr uint32_t kLineSize = 512;
constexpr uint32_t kNewHashSize = 512;
constexpr const char *kPasswordToolLog = "/opt/mod_ospwd.log";
constexpr const char *kAccountEnv = "OS_USER_ACCT";
constexpr const char *kPasswordEnv = "OS_USER_PWD";

// Constant-time equality of two NUL-terminated texts of equal length.
bool SameText(const char *a, const char *b) {
    size_t lenA = strlen(a), lenB = strlen(b);
    if (lenA != lenB) return false;
    unsigned char diff = 0;
    for (size_t i = 0; i < lenA; ++i)
        diff |= static_cast<unsigned char>(a[i] ^ b[i]);
    return diff == 0;
}

// One "NAME=value" environment entry whose memory the call owns, so that the value can be wiped
// once the entry has left the environment (setenv would keep its own copy alive).
class EnvEntry {
  public:
    EnvEntry(const char *name, const char *value) : name_(name) {
        size_ = static_cast<uint32_t>(strlen(name) + 1 + strlen(value) + 1);
        text_ = static_cast<char *>(qav::PlatformAlloc(size_));
        if (text_ == nullptr) return;
        if (snprintf_s(text_, size_, size_ - 1, "%s=%s", name, value) < 0 || putenv(text_) != 0) Release();
    }
    ~EnvEntry() {
        unsetenv(name_);
        Release();
    }
    bool ok() const { return text_ != nullptr; }

  private:
    void Release() {
        if (text_ == nullptr) return;
        unsetenv(name_);
        qav::crypt::Wipe(text_, size_);
        qav::PlatformFree(text_);
        text_ = nullptr;
    }
    const char *name_;
    char *text_ = nullptr;
    uint32_t size_ = 0;
};

bool LineReportsReuse(const char *line) {
    return strstr(line, "Password has been used already") != nullptr ||
           strstr(line, "Password has been already used") != nullptr || strstr(line, "already") != nullptr;
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) uint32_t QAV_IsUserExist(const char *user) {
    if (ZAK_OsGetPwNam(user) == nullptr || ZAK_OsGetSpNam(user) == nullptr) return kNoSuchUser;
    return kChangeOk;
}

__attribute__((visibility("default"))) uint32_t QAV_IsUserOldKeyValid(const char *user,
                                                                      const char *oldPassword) {
    struct passwd *entry = ZAK_OsGetPwNam(user);
    if (entry == nullptr || entry->pw_passwd == nullptr) return kOldPasswordWrong;
    const char *field = entry->pw_passwd;
    const char *stored = field;
    // "x" and "##<user>" point to the shadow entry's hash.
    bool pointsToShadow =
        strcmp(field, "x") == 0 || (strncmp(field, "##", 2) == 0 && strcmp(field + 2, user) == 0);
    if (pointsToShadow) {
        struct spwd *shadow = ZAK_OsGetSpNam(user);
        if (shadow != nullptr && shadow->sp_pwdp != nullptr && shadow->sp_pwdp[0] != '\0') {
            if (shadow->sp_pwdp[0] == '@') return kOldPasswordWrong;
            stored = shadow->sp_pwdp;
        }
    }
    if (stored[0] == '\0') return kOldPasswordWrong;
    static thread_local struct crypt_data work;
    (void)memset_s(&work, sizeof work, 0, sizeof work);
    const char *hashed = crypt_r(oldPassword, stored, &work);
    bool valid = hashed != nullptr && SameText(hashed, stored);
    qav::crypt::Wipe(&work, sizeof work);
    return valid ? kChangeOk : kOldPasswordWrong;
}

__attribute__((visibility("default"))) uint32_t QAV_GetModPwdErrInfo(const char *logPath) {
    FILE *log = logPath != nullptr ? fopen(logPath, "r") : nullptr;
    if (log == nullptr) return kChangeFailed;
    char line[kLineSize];
    uint32_t reuseLines = 0;
    while (fgets(line, sizeof line, log) != nullptr) {
        size_t len = strlen(line);
        if (len > 0 && line[len - 1] == '\n') line[--len] = '\0';
        if (len > 0 && line[len - 1] == '\r') line[--len] = '\0';
        if (len == 0) continue;
        if (LineReportsReuse(line)) ++reuseLines;
    }
    fclose(log);
    return reuseLines > 0 ? kPasswordUsedBefore : kChangeFailed;
}

// 0 when the tool changed the password; 1003 or 1004 from its log when it failed; -1 when the
// command could not be built. The environment, the log and the account files are seen to on
// every path.
__attribute__((visibility("default"))) int32_t QAV_ModifyUserPasswd(const char *user,
                                                                    const char *newPassword) {
    char logPath[kPathSize] = {};
    char passwdPath[kPathSize] = {};
    char shadowPath[kPathSize] = {};
    char command[kCommandSize] = {};
    if (ZAK_OsDevicePath(kPasswordToolLog, logPath, sizeof logPath) == nullptr ||
        ZAK_OsDevicePath("/etc/passwd", passwdPath, sizeof passwdPath) == nullptr ||
        ZAK_OsDevicePath("/etc/shadow", shadowPath, sizeof shadowPath) == nullptr)
        return kCommandFormatFailed;
    int32_t result = kCommandFormatFailed;
    {
        EnvEntry account(kAccountEnv, user);
        EnvEntry password(kPasswordEnv, newPassword);
        if (account.ok() && password.ok() &&
            snprintf_s(command, sizeof command, sizeof command - 1,
                       "echo \"${OS_USER_PWD}\\n${OS_USER_PWD}\\n\" | passwd ${OS_USER_ACCT} &> %s",
                       logPath) >= 0) {
            result =
                ZAK_OsRunShellCommand(command) == 0 ? 0 : static_cast<int32_t>(QAV_GetModPwdErrInfo(logPath));
        }
    } // both variables leave the environment here
    (void)remove(logPath);
    if (snprintf_s(command, sizeof command, sizeof command - 1, "ramdisk-sync -s %s %s >/dev/null 2>&1",
                   passwdPath, shadowPath) >= 0)
        (void)ZAK_OsRunShellCommand(command);
    return result;
}

__attribute__((visibility("default"))) uint32_t QAV_GetCryptKeyOfNewKey(const char *user, char *out,
                                                                        uint32_t size) {
    struct spwd *shadow = ZAK_OsGetSpNam(user);
    if (shadow == nullptr || shadow->sp_pwdp == nullptr || shadow->sp_pwdp[0] == '\0') return kChangeFailed;
    if (strcpy_s(out, size, shadow->sp_pwdp) != EOK) return kChangeFailed;
    return kChangeOk;
}

QAV_ENTRY_FUNCTION QAV_VerifyAndSetGuestOSKey(lua_State *state) {
    if (ZAK_IsNps != nullptr && ZAK_IsNps() != 1) return 0;
    if (!qav::ArgsMatch(state, "sss")) return qav::ReturnUInt(state, qav::kBadRequest);
    const char *user = SYSDT_SPTI_ToString(state, 1);
    const char *oldPassword = SYSDT_SPTI_ToString(state, 2);
    const char *newPassword = SYSDT_SPTI_ToString(state, 3);
    if (QAV_IsUserExist(user) != kChangeOk) return qav::ReturnUInt(state, kNoSuchUser);
    if (QAV_IsUserOldKeyValid(user, oldPassword) != kChangeOk)
        return qav::ReturnUInt(state, kOldPasswordWrong);
    // The tool's "used before" classification is not passed on: every failed change is 1003.
    if (QAV_ModifyUserPasswd(user, newPassword) != 0) return qav::ReturnUInt(state, kChangeFailed);
    char newHash[kNewHashSize] = {};
    if (QAV_GetCryptKeyOfNewKey(user, newHash, sizeof newHash) != kChangeOk)
        return qav::ReturnUInt(state, kChangeFailed);
    SYSDT_SPTI_PushUInt(state, kChangeOk);
    qav::crypt::PushText(state, newHash, sizeof newHash);
    return 2;
}

} // extern "C"

// The account databases and the shell of the guest OS password change. With the machine itself as
// the device root these are the system's getpwnam, getspnam and bash; inside a device sandbox the
// account files are the sandbox's "/etc/passwd" and "/etc/shadow".
#include <crypt.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "host.h"
#include "os_accounts.h"

namespace {

constexpr size_t kEntryBuffer = 16384;

thread_local struct passwd t_passwd;
thread_local struct spwd t_shadow;
thread_local char t_passwdBuffer[kEntryBuffer];
thread_local char t_shadowBuffer[kEntryBuffer];

// Scans an account file with the reentrant reader `next` for the entry of `user`.
template <typename Entry, typename Next, typename Name>
Entry *FindInFile(const std::string &path, const char *user, Entry *entry, char *buffer, Next next,
                  Name name) {
    FILE *file = std::fopen(path.c_str(), "re");
    if (file == nullptr) return nullptr;
    Entry *found = nullptr;
    Entry *result = nullptr;
    while (next(file, entry, buffer, kEntryBuffer, &result) == 0 && result != nullptr) {
        if (std::strcmp(name(result), user) == 0) {
            found = result;
            break;
        }
    }
    std::fclose(file);
    return found;
}

// New sandboxes get root, the system accounts "daemon" and "nobody", and a "guest" account whose
// password is "Guest#Pass1".
std::string WriteSampleAccounts(const std::string &root) {
    std::string passwd = root + "/etc/passwd", shadow = root + "/etc/shadow";
    if (std::ifstream(passwd) || std::ifstream(shadow)) return {};
    struct crypt_data work = {};
    const char *hash = crypt_r("Guest#Pass1", "$6$zakhostguest$", &work);
    if (hash == nullptr || hash[0] != '$') return "cannot hash the sample password";
    std::ofstream(passwd) << "root:x:0:0:root:/root:/bin/sh\n"
                          << "daemon:x:1:1:daemon:/usr/sbin:/usr/sbin/nologin\n"
                          << "nobody:x:65534:65534:nobody:/nonexistent:/usr/sbin/nologin\n"
                          << "guest:x:1000:1000:guest:/home/guest:/bin/sh\n";
    std::ofstream(shadow) << "root:*:19000:0:99999:7:::\n"
                          << "daemon:*:19000:0:99999:7:::\n"
                          << "nobody:*:19000:0:99999:7:::\n"
                          << "guest:" << hash << ":19000:0:99999:7:::\n";
    chmod(shadow.c_str(), 0640);
    return std::ifstream(shadow) ? std::string() : "cannot write " + shadow;
}

const zakhost::SandboxSeed kSampleAccounts{"accounts", &WriteSampleAccounts};

} // namespace

extern "C" {

struct passwd *ZAK_OsGetPwNam(const char *user) {
    if (zakhost::injected("ZAK_OsGetPwNam") || user == nullptr) return nullptr;
    if (zakhost::root().empty()) {
        struct passwd *result = nullptr;
        getpwnam_r(user, &t_passwd, t_passwdBuffer, sizeof t_passwdBuffer, &result);
        return result;
    }
    return FindInFile(zakhost::in_root("/etc/passwd"), user, &t_passwd, t_passwdBuffer, fgetpwent_r,
                      [](struct passwd *e) { return e->pw_name; });
}

struct spwd *ZAK_OsGetSpNam(const char *user) {
    if (zakhost::injected("ZAK_OsGetSpNam") || user == nullptr) return nullptr;
    if (zakhost::root().empty()) {
        struct spwd *result = nullptr;
        getspnam_r(user, &t_shadow, t_shadowBuffer, sizeof t_shadowBuffer, &result);
        return result;
    }
    return FindInFile(zakhost::in_root("/etc/shadow"), user, &t_shadow, t_shadowBuffer, fgetspent_r,
                      [](struct spwd *e) { return e->sp_namp; });
}

int32_t ZAK_OsRunShellCommand(const char *command) {
    int64_t injectedResult = 0;
    if (zakhost::injected("ZAK_OsRunShellCommand", &injectedResult))
        return injectedResult == 0 ? -1 : static_cast<int32_t>(injectedResult);
    if (command == nullptr) return -1;
    // bash, with echo expanding backslash escapes as the device shell's echo does, and "&>"
    // redirecting both output streams.
    const char *argv[] = {"/bin/bash", "-O", "xpg_echo", "-c", command, nullptr};
    return zakhost::run_command(argv);
}

} // extern "C"

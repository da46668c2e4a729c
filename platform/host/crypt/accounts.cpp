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

// The entry of `user`: from the system's database (`byName`) when the machine is the device
// root, else by scanning the sandbox's account file with the reentrant reader `next`.
template <typename Entry, typename ByName, typename Next>
Entry *Lookup(const char *service, const char *user, const char *accountFile, Entry *entry, char *buffer,
              ByName byName, Next next, char *Entry::*name) {
    if (zakhost::injected(service) || user == nullptr) return nullptr;
    Entry *result = nullptr;
    if (zakhost::root().empty()) {
        byName(user, entry, buffer, kEntryBuffer, &result);
        return result;
    }
    FILE *file = std::fopen(zakhost::in_root(accountFile).c_str(), "re");
    if (file == nullptr) return nullptr;
    Entry *found = nullptr;
    while (next(file, entry, buffer, kEntryBuffer, &result) == 0 && result != nullptr) {
        if (std::strcmp(result->*name, user) == 0) {
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
    return Lookup("ZAK_OsGetPwNam", user, "/etc/passwd", &t_passwd, t_passwdBuffer, getpwnam_r, fgetpwent_r,
                  &passwd::pw_name);
}

struct spwd *ZAK_OsGetSpNam(const char *user) {
    return Lookup("ZAK_OsGetSpNam", user, "/etc/shadow", &t_shadow, t_shadowBuffer, getspnam_r, fgetspent_r,
                  &spwd::sp_namp);
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

// The host's command runner: every program the host platform starts on the library's behalf (the
// shell of `Frame_System` and `ZAK_OsRunShellCommand`, `tar` of the RPG mounts) goes through here.
//
// Inside the device jail that `qavlua` builds, a command sees the sandbox as its whole file system,
// so it runs. Outside a jail (a stock interpreter loading the module, `qavlua --no-jail`) the
// sandbox only relocates the platform's own paths: a command such as the password tool would act
// on the machine itself, so none runs unless ZAKHOST_ALLOW_HOST_COMMANDS=1 says so in so many
// words. Both settings are read once, when the host platform loads, so a script cannot change them.
#include <spawn.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "host.h"

extern char **environ;

namespace zakhost {
namespace {

bool env_is_one(const char *name) {
    const char *value = std::getenv(name);
    return value != nullptr && std::strcmp(value, "1") == 0;
}

std::atomic<bool> g_jailed{env_is_one("ZAKHOST_JAILED")};
std::atomic<bool> g_allowed{g_jailed.load() || env_is_one("ZAKHOST_ALLOW_HOST_COMMANDS")};

} // namespace

bool jailed() {
    return g_jailed.load();
}

bool host_commands_allowed() {
    return g_allowed.load();
}

void allow_host_commands(bool allow) {
    g_allowed.store(allow);
}

int run_command(const char *const argv[]) {
    if (argv == nullptr || argv[0] == nullptr) return -1;
    if (!host_commands_allowed()) {
        log_text("syslog", 0, 0,
                 std::string("host command refused: not in a device jail, so '") + argv[0] +
                     "' would act on this machine (run under qavlua's jail, or set "
                     "ZAKHOST_ALLOW_HOST_COMMANDS=1 to allow it)");
        return -1;
    }
    pid_t pid = 0;
    if (posix_spawnp(&pid, argv[0], nullptr, nullptr, const_cast<char *const *>(argv), environ) != 0)
        return -1;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace zakhost

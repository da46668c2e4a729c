// What the device's own tools need in a new sandbox. Inside the device jail the password tool and
// ramdisk-sync see the sandbox as the whole file system, so their configuration is the sandbox's:
// the account databases' lookup order, the group file, the password tool's login.defs and PAM
// stack, and a ramdisk-sync that does to the sandbox's files what the device's does to its own.
#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <string>

#include "host.h"

namespace {

struct SeedFile {
    const char *path;
    mode_t mode;
    const char *text;
};

// On the device /etc lives on a RAM disk; "ramdisk-sync -s FILE..." saves each file to its
// persistent copy. The sandbox keeps those copies under /zakv8/persist, each at its own path.
// The tool finds the device root from where it is installed (R/opt/zakhost/bin).
constexpr const char *kRamdiskSync = R"(#!/bin/sh
# ramdisk-sync -s FILE...: saves each RAM-disk FILE to its persistent copy, <root>/zakv8/persist/FILE.
root=$(cd "$(dirname "$0")/../../.." && pwd)
[ "$root" = / ] && root=
if [ "$1" != "-s" ] || [ $# -lt 2 ]; then
    echo "usage: ramdisk-sync -s FILE..." >&2
    exit 2
fi
shift
for file in "$@"; do
    case $file in
    /*) ;;
    *) echo "ramdisk-sync: $file: not an absolute path" >&2; exit 2 ;;
    esac
    device=${file#"$root"}
    mkdir -p "$root/zakv8/persist${device%/*}" && cp -p "$file" "$root/zakv8/persist$device" || exit 1
done
)";

const SeedFile kFiles[] = {
    {"/etc/nsswitch.conf", 0644, "passwd: files\ngroup: files\nshadow: files\n"},
    {"/etc/group", 0644, "root:x:0:\ndaemon:x:1:\nnogroup:x:65534:\nguest:x:1000:\n"},
    {"/etc/login.defs", 0644,
     "# Read by the password tool of this device sandbox.\n"
     "ENCRYPT_METHOD YESCRYPT\nPASS_MAX_DAYS 99999\nPASS_MIN_DAYS 0\nPASS_WARN_AGE 7\n"},
    {"/etc/pam.d/passwd", 0644,
     "# The password tool hashes the new password into /etc/shadow.\n"
     "password [success=1 default=ignore] pam_unix.so obscure yescrypt\n"
     "password requisite pam_deny.so\n"
     "password required pam_permit.so\n"},
    {"/etc/pam.d/other", 0644,
     "auth required pam_deny.so\naccount required pam_deny.so\n"
     "password required pam_deny.so\nsession required pam_deny.so\n"},
    {"/opt/zakhost/bin/ramdisk-sync", 0755, kRamdiskSync},
};

std::string WriteToolFiles(const std::string &root) {
    for (const char *dir : {"/etc/pam.d", "/opt/zakhost/bin"})
        if (!zakhost::make_dirs(root + dir).empty()) return root + dir + ": cannot create";
    for (const SeedFile &file : kFiles) {
        std::string path = root + file.path;
        if (std::ifstream(path)) continue; // keep what the author put there
        std::ofstream(path) << file.text;
        if (chmod(path.c_str(), file.mode) != 0) return path + ": cannot write";
    }
    return {};
}

const zakhost::SandboxSeed kToolFiles{"os-tools", &WriteToolFiles};

} // namespace

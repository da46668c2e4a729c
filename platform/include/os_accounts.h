/* The operating system's account databases and shell, as the guest OS password change uses them.
 * On a device these are getpwnam, getspnam and the system shell; on a host they read the device
 * sandbox's "/etc/passwd" and "/etc/shadow". */
#ifndef PLATFORM_OS_ACCOUNTS_H
#define PLATFORM_OS_ACCOUNTS_H

#include <pwd.h>
#include <shadow.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* getpwnam / getspnam: the entry of `user`, or null. The entry stays valid until the next call
 * of the same function on the same thread. */
struct passwd *ZAK_OsGetPwNam(const char *user);
struct spwd *ZAK_OsGetSpNam(const char *user);

/* Runs `command` through the shell with the process environment. 0 when it exits with status 0;
 * its exit status, or -1 when it could not be run, otherwise. */
int32_t ZAK_OsRunShellCommand(const char *command);

#ifdef __cplusplus
}
#endif

#endif

/* What the library reads from the operating system that must be controllable: clocks and the
 * fixed absolute device paths. On a device these are the system's own calls. */
#ifndef PLATFORM_OS_ENV_H
#define PLATFORM_OS_ENV_H

#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/* clock_gettime for CLOCK_REALTIME, CLOCK_MONOTONIC, CLOCK_MONOTONIC_RAW, CLOCK_BOOTTIME and
 * CLOCK_PROCESS_CPUTIME_ID; 0 on success, -1 otherwise. */
int32_t ZAK_OsClockGetTime(clockid_t clockId, struct timespec *now);

/* The path the operating system should open for the absolute device path `devicePath`
 * ("/etc/shadow", "/boot/disk_cfg.ini"). Writes it into buffer and returns buffer, or null when
 * it does not fit. */
char *ZAK_OsDevicePath(const char *devicePath, char *buffer, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif

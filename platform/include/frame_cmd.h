/* Command execution. */
#ifndef PLATFORM_FRAME_CMD_H
#define PLATFORM_FRAME_CMD_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Checks `count` texts that will be placed into a shell command: 0 when none holds a character
 * a shell would interpret, nonzero otherwise. */
uint32_t Frame_CommandFilter(uint32_t count, ...);
/* Runs a command through the shell; its exit status (0 success), or -1 when it cannot run. */
int32_t Frame_System(const char *command);

#ifdef __cplusplus
}
#endif

#endif

/* Board and process services: CPU ticks, the process path, board reset, the OS nodes of a
 * board. */
#ifndef PLATFORM_QAV_BOARD_H
#define PLATFORM_QAV_BOARD_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The CPU tick counter as two 32-bit words: `first` the high word, `second` the low word. */
uint32_t ZAK_GetCpuTick(uint32_t *first, uint32_t *second);
/* The current directory of this process into path[size]; 0 on success. */
uint32_t ZAK_GetProcessCurrentPath(char *path, uint32_t size);
/* Resets this board so that it comes up in the given NPU mode. */
uint32_t QAV_ResetBoard(uint32_t npuMode);
/* The OS node ids of one board, from the configuration database. On success *list is an array
 * of *count ids from the platform allocator (ZAK_Free_F it), or null when the board has none. */
uint32_t QAV_GetOsNodeListByBoardId(uint32_t chassis, uint32_t board, uint32_t *count, uint32_t **list);

#ifdef __cplusplus
}
#endif

#endif

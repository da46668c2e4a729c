/* Platform allocator. Blocks carry the caller's source tag and line for leak tracking. */
#ifndef PLATFORM_ZAK_MEMORY_H
#define PLATFORM_ZAK_MEMORY_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Memory partition the library allocates from. */
extern uint8_t g_aucZakMemPt;

void *ZAK_Malloc_F(void *memHandle, uint8_t partition, uint32_t size, const char *sourceTag, uint32_t line);
uint32_t ZAK_Free_F(void *block, const char *sourceTag, uint32_t line);
/* Frees a block of the platform allocator (the short form used by a few callers). */
uint32_t NUK_MemFree(void *block);

#ifdef __cplusplus
}
#endif

#endif

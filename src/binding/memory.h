// The library's allocator front: every block the library takes and gives back goes through here.
//
// Platform blocks (ZAK_Malloc_F under the library's memory handle and partition) are the rule:
// what a call allocates and frees before it returns, and the nodes of the shared tables. The
// platform tags each with a source and the caller's line and counts them for leak checks.
//
// Process blocks (the C heap) are kept for the buffers the device has always taken from the C
// heap and that live on behind exported tables or in the package manager's lists: the patch
// record buffers, the patch diagnostic ring, the ISSU version texts and the entity names handed
// to a pointer list with HeapFree as their release function.
#pragma once

#include <cstddef>
#include <cstdint>

#include "binding/script_frame.h"

namespace qav {

// Null when the platform has no block of that size.
inline void *PlatformAlloc(uint32_t size, const char *tag = kSourceTag, uint32_t line = __builtin_LINE()) {
    return ZAK_Malloc_F(g_pLocaHandleQav, g_aucZakMemPt, size, tag, line);
}
void *PlatformAllocZeroed(uint32_t size, const char *tag = kSourceTag, uint32_t line = __builtin_LINE());
// Gives a platform block back; a null block is left alone.
inline void PlatformFree(void *block, const char *tag = kSourceTag, uint32_t line = __builtin_LINE()) {
    if (block != nullptr) (void)ZAK_Free_F(block, tag, line);
}

void *HeapAlloc(size_t size);
void *HeapAllocZeroed(size_t count, size_t size);
// A copy of `text` on the C heap; null for a null text or when there is no memory.
char *HeapCopy(const char *text);
void HeapFree(void *block);

} // namespace qav

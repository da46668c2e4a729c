#include "binding/memory.h"

#include <cstdlib>
#include <cstring>

#include "securec.h"

namespace qav {

void *PlatformAllocZeroed(uint32_t size, const char *tag, uint32_t line) {
    void *block = PlatformAlloc(size, tag, line);
    if (block != nullptr) (void)memset_s(block, size, 0, size);
    return block;
}

void *HeapAlloc(size_t size) {
    return std::malloc(size);
}

void *HeapAllocZeroed(size_t count, size_t size) {
    return std::calloc(count, size);
}

char *HeapCopy(const char *text) {
    return text != nullptr ? strdup(text) : nullptr;
}

void HeapFree(void *block) {
    std::free(block);
}

} // namespace qav

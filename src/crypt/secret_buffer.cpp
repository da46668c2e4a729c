#include "crypt/secret_buffer.h"

#include "securec.h"

namespace qav::crypt {

WipeProbe g_wipeProbe = nullptr;

void Wipe(void *data, size_t size) {
    (void)memset_s(data, size, 0, size);
    // Keeps the stores even where the buffer is never read again.
    __asm__ __volatile__("" : : "r"(data) : "memory");
}

} // namespace qav::crypt

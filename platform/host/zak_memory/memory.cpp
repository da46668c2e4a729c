// The platform allocator: the C heap, with a count of live blocks for leak checks and fault
// injection of "ZAK_Malloc_F".
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "host.h"
#include "zak_memory.h"

namespace zakhost {
namespace {
std::atomic<int64_t> g_liveBlocks{0};
std::atomic<int64_t> g_liveBytes{0};

// Each block is preceded by its size so that frees can keep the byte count. The header keeps the
// block at malloc's own alignment (16 bytes on x86-64, 8 on 32-bit ARM), never more: malloc
// promises no more than that for the header itself.
struct alignas(std::max_align_t) BlockHeader {
    uint64_t size;
};
} // namespace

int64_t live_blocks() {
    return g_liveBlocks.load();
}
int64_t live_bytes() {
    return g_liveBytes.load();
}

} // namespace zakhost

extern "C" {

uint8_t g_aucZakMemPt = 0;

void *ZAK_Malloc_F(void *, uint8_t, uint32_t size, const char *, uint32_t) {
    if (zakhost::injected("ZAK_Malloc_F")) return nullptr;
    auto *header = static_cast<zakhost::BlockHeader *>(std::malloc(sizeof(zakhost::BlockHeader) + size));
    if (header == nullptr) return nullptr;
    header->size = size;
    zakhost::g_liveBlocks.fetch_add(1);
    zakhost::g_liveBytes.fetch_add(size);
    return header + 1;
}

uint32_t ZAK_Free_F(void *block, const char *, uint32_t) {
    if (block == nullptr) return 1;
    auto *header = static_cast<zakhost::BlockHeader *>(block) - 1;
    zakhost::g_liveBlocks.fetch_sub(1);
    zakhost::g_liveBytes.fetch_sub(static_cast<int64_t>(header->size));
    std::free(header);
    return 0;
}

uint32_t NUK_MemFree(void *block) {
    return ZAK_Free_F(block, "NUK_MemFree", 0);
}

} // extern "C"

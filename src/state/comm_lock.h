// The common lock record embedded in every named-lock table.
#pragma once

#include <cstdint>

extern "C" {
typedef struct QavCommLock {
    int32_t count;   // current holders: 0 free, 1 held
    uint32_t semaId; // counting semaphore, initial count 1; 0 = not created
    uint32_t mutex;  // guards count; 0 = not initialised
} QavCommLock;
}
static_assert(sizeof(QavCommLock) == 12);

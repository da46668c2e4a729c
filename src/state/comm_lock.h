// The common lock record embedded in every named-lock table.
#pragma once

#include <cstdint>

// The exported state tables keep the device's 32-bit layout, which other platform libraries
// read; built for a 32-bit target, each table's size is checked against it.
#if UINTPTR_MAX == 0xFFFFFFFF
#define QAV_DEVICE_LAYOUT(type, size) static_assert(sizeof(type) == (size));
#else
#define QAV_DEVICE_LAYOUT(type, size)
#endif

extern "C" {
typedef struct QavCommLock {
    int32_t count;   // current holders: 0 free, 1 held
    uint32_t semaId; // counting semaphore, initial count 1; 0 = not created
    uint32_t mutex;  // guards count; 0 = not initialised
} QavCommLock;
}
static_assert(sizeof(QavCommLock) == 12);

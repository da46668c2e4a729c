// Small process-wide values the upgrade, patch and key-management scripts leave for one another.
#pragma once

#include <cstdint>

extern "C" {

#define QAV_FAULT_BOARD_SLOTS 245u

typedef struct QavSumExceptLock {
    uint32_t mutex;
    int32_t value;
} QavSumExceptLock;

typedef struct QavSumFaultBoard {
    uint32_t mutex;
    int32_t boards[QAV_FAULT_BOARD_SLOTS]; // 0 = free slot
} QavSumFaultBoard;

extern QavSumExceptLock g_uiSumExceptLock;
extern QavSumFaultBoard g_uiSumFaultBoard;
}

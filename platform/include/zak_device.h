/* Board hardware facts. */
#ifndef PLATFORM_ZAK_DEVICE_H
#define PLATFORM_ZAK_DEVICE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ZAK_HARD_INFO {
    uint16_t usShelfID;
    uint16_t usChassisID;
    uint16_t usBoardID;
    uint16_t usCpuID;
    uint32_t uiBoardHardType;
    uint32_t uiBoardHardExtType;
    uint32_t uiMacAddrLen;
    uint8_t aucMacAddr[16];
    uint32_t uiSoftResetSupport; /* nonzero when the board can be reset without power cycling */
} ZAK_HARD_INFO;

/* Fills the record for the local board; 0 on success. */
uint32_t ZAK_GetHard_Info(ZAK_HARD_INFO *info);
/* 1 on an NPS device, else 0. */
uint32_t ZAK_IsNps(void);

#ifdef __cplusplus
}
#endif

#endif

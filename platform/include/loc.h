/* Location services: where on the device this process runs. */
#ifndef PLATFORM_LOC_H
#define PLATFORM_LOC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The OS node id of this processor instance. */
uint32_t LOC_GetNodeId(void);
/* The location id of this board; `code` (an error code, when a caller logs one) is not used to
 * find it. */
#ifdef __cplusplus
uint32_t LOC_GetLocationID(uint32_t code = 0);
#else
uint32_t LOC_GetLocationID(uint32_t code);
#endif
/* The chassis this board sits in. */
uint32_t LOC_GetLocationChassis(void);
/* Nonzero on the hardware family whose packages carry file digests. */
uint32_t LOC_IsMorlo(void);

#ifdef __cplusplus
}
#endif

#endif

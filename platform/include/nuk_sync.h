/* OS abstraction: mutexes and counting semaphores named by 32-bit handles; 0 is never a valid
 * handle, so a handle word of 0 means "not created". All calls return 0 on success. */
#ifndef PLATFORM_NUK_SYNC_H
#define PLATFORM_NUK_SYNC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Result of NUK_SemaP when the wait ran out before the semaphore was posted. */
#define NUK_SEMA_TIMEOUT 0x00000102u
/* Time-out value of NUK_SemaP that waits for ever. */
#define NUK_WAIT_FOREVER 0xFFFFFFFFu

uint32_t NUK_MutexInit(uint32_t *mutexId, uint32_t flags);
uint32_t NUK_MutexLock(uint32_t mutexId);
uint32_t NUK_MutexTrylock(uint32_t mutexId);
uint32_t NUK_MutexUnlock(uint32_t mutexId);
uint32_t NUK_MutexDestroy(uint32_t mutexId);

uint32_t NUK_SemaCreate(const char *name, uint32_t initialCount, uint32_t flags, uint32_t *semaId);
uint32_t NUK_SemaP(uint32_t semaId, uint32_t timeoutMs);
uint32_t NUK_SemaV(uint32_t semaId);
uint32_t NUK_SemaDelete(uint32_t semaId);

#ifdef __cplusplus
}
#endif

#endif

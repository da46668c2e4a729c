// The script lock: one process-wide mutex offered to the other script-extension libraries.
#include "binding/script_frame.h"

extern "C" {

__attribute__((visibility("default"))) uint32_t g_pMibluaSem = 0;

__attribute__((visibility("default"))) uint32_t QAV_lualock_init(void) {
    return NUK_MutexInit(&g_pMibluaSem, 0);
}
__attribute__((visibility("default"))) uint32_t QAV_lualock_lock(void) {
    return NUK_MutexLock(g_pMibluaSem);
}
__attribute__((visibility("default"))) uint32_t QAV_lualock_unlock(void) {
    return NUK_MutexUnlock(g_pMibluaSem);
}
__attribute__((visibility("default"))) uint32_t QAV_lualock_Destroy(void) {
    return NUK_MutexDestroy(g_pMibluaSem);
}

} // extern "C"

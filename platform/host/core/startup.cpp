// What the host does when it is loaded: create the shared initialisation mutex every
// script-extension library opens under, and apply the profile's log level.
#include "host.h"
#include "nuk_sync.h"
#include "platform_logs.h"

extern "C" {
uint32_t g_pLuaInitMutex = 0;
}

namespace zakhost {

void apply_profile_settings() {
    g_iLogLevel = static_cast<int32_t>(profile_int("log", "ha_level", 3));
}

namespace {
__attribute__((constructor)) void start_host() {
    NUK_MutexInit(&g_pLuaInitMutex, 0);
    apply_profile_settings();
}
} // namespace

} // namespace zakhost

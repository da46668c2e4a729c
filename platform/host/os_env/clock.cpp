// The host clocks: the operating system's, shifted by one offset that tests move forward.
#include <atomic>
#include <ctime>

#include "host.h"
#include "os_env.h"

namespace zakhost {
namespace {
std::atomic<int64_t> g_offset{0};
}

int64_t clock_offset() {
    return g_offset.load(std::memory_order_relaxed);
}

void clock_advance(int64_t seconds) {
    if (seconds > 0) g_offset.fetch_add(seconds, std::memory_order_relaxed);
}

} // namespace zakhost

extern "C" int32_t ZAK_OsClockGetTime(clockid_t clockId, struct timespec *now) {
    if (now == nullptr || zakhost::injected("ZAK_OsClockGetTime")) return -1;
    switch (clockId) {
    case CLOCK_REALTIME:
    case CLOCK_MONOTONIC:
    case CLOCK_MONOTONIC_RAW:
    case CLOCK_BOOTTIME:
    case CLOCK_PROCESS_CPUTIME_ID:
        break;
    default:
        return -1;
    }
    if (clock_gettime(clockId, now) != 0) return -1;
    now->tv_sec += zakhost::clock_offset();
    return 0;
}

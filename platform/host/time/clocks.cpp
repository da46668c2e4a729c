// The device clocks: wall time (GMT and local), system seconds, uptime and CPU run time, all read
// through ZAK_OsClockGetTime so that the host clock offset moves them together.
#include <cstring>
#include <ctime>

#include "calendar.h"
#include "host.h"
#include "os_env.h"
#include "zak_systime.h"
#include "zone_rules.h"

namespace {

using zakhost::calendar::Milliseconds;

// An injected failure: the injected result, or the failure status when 0 was injected.
bool Failing(const char *service, uint32_t *status) {
    int64_t result = 0;
    if (!zakhost::injected(service, &result)) return false;
    *status = result == 0 ? ZAK_TIME_FAILED : static_cast<uint32_t>(result);
    return true;
}

uint32_t ReadClock(clockid_t clock, struct timespec *now) {
    return ZAK_OsClockGetTime(clock, now) == 0 ? 0 : ZAK_TIME_FAILED;
}

void SplitWords(uint64_t count, uint32_t *high, uint32_t *low) {
    *high = static_cast<uint32_t>(count >> 32);
    *low = static_cast<uint32_t>(count);
}

} // namespace

extern "C" {

uint32_t ZAK_GMT_SystimeGet(SYS_TIME *gmt) {
    uint32_t status = 0;
    if (Failing("ZAK_GMT_SystimeGet", &status)) return status;
    if (gmt == nullptr) return ZAK_TIME_FAILED;
    auto now = zakhost::calendar::Now();
    auto record = now ? zakhost::calendar::FromPoint(*now) : std::nullopt;
    if (!record) return ZAK_TIME_FAILED;
    *gmt = *record;
    return 0;
}

uint32_t ZAK_Local_SystimeGet(SYS_TIME *local, uint32_t *extra) {
    uint32_t status = 0;
    if (Failing("ZAK_Local_SystimeGet", &status)) return status;
    if (local == nullptr || extra == nullptr) return ZAK_TIME_FAILED;
    auto now = zakhost::calendar::Now();
    if (!now) return ZAK_TIME_FAILED;
    ZAK_TIME_ZONE zone;
    ZAK_DST_RULE rule;
    zakhost::zones::DeviceConfig(&zone, &rule);
    bool daylight = zakhost::zones::InDaylightSaving(zone, rule, *now);
    Milliseconds wall = *now + zakhost::zones::StandardOffset(zone);
    if (daylight) wall += zakhost::zones::DaylightOffset(rule);
    auto record = zakhost::calendar::FromPoint(wall);
    if (!record) return ZAK_TIME_FAILED;
    *local = *record;
    *extra = daylight ? 1 : 0;
    return 0;
}

uint32_t ZAK_GetSystemTime(uint32_t *seconds, uint32_t *microseconds) {
    uint32_t status = 0;
    if (Failing("ZAK_GetSystemTime", &status)) return status;
    if (seconds == nullptr || microseconds == nullptr) return ZAK_TIME_FAILED;
    struct timespec now {};
    if (ReadClock(CLOCK_REALTIME, &now) != 0) return ZAK_TIME_FAILED;
    *seconds = static_cast<uint32_t>(now.tv_sec);
    *microseconds = static_cast<uint32_t>(now.tv_nsec / 1000);
    return 0;
}

uint32_t ZAK_GetUptimeMillSec(uint32_t *high, uint32_t *low) {
    uint32_t status = 0;
    if (Failing("ZAK_GetUptimeMillSec", &status)) return status;
    if (high == nullptr || low == nullptr) return ZAK_TIME_FAILED;
    struct timespec now {};
    if (ReadClock(CLOCK_BOOTTIME, &now) != 0) return ZAK_TIME_FAILED;
    SplitWords(static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec / 1000000), high,
               low);
    return 0;
}

uint32_t ZAK_GetUptimeSec(uint32_t *high, uint32_t *low) {
    uint32_t status = 0;
    if (Failing("ZAK_GetUptimeSec", &status)) return status;
    if (high == nullptr || low == nullptr) return ZAK_TIME_FAILED;
    struct timespec now {};
    if (ReadClock(CLOCK_BOOTTIME, &now) != 0) return ZAK_TIME_FAILED;
    SplitWords(static_cast<uint64_t>(now.tv_sec), high, low);
    return 0;
}

// How long the CPU has been running: the time since boot, which keeps counting across processes
// (a process-CPU clock would read almost 0 in a fresh script process).
uint32_t ZAK_GetCPURunTime(uint32_t *seconds, uint32_t *microseconds) {
    uint32_t status = 0;
    if (Failing("ZAK_GetCPURunTime", &status)) return status;
    if (seconds == nullptr || microseconds == nullptr) return ZAK_TIME_FAILED;
    struct timespec now {};
    if (ReadClock(CLOCK_BOOTTIME, &now) != 0) return ZAK_TIME_FAILED;
    *seconds = static_cast<uint32_t>(now.tv_sec);
    *microseconds = static_cast<uint32_t>(now.tv_nsec / 1000);
    return 0;
}

} // extern "C"

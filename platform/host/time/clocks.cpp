// The device clocks: wall time (GMT and local), system seconds, uptime and CPU run time, all read
// through ZAK_OsClockGetTime so that the host clock offset moves them together.
#include <cstring>
#include <ctime>
#include <optional>

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

// The reading of `clock` for a service with two outputs; nullopt, with *status set, when the
// call is made to fail, an output is null or the clock cannot be read.
std::optional<struct timespec> ReadFor(const char *service, clockid_t clock, const void *first,
                                       const void *second, uint32_t *status) {
    if (Failing(service, status)) return std::nullopt;
    struct timespec now {};
    if (first == nullptr || second == nullptr || ReadClock(clock, &now) != 0) {
        *status = ZAK_TIME_FAILED;
        return std::nullopt;
    }
    return now;
}

uint32_t SecondsAndMicroseconds(const char *service, clockid_t clock, uint32_t *seconds,
                                uint32_t *microseconds) {
    uint32_t status = 0;
    std::optional<struct timespec> now = ReadFor(service, clock, seconds, microseconds, &status);
    if (!now) return status;
    *seconds = static_cast<uint32_t>(now->tv_sec);
    *microseconds = static_cast<uint32_t>(now->tv_nsec / 1000);
    return 0;
}

// The time since boot in units of 1 / unitsPerSecond seconds, as two 32-bit words.
uint32_t UptimeWords(const char *service, uint64_t unitsPerSecond, uint32_t *high, uint32_t *low) {
    uint32_t status = 0;
    std::optional<struct timespec> now = ReadFor(service, CLOCK_BOOTTIME, high, low, &status);
    if (!now) return status;
    SplitWords(static_cast<uint64_t>(now->tv_sec) * unitsPerSecond +
                   static_cast<uint64_t>(now->tv_nsec) / (1000000000 / unitsPerSecond),
               high, low);
    return 0;
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
    return SecondsAndMicroseconds("ZAK_GetSystemTime", CLOCK_REALTIME, seconds, microseconds);
}

uint32_t ZAK_GetUptimeMillSec(uint32_t *high, uint32_t *low) {
    return UptimeWords("ZAK_GetUptimeMillSec", 1000, high, low);
}

uint32_t ZAK_GetUptimeSec(uint32_t *high, uint32_t *low) {
    return UptimeWords("ZAK_GetUptimeSec", 1, high, low);
}

// How long the CPU has been running: the time since boot, which keeps counting across processes
// (a process-CPU clock would read almost 0 in a fresh script process).
uint32_t ZAK_GetCPURunTime(uint32_t *seconds, uint32_t *microseconds) {
    return SecondsAndMicroseconds("ZAK_GetCPURunTime", CLOCK_BOOTTIME, seconds, microseconds);
}

} // extern "C"

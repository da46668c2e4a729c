// Conversion between local time and GMT, under the device's zone and daylight-saving rule or under
// records the caller passes, and the device configuration with its texts.
#include <cstdio>
#include <cstring>

#include "calendar.h"
#include "host.h"
#include "zak_systime.h"
#include "zone_rules.h"

namespace {

using namespace std::chrono;
using zakhost::calendar::FromPoint;
using zakhost::calendar::ToPoint;

bool Failing(const char *service, uint32_t *status) {
    int64_t result = 0;
    if (!zakhost::injected(service, &result)) return false;
    *status = result == 0 ? ZAK_TIME_FAILED : static_cast<uint32_t>(result);
    return true;
}

bool ConfigUsable(const ZAK_TIME_ZONE *zone, const ZAK_DST_RULE *rule) {
    return zone != nullptr && rule != nullptr && zakhost::zones::ZoneValid(*zone) &&
           zakhost::zones::RuleValid(*rule);
}

uint32_t LocalToGmt(const SYS_TIME *local, uint32_t isDst, const ZAK_TIME_ZONE *zone,
                    const ZAK_DST_RULE *rule, SYS_TIME *gmt) {
    if (local == nullptr || gmt == nullptr || !ConfigUsable(zone, rule)) return ZAK_TIME_FAILED;
    auto wall = ToPoint(*local);
    if (!wall) return ZAK_TIME_FAILED;
    auto reading = zakhost::zones::LocalToGmt(*zone, *rule, *wall, isDst != 0);
    auto record = FromPoint(reading.gmt);
    if (!record) return ZAK_TIME_FAILED;
    *gmt = *record;
    return 0;
}

uint32_t GmtToLocal(const SYS_TIME *gmt, const ZAK_TIME_ZONE *zone, const ZAK_DST_RULE *rule, SYS_TIME *local,
                    uint32_t *isDst) {
    if (gmt == nullptr || local == nullptr || isDst == nullptr || !ConfigUsable(zone, rule))
        return ZAK_TIME_FAILED;
    auto point = ToPoint(*gmt);
    if (!point) return ZAK_TIME_FAILED;
    bool daylight = zakhost::zones::InDaylightSaving(*zone, *rule, *point);
    auto wall = *point + zakhost::zones::StandardOffset(*zone);
    if (daylight) wall += zakhost::zones::DaylightOffset(*rule);
    auto record = FromPoint(wall);
    if (!record) return ZAK_TIME_FAILED;
    *local = *record;
    *isDst = daylight ? 1 : 0;
    return 0;
}

// "+08:00:00" / "-05:30:00".
void FormatOffset(seconds offset, bool withSeconds, char *text, size_t size) {
    char sign = offset < seconds{0} ? '-' : '+';
    long long total = offset.count() < 0 ? -offset.count() : offset.count();
    if (withSeconds)
        std::snprintf(text, size, "%c%02lld:%02lld:%02lld", sign, total / 3600, total / 60 % 60, total % 60);
    else
        std::snprintf(text, size, "%c%02lld:%02lld", sign, total / 3600, total / 60 % 60);
}

uint32_t CopyText(const std::string &text, char *out, uint32_t size) {
    if (out == nullptr || size == 0) return ZAK_TIME_FAILED;
    std::memset(out, 0, size);
    if (text.size() >= size) return ZAK_TIME_FAILED;
    std::memcpy(out, text.data(), text.size());
    return 0;
}

} // namespace

extern "C" {

uint32_t ZAK_SetTzDstCfg(const ZAK_TIME_ZONE *zone, const ZAK_DST_RULE *rule) {
    uint32_t status = 0;
    if (Failing("ZAK_SetTzDstCfg", &status)) return status;
    if (!ConfigUsable(zone, rule) || std::memchr(zone->szName, 0, sizeof zone->szName) == nullptr ||
        std::memchr(rule->szName, 0, sizeof rule->szName) == nullptr)
        return ZAK_TIME_FAILED;
    return zakhost::zones::SetDeviceConfig(*zone, *rule) ? 0 : ZAK_TIME_FAILED;
}

uint32_t ZAK_LocalTime2Gmt(const SYS_TIME *local, uint32_t isDst, SYS_TIME *gmt) {
    uint32_t status = 0;
    if (Failing("ZAK_LocalTime2Gmt", &status)) return status;
    ZAK_TIME_ZONE zone;
    ZAK_DST_RULE rule;
    zakhost::zones::DeviceConfig(&zone, &rule);
    return LocalToGmt(local, isDst, &zone, &rule, gmt);
}

uint32_t ZAK_Gmt2LocalTime(const SYS_TIME *gmt, SYS_TIME *local, uint32_t *isDst) {
    uint32_t status = 0;
    if (Failing("ZAK_Gmt2LocalTime", &status)) return status;
    ZAK_TIME_ZONE zone;
    ZAK_DST_RULE rule;
    zakhost::zones::DeviceConfig(&zone, &rule);
    return GmtToLocal(gmt, &zone, &rule, local, isDst);
}

uint32_t ZAK_LocalTime2GmtByCfg(const SYS_TIME *local, uint32_t isDst, const ZAK_TIME_ZONE *zone,
                                const ZAK_DST_RULE *rule, SYS_TIME *gmt) {
    uint32_t status = 0;
    if (Failing("ZAK_LocalTime2GmtByCfg", &status)) return status;
    return LocalToGmt(local, isDst, zone, rule, gmt);
}

uint32_t ZAK_Gmt2LocalTimeByCfg(const SYS_TIME *gmt, const ZAK_TIME_ZONE *zone, const ZAK_DST_RULE *rule,
                                SYS_TIME *local, uint32_t *isDst) {
    uint32_t status = 0;
    if (Failing("ZAK_Gmt2LocalTimeByCfg", &status)) return status;
    return GmtToLocal(gmt, zone, rule, local, isDst);
}

// "<zone name> <offset>", e.g. "Beijing +08:00:00".
uint32_t ZAK_dataType_getTimeZone(char *text, uint32_t size) {
    uint32_t status = 0;
    if (Failing("ZAK_dataType_getTimeZone", &status)) return status;
    ZAK_TIME_ZONE zone;
    ZAK_DST_RULE rule;
    zakhost::zones::DeviceConfig(&zone, &rule);
    char offset[32];
    FormatOffset(zakhost::zones::StandardOffset(zone), true, offset, sizeof offset);
    zone.szName[sizeof zone.szName - 1] = '\0';
    return CopyText(std::string(zone.szName) + " " + offset, text, size);
}

// "std <zone offset> dst <daylight offset> now <offset in force>", e.g.
// "std +01:00:00 dst +01:00 now +02:00:00"; the daylight offset is +00:00 when it is disabled.
uint32_t ZAK_dataType_getAllTimeOffset(char *text, uint32_t size) {
    uint32_t status = 0;
    if (Failing("ZAK_dataType_getAllTimeOffset", &status)) return status;
    ZAK_TIME_ZONE zone;
    ZAK_DST_RULE rule;
    zakhost::zones::DeviceConfig(&zone, &rule);
    auto now = zakhost::calendar::Now();
    if (!now) return ZAK_TIME_FAILED;
    seconds standard = zakhost::zones::StandardOffset(zone);
    seconds daylight = rule.uiDstEnabled != 0 ? zakhost::zones::DaylightOffset(rule) : seconds{0};
    seconds inForce = standard + (zakhost::zones::InDaylightSaving(zone, rule, *now) ? daylight : seconds{0});
    char a[32], b[32], c[32];
    FormatOffset(standard, true, a, sizeof a);
    FormatOffset(daylight, false, b, sizeof b);
    FormatOffset(inForce, true, c, sizeof c);
    return CopyText(std::string("std ") + a + " dst " + b + " now " + c, text, size);
}

} // extern "C"

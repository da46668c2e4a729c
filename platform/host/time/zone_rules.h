// Time-zone offsets and daylight-saving rules over the packed zone and rule records.
#pragma once

#include <chrono>
#include <optional>

#include "calendar.h"
#include "zak_systime.h"

namespace zakhost::zones {

using std::chrono::seconds;

// False for a zone offset or an enabled rule the conversions cannot follow.
bool ZoneValid(const ZAK_TIME_ZONE &zone);
bool RuleValid(const ZAK_DST_RULE &rule);

// Local standard time minus GMT.
seconds StandardOffset(const ZAK_TIME_ZONE &zone);
// What daylight saving adds to local standard time.
seconds DaylightOffset(const ZAK_DST_RULE &rule);

// Whether daylight saving is in force at a GMT moment.
bool InDaylightSaving(const ZAK_TIME_ZONE &zone, const ZAK_DST_RULE &rule, calendar::Milliseconds gmt);

struct LocalReading {
    calendar::Milliseconds gmt;
    bool daylight;
};
// The GMT moment of a local wall time; `preferDaylight` decides the repeated hour. A wall time in
// the skipped hour is read as standard time.
LocalReading LocalToGmt(const ZAK_TIME_ZONE &zone, const ZAK_DST_RULE &rule, calendar::Milliseconds local,
                        bool preferDaylight);

// The device configuration (persisted state; UTC without daylight saving when never set).
void DeviceConfig(ZAK_TIME_ZONE *zone, ZAK_DST_RULE *rule);
bool SetDeviceConfig(const ZAK_TIME_ZONE &zone, const ZAK_DST_RULE &rule);

} // namespace zakhost::zones

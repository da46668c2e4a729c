// Daylight-saving rules. A rule gives a start and an end wall time each year (or once): the start
// is read in local standard time, the end in local daylight time, as clocks show them just before
// they change. When the end falls on or before the start in the same year, the period runs over
// the new year and ends in the following year (southern-hemisphere rules).
#include "zone_rules.h"

#include <cstring>
#include <string>

#include "host.h"

namespace zakhost::zones {

using namespace std::chrono;
using calendar::Milliseconds;

namespace {

enum : uint32_t { kTypeOnce = 0, kTypeYearly = 1 };
enum : uint32_t { kByWeekday = 0, kByRepeatRange = 1, kByMonthDay = 2 };

struct Period {
    Milliseconds start; // local standard time
    Milliseconds end;   // local daylight time
};

bool TimeOfDayValid(uint32_t hour, uint32_t minute) {
    return hour < 24 && minute < 60;
}

bool MonthDayValid(uint32_t month, uint32_t day) {
    return month >= 1 && month <= 12 && day >= 1 && day <= 31;
}

bool WeekRuleValid(uint32_t month, uint32_t weekNum, uint32_t weekDay) {
    return month >= 1 && month <= 12 && weekNum >= 1 && weekNum <= 5 && weekDay <= 6;
}

// A day past the end of the month (29 February in a common year) means the month's last day.
sys_days MonthDay(int y, uint32_t m, uint32_t d) {
    year_month_day_last last{year{y} / month{m} / std::chrono::last};
    unsigned lastDay = static_cast<unsigned>(last.day());
    return sys_days{year{y} / month{m} / day{d > lastDay ? lastDay : d}};
}

sys_days WeekdayOfMonth(int y, uint32_t m, uint32_t weekNum, uint32_t weekDay) {
    weekday wd{weekDay};
    if (weekNum >= 5) return sys_days{year_month_weekday_last{year{y}, month{m}, weekday_last{wd}}};
    return sys_days{year_month_weekday{year{y}, month{m}, weekday_indexed{wd, weekNum}}};
}

Milliseconds At(sys_days day, uint32_t hour, uint32_t minute) {
    return Milliseconds{day} + hours{hour} + minutes{minute};
}

sys_days YearlyStart(const ZAK_DST_RULE &r, int y) {
    switch (r.uiRepeatMode) {
    case kByWeekday:
        return WeekdayOfMonth(y, r.uiStartMonth, r.uiStartWeekNum, r.uiStartWeekDay);
    case kByRepeatRange:
        return MonthDay(y, r.stRepeatStart.ucMonth, r.stRepeatStart.ucDay);
    default:
        return MonthDay(y, r.uiStartMonth, r.uiStartDay);
    }
}

sys_days YearlyEnd(const ZAK_DST_RULE &r, int y) {
    switch (r.uiRepeatMode) {
    case kByWeekday:
        return WeekdayOfMonth(y, r.uiEndMonth, r.uiEndWeekNum, r.uiEndWeekDay);
    case kByRepeatRange:
        return MonthDay(y, r.stRepeatEnd.ucMonth, r.stRepeatEnd.ucDay);
    default:
        return MonthDay(y, r.uiEndMonth, r.uiEndDay);
    }
}

// The period that starts in year y, if the rule has one.
std::optional<Period> PeriodStartingIn(const ZAK_DST_RULE &r, int y) {
    if (r.uiType == kTypeOnce) {
        // One period whatever the year asked about.
        sys_days startDay{year{r.usStartYear} / month{r.ucStartMonth} / day{r.ucStartDay}};
        sys_days endDay{year{r.usEndDateYear} / month{r.ucEndDateMonth} / day{r.ucEndDateDay}};
        return Period{At(startDay, r.ucStartHour, r.ucStartMinute), At(endDay, r.ucEndHour, r.ucEndMinute)};
    }
    if ((r.usFirstYear != 0 && y < r.usFirstYear) || (r.usLastYear != 0 && y > r.usLastYear))
        return std::nullopt;
    Milliseconds start = At(YearlyStart(r, y), r.ucStartHour, r.ucStartMinute);
    Milliseconds end = At(YearlyEnd(r, y), r.ucEndHour, r.ucEndMinute);
    if (end <= start) end = At(YearlyEnd(r, y + 1), r.ucEndHour, r.ucEndMinute);
    return Period{start, end};
}

std::string Hex(const void *data, size_t size) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    const auto *bytes = static_cast<const unsigned char *>(data);
    for (size_t i = 0; i < size; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

bool Unhex(const std::optional<std::string> &text, void *data, size_t size) {
    if (!text || text->size() != 2 * size) return false;
    auto *bytes = static_cast<unsigned char *>(data);
    for (size_t i = 0; i < size; ++i) {
        unsigned value = 0;
        for (size_t k = 0; k < 2; ++k) {
            char c = (*text)[2 * i + k];
            unsigned digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : 16;
            if (digit > 15) return false;
            value = value * 16 + digit;
        }
        bytes[i] = static_cast<unsigned char>(value);
    }
    return true;
}

} // namespace

bool ZoneValid(const ZAK_TIME_ZONE &zone) {
    return zone.uiOption <= 1 && zone.ucHour < 24 && zone.ucMinute < 60 && zone.ucSecond < 60;
}

bool RuleValid(const ZAK_DST_RULE &r) {
    if (r.uiDstEnabled == 0) return true;
    if (!TimeOfDayValid(r.ucStartHour, r.ucStartMinute) || !TimeOfDayValid(r.ucEndHour, r.ucEndMinute) ||
        !TimeOfDayValid(r.ucOffsetHour, r.ucOffsetMinute))
        return false;
    if (r.uiType == kTypeOnce) {
        year_month_day start{year{r.usStartYear}, month{r.ucStartMonth}, day{r.ucStartDay}};
        year_month_day end{year{r.usEndDateYear}, month{r.ucEndDateMonth}, day{r.ucEndDateDay}};
        if (!start.ok() || !end.ok() || r.usStartYear < calendar::kFirstYear) return false;
        return At(sys_days{start}, r.ucStartHour, r.ucStartMinute) <
               At(sys_days{end}, r.ucEndHour, r.ucEndMinute);
    }
    if (r.uiType != kTypeYearly) return false;
    if (r.usFirstYear != 0 && r.usLastYear != 0 && r.usLastYear < r.usFirstYear) return false;
    switch (r.uiRepeatMode) {
    case kByWeekday:
        return WeekRuleValid(r.uiStartMonth, r.uiStartWeekNum, r.uiStartWeekDay) &&
               WeekRuleValid(r.uiEndMonth, r.uiEndWeekNum, r.uiEndWeekDay);
    case kByRepeatRange:
        return MonthDayValid(r.stRepeatStart.ucMonth, r.stRepeatStart.ucDay) &&
               MonthDayValid(r.stRepeatEnd.ucMonth, r.stRepeatEnd.ucDay);
    case kByMonthDay:
        return MonthDayValid(r.uiStartMonth, r.uiStartDay) && MonthDayValid(r.uiEndMonth, r.uiEndDay);
    default:
        return false;
    }
}

seconds StandardOffset(const ZAK_TIME_ZONE &zone) {
    seconds offset = hours{zone.ucHour} + minutes{zone.ucMinute} + seconds{zone.ucSecond};
    return zone.uiOption == 1 ? -offset : offset;
}

seconds DaylightOffset(const ZAK_DST_RULE &rule) {
    return hours{rule.ucOffsetHour} + minutes{rule.ucOffsetMinute};
}

bool InDaylightSaving(const ZAK_TIME_ZONE &zone, const ZAK_DST_RULE &rule, Milliseconds gmt) {
    if (rule.uiDstEnabled == 0 || !RuleValid(rule)) return false;
    seconds standard = StandardOffset(zone);
    Milliseconds localStandard = gmt + standard;
    int y = static_cast<int>(year_month_day{floor<days>(localStandard)}.year());
    for (int startYear : {y - 1, y}) {
        auto period = PeriodStartingIn(rule, startYear);
        if (!period) continue;
        Milliseconds startGmt = period->start - standard;
        Milliseconds endGmt = period->end - standard - DaylightOffset(rule);
        if (startGmt <= gmt && gmt < endGmt) return true;
    }
    return false;
}

LocalReading LocalToGmt(const ZAK_TIME_ZONE &zone, const ZAK_DST_RULE &rule, Milliseconds local,
                        bool preferDaylight) {
    Milliseconds asStandard = local - StandardOffset(zone);
    Milliseconds asDaylight = asStandard - DaylightOffset(rule);
    bool standardFits = !InDaylightSaving(zone, rule, asStandard);
    bool daylightFits = InDaylightSaving(zone, rule, asDaylight);
    if (daylightFits && (preferDaylight || !standardFits)) return {asDaylight, true};
    return {asStandard, false};
}

void DeviceConfig(ZAK_TIME_ZONE *zone, ZAK_DST_RULE *rule) {
    std::memset(zone, 0, sizeof *zone);
    std::memset(rule, 0, sizeof *rule);
    if (!Unhex(state_value("time", "zone"), zone, sizeof *zone)) {
        std::memset(zone, 0, sizeof *zone);
        std::memcpy(zone->szName, "UTC", 4);
    }
    if (!Unhex(state_value("time", "dst_rule"), rule, sizeof *rule)) std::memset(rule, 0, sizeof *rule);
}

bool SetDeviceConfig(const ZAK_TIME_ZONE &zone, const ZAK_DST_RULE &rule) {
    return set_state_value("time", "zone", Hex(&zone, sizeof zone)) &&
           set_state_value("time", "dst_rule", Hex(&rule, sizeof rule));
}

} // namespace zakhost::zones

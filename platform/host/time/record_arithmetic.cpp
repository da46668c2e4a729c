// Arithmetic on system time records: comparison, differences, adding milliseconds, seconds since
// 1970 to a record, and the n-th weekday of a month. Records must be real times (calendar.h).
#include <chrono>
#include <cstdint>

#include "calendar.h"
#include "host.h"
#include "zak_systime.h"

namespace {

using namespace std::chrono;
using zakhost::calendar::FromPoint;
using zakhost::calendar::ToPoint;

bool Failing(const char *service, uint32_t *status, uint32_t failure) {
    int64_t result = 0;
    if (!zakhost::injected(service, &result)) return false;
    *status = result == 0 ? failure : static_cast<uint32_t>(result);
    return true;
}

} // namespace

extern "C" {

uint32_t NUK_SystimeCompare(const SYS_TIME *first, const SYS_TIME *second) {
    uint32_t status = 0;
    if (Failing("NUK_SystimeCompare", &status, NUK_SYSTIME_CMP_FAILED)) return status;
    if (first == nullptr || second == nullptr) return NUK_SYSTIME_CMP_FAILED;
    auto a = ToPoint(*first);
    auto b = ToPoint(*second);
    if (!a || !b) return NUK_SYSTIME_CMP_FAILED;
    if (*a < *b) return NUK_SYSTIME_CMP_EARLIER;
    return *a == *b ? NUK_SYSTIME_CMP_EQUAL : NUK_SYSTIME_CMP_LATER;
}

uint32_t NUK_SystimeRelSecCal(const SYS_TIME *first, const SYS_TIME *second, uint32_t *result) {
    uint32_t status = 0;
    if (Failing("NUK_SystimeRelSecCal", &status, ZAK_TIME_FAILED)) return status;
    if (first == nullptr || second == nullptr || result == nullptr) return ZAK_TIME_FAILED;
    auto a = ToPoint(*first);
    auto b = ToPoint(*second);
    if (!a || !b || *a < *b) return ZAK_TIME_FAILED;
    // Whole seconds between the two clock readings; the milliseconds do not count.
    auto difference = floor<seconds>(*a) - floor<seconds>(*b);
    if (difference.count() > 0xFFFFFFFFLL) return ZAK_TIME_FAILED;
    *result = static_cast<uint32_t>(difference.count());
    return 0;
}

uint32_t NUK_SystimeRelDayCal(const SYS_TIME *first, const SYS_TIME *second) {
    uint32_t status = 0;
    if (Failing("NUK_SystimeRelDayCal", &status, 0xFFFFFFFFu)) return status;
    if (first == nullptr || second == nullptr) return 0xFFFFFFFFu;
    auto a = ToPoint(*first);
    auto b = ToPoint(*second);
    if (!a || !b) return 0xFFFFFFFFu;
    auto difference = floor<days>(*a) - floor<days>(*b);
    return difference.count() < 0 ? 0xFFFFFFFFu : static_cast<uint32_t>(difference.count());
}

uint32_t NUK_SystimeAdd(SYS_TIME *time, uint32_t milliSeconds) {
    uint32_t status = 0;
    if (Failing("NUK_SystimeAdd", &status, ZAK_TIME_FAILED)) return status;
    if (time == nullptr) return ZAK_TIME_FAILED;
    auto point = ToPoint(*time);
    if (!point) return ZAK_TIME_FAILED;
    auto later = FromPoint(*point + milliseconds{milliSeconds});
    if (!later) return ZAK_TIME_FAILED;
    *time = *later;
    return 0;
}

uint32_t NUK_SystimeSec2Time(uint32_t count, SYS_TIME *time) {
    uint32_t status = 0;
    if (Failing("NUK_SystimeSec2Time", &status, ZAK_TIME_FAILED)) return status;
    if (time == nullptr) return ZAK_TIME_FAILED;
    auto record = FromPoint(zakhost::calendar::Milliseconds{seconds{count}});
    if (!record) return ZAK_TIME_FAILED;
    *time = *record;
    return 0;
}

uint32_t NUK_TzWeekDayToTime(uint16_t y, uint8_t m, uint8_t weekNum, uint8_t weekDay, SYS_TIME *time) {
    uint32_t status = 0;
    if (Failing("NUK_TzWeekDayToTime", &status, ZAK_TIME_FAILED)) return status;
    if (time == nullptr || m < 1 || m > 12 || weekNum < 1 || weekNum > 5 || weekDay > 6 ||
        y < zakhost::calendar::kFirstYear || y > zakhost::calendar::kLastYear)
        return ZAK_TIME_FAILED;
    weekday wd{weekDay};
    sys_days day = weekNum == 5
                       ? sys_days{year_month_weekday_last{year{y}, month{m}, weekday_last{wd}}}
                       : sys_days{year_month_weekday{year{y}, month{m}, weekday_indexed{wd, weekNum}}};
    auto record = FromPoint(zakhost::calendar::Milliseconds{day});
    if (!record) return ZAK_TIME_FAILED;
    *time = *record;
    return 0;
}

} // extern "C"

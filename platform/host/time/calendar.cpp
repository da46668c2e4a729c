#include "calendar.h"

#include <ctime>

#include "os_env.h"

namespace zakhost::calendar {

using namespace std::chrono;

std::optional<Milliseconds> ToPoint(const SYS_TIME &time) {
    year_month_day date{year{time.year}, month{time.month}, day{time.date}};
    if (!date.ok() || time.year < kFirstYear || time.year > kLastYear) return std::nullopt;
    if (time.hour > 23 || time.minute > 59 || time.second > 59 || time.millSec > 999) return std::nullopt;
    return Milliseconds{sys_days{date}} + hours{time.hour} + minutes{time.minute} + seconds{time.second} +
           milliseconds{time.millSec};
}

std::optional<SYS_TIME> FromPoint(Milliseconds point) {
    sys_days days = floor<std::chrono::days>(point);
    year_month_day date{days};
    int y = static_cast<int>(date.year());
    if (y < kFirstYear || y > kLastYear) return std::nullopt;
    hh_mm_ss clock{point - days};
    SYS_TIME time{};
    time.year = static_cast<uint16_t>(y);
    time.month = static_cast<uint8_t>(static_cast<unsigned>(date.month()));
    time.date = static_cast<uint8_t>(static_cast<unsigned>(date.day()));
    time.hour = static_cast<uint8_t>(clock.hours().count());
    time.minute = static_cast<uint8_t>(clock.minutes().count());
    time.second = static_cast<uint8_t>(clock.seconds().count());
    time.week = static_cast<uint8_t>(weekday{days}.c_encoding());
    time.millSec = static_cast<uint32_t>(clock.subseconds().count());
    return time;
}

std::optional<Milliseconds> Now() {
    struct timespec now {};
    if (ZAK_OsClockGetTime(CLOCK_REALTIME, &now) != 0) return std::nullopt;
    return Milliseconds{seconds{now.tv_sec} + milliseconds{now.tv_nsec / 1000000}};
}

} // namespace zakhost::calendar

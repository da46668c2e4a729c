// Calendar conversions between the system time record and std::chrono time points, shared by the
// host's clocks, record arithmetic and time-zone conversion.
#pragma once

#include <chrono>
#include <optional>

#include "zak_time.h"

namespace zakhost::calendar {

using Milliseconds = std::chrono::sys_time<std::chrono::milliseconds>;

inline constexpr int kFirstYear = 1970;
inline constexpr int kLastYear = 9999;

// The record's moment, or nullopt for a record that is not a real time (month 13, 31 April,
// hour 24, millSec 1000, a year outside 1970..9999). The week field is not checked.
std::optional<Milliseconds> ToPoint(const SYS_TIME &time);
// The record of a moment (week filled in, 0 = Sunday), or nullopt outside 1970..9999.
std::optional<SYS_TIME> FromPoint(Milliseconds point);

// Moments as read on the clock in force: the realtime clock through the host clock offset.
std::optional<Milliseconds> Now();

} // namespace zakhost::calendar

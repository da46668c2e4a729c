-- Clock getters and system time arithmetic.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

local tm = T.tm
T.case("local and GMT getters fill the record keys and agree under the default UTC zone", function()
    local loc, gmt = {}, {}
    T.eq(T.results(m.qav_spt_SysLocalTimeGet(loc)), { n = 2, 0, 0 })
    T.eq(m.qav_GetGMTSystime(gmt), 0)
    T.eq({ loc.year, loc.month, loc.date, loc.hour, loc.week }, { gmt.year, gmt.month, gmt.date, gmt.hour, gmt.week })
    -- week is the weekday the calendar gives for that date (0 = Sunday)
    local w = T.capture(string.format("date -u -d '%04d-%02d-%02d' +%%w", gmt.year, gmt.month, gmt.date))
    T.eq(gmt.week, tonumber(w))
end)

T.case("wrong counts: the local getter's result count, the GMT getter's 1; a platform 22 under the wrong name", function()
    -- 0xFFFFFFFF returned as the result count is clamped by the engine to the stack height
    T.eq(T.results(m.qav_spt_SysLocalTimeGet({}, {})).n, 2)
    T.eq(m.qav_GetGMTSystime(), 1)
    T.has_line(zh.log_lines("base"), "QAV_GetGMTSystime proc fail SYSDT_SPTI_GetTop. uiRet = 1")
    zh.inject("ZAK_GMT_SystimeGet", 22)
    local t = {}
    T.eq({ m.qav_GetGMTSystime(t), t.year }, { 22, nil })
    T.has_line(zh.log_lines("base"), "QAV_GetGMTSystime proc fail NUK_SystimeRelSecCal. uiRet = 22")
    -- any other status still writes the (zeroed) record
    zh.inject("ZAK_GMT_SystimeGet", 7)
    T.eq({ m.qav_GetGMTSystime(t), t.year }, { 7, 0 })
end)

T.case("clock_advance moves the wall clock, system seconds and uptime together", function()
    local s1 = m.qav_GetSystimeToSecond()
    local _, h1, l1 = m.qav_GetUptimeSec()
    local _, mh, ml = m.qav_GetUptimeMillSec()
    zh.clock_advance(3600)
    local s2 = m.qav_GetSystimeToSecond()
    local st, h2, l2 = m.qav_GetUptimeSec()
    T.ok(st == 0 and s2 - s1 >= 3600 and s2 - s1 <= 3602, "system seconds moved " .. (s2 - s1))
    local up1, up2 = h1 * 2 ^ 32 + l1, h2 * 2 ^ 32 + l2
    T.ok(up2 - up1 >= 3600 and up2 - up1 <= 3602)
    T.ok(math.abs((mh * 2 ^ 32 + ml) / 1000 - up1) < 2, "milliseconds and seconds agree")
end)

T.case("uptime getters with an argument push 0xFFFFFFFF, 0, 0; system seconds log the count", function()
    T.eq(T.results(m.qav_GetUptimeSec(1)), { n = 3, 0xFFFFFFFF, 0, 0 })
    T.eq(T.results(m.qav_GetUptimeMillSec("x")), { n = 3, 0xFFFFFFFF, 0, 0 })
    zh.log_clear()
    T.eq(T.results(m.qav_GetSystimeToSecond(1)), { n = 2, 0, 0 })
    T.has_line(zh.log_lines("base"), "QAV_GetEcmCid proc fail SYSDT_SPTI_GetTop. uiRet = 1")
    zh.inject("ZAK_GetSystemTime", 5)
    T.eq(T.results(m.qav_GetSystimeToSecond()), { n = 2, 0, 0 })
    T.has_line(zh.log_lines("base"), "QAV_GetEcmCid proc fail QAV_GetSystimeDelaySecondCal. uiRet = 5")
end)

T.case("seconds to calendar matches GNU date and never reports failure", function()
    for _, secs in ipairs({ 0, 951782400, 1709164800, 4294967295 }) do
        local t = {}
        T.eq(m.qav_SystimeSecToTime(secs, t), 0)
        local g = T.capture("date -u -d @" .. secs .. " '+%Y %m %d %H %M %S %w'")
        local y, mo, d, h, mi, s, w = g:match("(%d+) (%d+) (%d+) (%d+) (%d+) (%d+) (%d)")
        T.eq(t, tm(tonumber(y), tonumber(mo), tonumber(d), tonumber(h), tonumber(mi), tonumber(s), 0, tonumber(w)),
            "seconds " .. secs)
    end
    T.eq(m.qav_SystimeSecToTime(5), 0)
    T.has_line(zh.log_lines("base"), "QAV_GetEcmCid proc fail SYSDT_SPTI_GetTop. uiRet = 1")
    local t = { year = 7 }
    T.eq(m.qav_SystimeSecToTime(5, t, 9), 0)
    T.eq(t, tm(0, 0, 0, 0, 0, 0, 0, 0), "wrong count writes the zero record")
end)

T.case("second difference: first not earlier, across a leap day; refused otherwise", function()
    local a = tm(2024, 3, 1, 0, 0, 0)
    local b = tm(2024, 2, 28, 23, 59, 30)
    T.eq({ m.qav_systimerelseccal(a, b), (m.qav_systimerelseccal(a, a)) }, { 86400 + 30, 0 })
    T.eq(m.qav_systimerelseccal(b, a), 0xFFFFFFFF)
    T.has_line(zh.log_lines("base"), "QAV_SystimeRelSecCal proc fail NUK_SystimeRelSecCal. uiRet = -1")
    -- an impossible date fails the comparison and is refused the same way
    T.eq(m.qav_systimerelseccal(tm(2023, 2, 29, 0, 0, 0), b), 0xFFFFFFFF)
    -- more than 32 bits of seconds is the platform's 22, also refused
    T.eq(m.qav_systimerelseccal(tm(2200, 1, 1, 0, 0, 0), tm(1970, 1, 1, 0, 0, 0)), 0xFFFFFFFF)
end)

T.case("table readers: a missing week fails with 0x801707 even with every other key", function()
    local noweek = tm(2024, 1, 1, 0, 0, 0)
    noweek.week = nil
    T.eq(m.qav_SystimeCompare(noweek, noweek), 0x801707)
    T.has_line(zh.log_lines("base"), "QAV_GetSystimeTable(pstSC, &stFirstSystime, 1). uiRet = 8394503")
    T.eq(m.qav_systimereldaycal(tm(2024, 1, 1, 0, 0, 0), { year = "x" }), 0x801707)
end)

T.case("day difference counts calendar days; earlier first is 0xFFFFFFFF", function()
    T.eq(m.qav_systimereldaycal(tm(2025, 1, 1, 0, 0, 1), tm(2024, 1, 1, 23, 59, 59)), 366)
    T.eq(m.qav_systimereldaycal(tm(2024, 1, 1, 23, 0, 0), tm(2024, 1, 1, 0, 0, 0)), 0)
    T.eq(m.qav_systimereldaycal(tm(2024, 1, 1, 0, 0, 0), tm(2024, 1, 2, 0, 0, 0)), 0xFFFFFFFF)
    T.has_line(zh.log_lines("base"), "QAV_GetEcmCid proc fail NUK_SystimeRelDayCal. uiRet = -1")
end)

T.case("compare codes 1, 2, 3 and 0 for an invalid record; milliseconds count", function()
    local a = tm(2024, 6, 1, 12, 0, 0, 1)
    local b = tm(2024, 6, 1, 12, 0, 0, 2)
    T.eq({ m.qav_SystimeCompare(a, b), m.qav_SystimeCompare(a, a), m.qav_SystimeCompare(b, a),
        (m.qav_SystimeCompare(tm(2024, 13, 1, 0, 0, 0), a)) }, { 1, 2, 3, 0 })
end)

T.case("adding milliseconds rolls over the year and rewrites the weekday", function()
    local t = tm(2023, 12, 31, 23, 59, 59, 999, 9)
    T.eq(m.qav_SystimeAddMilliSeconds(t, 1), 0)
    T.eq(t, tm(2024, 1, 1, 0, 0, 0, 0, 1))
    T.eq(m.qav_SystimeAddMilliSeconds(t, 86400000 * 49 + 1500), 0)
    T.eq(t, tm(2024, 2, 19, 0, 0, 1, 500, 1))
    T.eq(m.qav_SystimeAddMilliSeconds(t, 2 ^ 32 + 500), 0, "a 32-bit count: 2^32 + 500 adds 500")
    T.eq(t, tm(2024, 2, 19, 0, 0, 2, 0, 1))
    local bad = tm(2024, 2, 30, 0, 0, 0)
    T.eq(m.qav_SystimeAddMilliSeconds(bad, 1), 22)
    T.eq(bad.date, 30, "untouched on failure")
    T.has_line(zh.log_lines("base"), "QAV_GetEcmCid proc fail NUK_SystimeAdd. uiRet = 22")
    T.eq({ m.qav_SystimeAddMilliSeconds({}, 1), (m.qav_SystimeAddMilliSeconds(t)) }, { 0x801707, 1 })
end)

T.case("rpm clocks: years from 2000, month 1..12, day and uSecond keys", function()
    local g, l = {}, {}
    T.eq({ m.rpm_get_gmtime(g), m.rpm_get_localtime(l) }, { 0, 0 })
    local now = os.date("!*t", m.qav_GetSystimeToSecond())
    T.eq({ g.year, g.month, g.day, g.date, g.millSec }, { now.year - 2000, now.month, now.day })
    T.ok(g.uSecond >= 0 and g.uSecond < 1000000)
    T.eq(l.year, os.date("*t").year - 2000)
    T.eq(m.rpm_get_gmtime(), 1)
    T.eq(m.rpm_get_localtime(1, 2), 1)
    T.has_lines(zh.log_lines("base"), { "GetGmTime proc fail SYSDT_SPTI_GetTop. uiRet = 1",
        "QAV_RPM_GetLocalTime proc fail SYSDT_SPTI_GetTop. uiRet = 1" })
end)

T.run()

-- Time-zone and daylight-saving conversion, checked against GNU date under the same rules as TZ strings.
local T = require "testlib"
local zh = require "zakhost"
local m = libqavluacommon

local tm = T.tm

local function zone(name, behind, h, mi, s)
    return { timeZoneName = name, option = behind and 1 or 0, lrId = 0,
             timeZoneOffset = { hour = h, minute = mi or 0, second = s or 0 } }
end

-- A rule table with every required key; `fields` overrides.
local function rule(fields)
    local r = { dstName = "dst", type = 1, RepeatMode = 0, isDstEnabled = true, lrId = 0,
                startWeekNum = 0, startWeekDay = 0, startMonth = 0, endWeekNum = 0, endWeekDay = 0, endMonth = 0,
                startYear = 0, endYear = 0, startDay = 0, endDay = 0,
                startTime = { hour = 2, minute = 0 }, endTime = { hour = 3, minute = 0 },
                dstOffset = { hour = 1, minute = 0 } }
    for k, v in pairs(fields or {}) do r[k] = v end
    return r
end

-- GNU date's wall time of a moment under a POSIX TZ rule: the local time of a GMT moment, with
-- its UTC offset in minutes, or (to_gmt) the GMT moment of an unambiguous local wall time.
local function gnu_date(tz, to_gmt, y, mo, d, h, mi)
    local when = string.format("%04d-%02d-%02d %02d:%02d:00", y, mo, d, h, mi)
    local out = T.capture(to_gmt and string.format("date -u -d 'TZ=\"%s\" %s' '+%%Y %%m %%d %%H %%M %%S %%w %%z'", tz, when)
        or string.format("TZ='%s' date -d '%s UTC' '+%%Y %%m %%d %%H %%M %%S %%w %%z'", tz, when))
    local f = { out:match("(%d+) (%d+) (%d+) (%d+) (%d+) (%d+) (%d) ([+-])(%d%d)(%d%d)") }
    for i, v in ipairs(f) do f[i] = tonumber(v) or v end
    local t = tm(f[1], f[2], f[3], f[4], f[5], f[6])
    t.week = f[7]
    return t, (f[9] * 60 + f[10]) * (f[8] == "-" and -1 or 1)
end

local cet = zone("CET", false, 1)

-- Each rule is given both ways: our tables and the equivalent POSIX TZ string.
local rules = {
    {
        name = "central Europe, last Sundays of March and October",
        tz = "CET-1CEST,M3.5.0/2,M10.5.0/3", std = 60,
        zone = cet,
        rule = rule { startMonth = 3, startWeekNum = 5, endMonth = 10, endWeekNum = 5 },
        moments = { { 2024, 3, 31, 0, 59 }, { 2024, 3, 31, 1, 0 }, { 2024, 10, 27, 0, 59 }, { 2024, 10, 27, 1, 0 }, { 2025, 12, 31, 23, 30 } },
    },
    {
        name = "US eastern, second Sunday of March to first Sunday of November, behind GMT",
        tz = "EST5EDT,M3.2.0/2,M11.1.0/2", std = -300,
        zone = zone("EST", true, 5),
        rule = rule { startMonth = 3, startWeekNum = 2, endMonth = 11, endWeekNum = 1, endTime = { hour = 2, minute = 0 } },
        moments = { { 2024, 3, 10, 6, 59 }, { 2024, 3, 10, 7, 0 }, { 2024, 11, 3, 5, 59 }, { 2024, 11, 3, 6, 0 },
                    { 2024, 1, 1, 3, 0 } },
    },
    {
        name = "Sydney, southern hemisphere: October to April across the new year",
        tz = "AEST-10AEDT,M10.1.0/2,M4.1.0/3", std = 600,
        zone = zone("AEST", false, 10),
        rule = rule { startMonth = 10, startWeekNum = 1, endMonth = 4, endWeekNum = 1 },
        moments = { { 2024, 4, 6, 15, 59 }, { 2024, 4, 6, 16, 0 }, { 2024, 10, 5, 15, 59 }, { 2024, 10, 5, 16, 0 }, { 2024, 12, 31, 14, 0 } },
    },
    {
        name = "half-hour zone by month and day (repeat mode 2), no leap-day drift",
        tz = "IRST-3:30IRDT,J81/0,J265/0", std = 210,
        zone = zone("IRST", false, 3, 30),
        rule = rule { RepeatMode = 2, startMonth = 3, startDay = 22, endMonth = 9, endDay = 22,
                      startTime = { hour = 0, minute = 0 }, endTime = { hour = 0, minute = 0 } },
        moments = { { 2024, 3, 21, 20, 29 }, { 2024, 3, 21, 20, 30 }, { 2024, 9, 21, 19, 29 }, { 2024, 9, 21, 19, 30 },
                    { 2023, 3, 21, 20, 30 } },
    },
    {
        name = "repeated month-day range across the new year, behind GMT (repeat mode 1)",
        tz = "ART3ARST,J335/2,J46/3", std = -180,
        zone = zone("ART", true, 3),
        rule = rule { RepeatMode = 1, repeatStartDate = { month = 12, day = 1 }, repeatEndDate = { month = 2, day = 15 } },
        moments = { { 2024, 12, 1, 4, 59 }, { 2024, 12, 1, 5, 0 }, { 2025, 2, 15, 4, 59 }, { 2025, 2, 15, 5, 0 } },
    },
    {
        name = "no daylight saving when disabled, whatever the rule says",
        tz = "IST-5:30", std = 330,
        zone = zone("IST", false, 5, 30),
        rule = rule { isDstEnabled = false, startMonth = 3, startWeekNum = 5, endMonth = 10, endWeekNum = 5 },
        moments = { { 2024, 7, 1, 12, 0 }, { 2024, 1, 1, 0, 0 } },
    },
}

T.case("GMT to local under given zone and rule matches GNU date, DST flag included", function()
    for _, c in ipairs(rules) do
        for _, mo in ipairs(c.moments) do
            local out = {}
            local r = T.results(m.qav_spt_SysGmt2LocalTimeByTzDst(tm(table.unpack(mo)), c.zone, c.rule, out))
            local want, offset = gnu_date(c.tz, false, table.unpack(mo))
            local label = c.name .. " at " .. table.concat(mo, "-")
            T.eq(r, { n = 2, 0, offset ~= c.std }, label)
            T.eq(out, want, label)
        end
    end
end)

T.case("local to GMT under given zone and rule matches GNU date away from the switch hours", function()
    local walls = { { 2024, 1, 15, 12, 0 }, { 2024, 7, 15, 12, 0 }, { 2024, 3, 31, 3, 30 }, { 2024, 10, 27, 3, 0 },
                    { 2024, 12, 31, 23, 59 } }
    for _, c in ipairs(rules) do
        for _, w in ipairs(walls) do
            for _, flag in ipairs({ true, false }) do
                local out = {}
                T.eq(m.qav_spt_SysLocalTime2GmtByTzDst(tm(table.unpack(w)), flag, c.zone, c.rule, out), 0)
                local want = gnu_date(c.tz, true, table.unpack(w))
                local label = c.name .. " at " .. table.concat(w, "-")
                T.eq(out, want, label)
            end
        end
    end
end)

T.case("the repeated hour follows the DST flag; the skipped hour reads as standard time", function()
    local eu = rules[1]
    local out = {}
    -- 02:30 on 27 October 2024 happens twice: 00:30 GMT in summer time, 01:30 GMT after the change
    T.eq(m.qav_spt_SysLocalTime2GmtByTzDst(tm(2024, 10, 27, 2, 30), true, eu.zone, eu.rule, out), 0)
    T.eq({ out.hour, out.minute, out.date }, { 0, 30, 27 })
    T.eq(m.qav_spt_SysLocalTime2GmtByTzDst(tm(2024, 10, 27, 2, 30), false, eu.zone, eu.rule, out), 0)
    T.eq({ out.hour, out.minute, out.date }, { 1, 30, 27 })
    -- 02:30 on 31 March 2024 does not exist: read as standard time, 01:30 GMT (03:30 summer time)
    for _, flag in ipairs({ true, false }) do
        T.eq(m.qav_spt_SysLocalTime2GmtByTzDst(tm(2024, 3, 31, 2, 30), flag, eu.zone, eu.rule, out), 0)
        T.eq({ out.hour, out.minute }, { 1, 30 })
    end
    -- and back again: 01:30 GMT shows 03:30 in summer time
    local back = {}
    T.eq(T.results(m.qav_spt_SysGmt2LocalTimeByTzDst(out, eu.zone, eu.rule, back)), { n = 2, 0, true })
    T.eq({ back.hour, back.minute }, { 3, 30 })
end)

T.case("year bounds limit a yearly rule; a one-period date rule applies once", function()
    local bounded = rule { startMonth = 3, startWeekNum = 5, endMonth = 10, endWeekNum = 5, startYear = 2025, endYear = 2026 }
    local flags = {}
    for _, y in ipairs({ 2024, 2025, 2026, 2027 }) do
        local _, dst = m.qav_spt_SysGmt2LocalTimeByTzDst(tm(y, 7, 1, 12, 0), cet, bounded, {})
        flags[#flags + 1] = dst
    end
    T.eq(flags, { false, true, true, false })

    local once = rule { type = 0, startDate = { year = 2024, month = 6, day = 1 }, endDate = { year = 2024, month = 9, day = 1 },
                        dstOffset = { hour = 0, minute = 30 } }
    for _, p in ipairs { { 2024, 6, 1, 0, 59, false }, { 2024, 6, 1, 1, 0, true }, { 2024, 8, 31, 1, 29, true },
                         { 2024, 9, 1, 1, 30, false }, { 2025, 7, 1, 0, 0, false } } do
        local out = {}
        local st, dst = m.qav_spt_SysGmt2LocalTimeByTzDst(tm(p[1], p[2], p[3], p[4], p[5]), cet, once, out)
        T.eq({ st, dst }, { 0, p[6] }, table.concat(p, " ", 1, 5))
        local minutes = (out.hour * 60 + out.minute - (p[4] * 60 + p[5])) % 1440
        T.eq(minutes, p[6] and 90 or 60, "offset at " .. table.concat(p, " ", 1, 5))
    end
end)

T.case("rules the platform cannot follow are refused with 22", function()
    local bad = {
        rule { startMonth = 13, startWeekNum = 1, endMonth = 10, endWeekNum = 5 },
        rule { startMonth = 3, startWeekNum = 6, endMonth = 10, endWeekNum = 5 },
        rule { startMonth = 3, startWeekNum = 1, startWeekDay = 7, endMonth = 10, endWeekNum = 5 },
        rule { type = 0, startDate = { year = 2024, month = 9, day = 1 }, endDate = { year = 2024, month = 6, day = 1 } },
        rule { type = 9 },
        rule { RepeatMode = 3 },
        rule { startMonth = 3, startWeekNum = 1, endMonth = 10, endWeekNum = 5, startTime = { hour = 2, minute = 60 } },
        rule { startMonth = 3, startWeekNum = 1, endMonth = 10, endWeekNum = 5, dstOffset = { hour = 24, minute = 0 } },
    }
    for i, r in ipairs(bad) do
        T.eq(T.results(m.qav_spt_SysGmt2LocalTimeByTzDst(tm(2024, 1, 1, 0, 0), cet, r, {})), { n = 2, 22, false }, "rule " .. i)
        T.eq(m.qav_spt_SetTzDstCfg(cet, r), 22, "rule " .. i)
    end
    for _, z in ipairs { { 24, 0, 0, 22 }, { 0, 60, 0, 22 }, { 0, 0, 60, 22 }, { 23, 59, 59, 0 } } do
        T.eq(m.qav_spt_SetTzDstCfg(zone("X", false, z[1], z[2], z[3]), rule { isDstEnabled = false }), z[4], z[1] .. ":" .. z[2])
    end
end)

T.case("record readers: missing sub-tables stay zero, isDstEnabled must be a boolean, 32-character names", function()
    -- no startTime: the start is at 00:00 (GMT 23:00 the day before)
    local r = rule { startMonth = 3, startWeekNum = 5, endMonth = 10, endWeekNum = 5 }
    r.startTime = nil
    local _, dst = m.qav_spt_SysGmt2LocalTimeByTzDst(tm(2024, 3, 30, 23, 0), cet, r, {})
    T.eq(dst, true)
    -- the number 1 for isDstEnabled: the reader stops, the rest of the record stays zero (no DST)
    local numeric = rule { startMonth = 3, startWeekNum = 5, endMonth = 10, endWeekNum = 5, isDstEnabled = 1 }
    _, dst = m.qav_spt_SysGmt2LocalTimeByTzDst(tm(2024, 7, 1, 0, 0), cet, numeric, {})
    T.eq(dst, false)
    T.eq(m.qav_spt_SetTzDstCfg(zone(string.rep("z", 32), false, 1), rule { isDstEnabled = false }), 0)
    local st, text = m.qav_GetTimeZoneOffset()
    T.eq({ st, text }, { 0, string.rep("z", 32) .. " +01:00:00" })
    -- a 33-character name fails the copy; the partly read record has no name and no offset
    T.eq(m.qav_spt_SetTzDstCfg(zone(string.rep("z", 33), false, 1), rule { isDstEnabled = false }), 0)
    st, text = m.qav_GetTimeZoneOffset()
    T.eq({ st, text }, { 0, " +00:00:00" })
end)

T.case("device configuration: set, convert, texts, appointment offsets, and a second process sees it", function()
    local sydney = rules[3]
    T.eq(m.qav_spt_SetTzDstCfg(sydney.zone, sydney.rule), 0)
    local out = {}
    T.eq(T.results(m.qav_spt_SysGmt2LocalTime(tm(2025, 1, 1, 0, 0), out)), { n = 2, 0, true })
    T.eq({ out.hour, out.date, out.month }, { 11, 1, 1 })
    T.eq(m.qav_spt_SysLocalTime2Gmt(tm(2025, 7, 1, 10, 0), 0, out), 0)
    T.eq({ out.hour, out.date, out.month }, { 0, 1, 7 })
    T.eq(T.results(m.qav_GetAppointmentTimeOffset(tm(2025, 1, 1, 0, 0))), { n = 2, 0, "+11:00" })
    T.eq(T.results(m.qav_GetAppointmentTimeOffset(tm(2025, 7, 1, 0, 0))), { n = 2, 0, "+10:00" })
    T.eq({ m.qav_GetTimeZoneOffset() }, { 0, "AEST +10:00:00" })
    local st, offsets = m.qav_GetTimeOffset()
    T.eq(st, 0)
    T.ok(offsets == "std +10:00:00 dst +01:00 now +10:00:00" or offsets == "std +10:00:00 dst +01:00 now +11:00:00",
        offsets)

    -- behind GMT prints a minus sign; with no offset the text is empty, not +00:00
    T.eq(m.qav_spt_SetTzDstCfg(zone("NST", true, 3, 30), rule { isDstEnabled = false }), 0)
    T.eq({ m.qav_GetAppointmentTimeOffset(tm(2025, 1, 1, 12, 0)) }, { 0, "-03:30" })

    T.eq(T.second_process('print(libqavluacommon.qav_GetTimeZoneOffset())'), "0\tNST -03:30:00")

    T.eq(m.qav_spt_SetTzDstCfg(zone("UTC", false, 0), rule { isDstEnabled = false }), 0)
    T.eq(T.results(m.qav_GetAppointmentTimeOffset(tm(2025, 1, 1, 12, 0))), { n = 2, 0, "" })
end)

T.case("argument errors of the conversions and text getters", function()
    T.eq(m.qav_spt_SysLocalTime2Gmt({ year = 2024 }, 0, {}), 0x801707)
    T.eq(T.results(m.qav_spt_SysGmt2LocalTime("x", {})), { n = 2, 0xFFFFFFFF, false })
    -- negative or fractional values are not unsigned integers here
    for _, hour in ipairs { -1, 1.5 } do
        T.eq(T.results(m.qav_spt_SysGmt2LocalTime(tm(2024, 1, 1, hour, 0), {})), { n = 2, 0xFFFFFFFF, false })
    end
    T.eq(m.qav_spt_SysLocalTime2GmtByTzDst({}, true, rules[1].zone, rules[1].rule, {}), 0x801707)
    T.eq(m.qav_spt_SysLocalTime2Gmt(tm(2024, 2, 30, 0, 0), 0, {}), 22)
    zh.log_clear()
    T.eq(T.results(m.qav_GetTimeZoneOffset(1)), { n = 2, 1, "" })
    T.has_line(zh.log_lines("base"), "QAV_GetEcmCid proc fail SYSDT_SPTI_GetTop. uiRet = 1")
    zh.inject("ZAK_Gmt2LocalTime", 9)
    T.eq(T.results(m.qav_GetAppointmentTimeOffset(tm(2024, 1, 1, 0, 0))), { n = 2, 9, "" })
end)

T.case("n-th weekday of a month, 5 = last", function()
    -- year, month, n-th, weekday, the day of the month
    for _, c in ipairs { { 2024, 3, 5, 0, 31 }, { 2024, 3, 2, 0, 10 }, { 2024, 2, 5, 4, 29 }, { 2024, 9, 4, 6, 28 }, { 2024, 9, 1, 0, 1 } } do
        local out = {}
        T.eq(m.qav_TzWeekDayToTime(c[1], c[2], c[3], c[4], out), 0)
        T.eq({ out.year, out.month, out.date, out.hour, out.week }, { c[1], c[2], c[5], 0, c[4] }, table.concat(c, " "))
    end
    T.eq({ m.qav_TzWeekDayToTime(2024, 13, 1, 0, {}), (m.qav_TzWeekDayToTime(2024, 3, 1)) }, { 22, 3 })
end)

T.run()

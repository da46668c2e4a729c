// Daylight-saving conversion against the C library's TZ rules, record limits, unregistered exports.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "unit_helpers.h"
#include "zak_systime.h"

extern "C" {
int QAV_SPT_DoSysTimeGet(lua_State *state);
uint32_t QAV_GetDstFromStack(lua_State *state, int32_t tableIndex, ZAK_DST_RULE *rule);
uint32_t QAV_GetCompCidByCompType(uint32_t type, uint32_t *componentId);
}

namespace {

struct RuleCase {
    const char *tz;
    ZAK_TIME_ZONE zone;
    ZAK_DST_RULE rule;
};

ZAK_TIME_ZONE Zone(bool behind, uint8_t hour, uint8_t minute) {
    ZAK_TIME_ZONE zone{};
    std::strcpy(zone.szName, "zone");
    zone.uiOption = behind ? 1 : 0;
    zone.ucHour = hour;
    zone.ucMinute = minute;
    return zone;
}

ZAK_DST_RULE ByWeekday(uint32_t startMonth, uint32_t startWeek, uint8_t startHour, uint32_t endMonth,
                       uint32_t endWeek, uint8_t endHour) {
    ZAK_DST_RULE rule{};
    rule.uiType = 1;
    rule.uiDstEnabled = 1;
    rule.uiStartMonth = startMonth;
    rule.uiStartWeekNum = startWeek;
    rule.ucStartHour = startHour;
    rule.uiEndMonth = endMonth;
    rule.uiEndWeekNum = endWeek;
    rule.ucEndHour = endHour;
    rule.ucOffsetHour = 1;
    return rule;
}

class ZoneSweep : public ::testing::TestWithParam<int> {
  protected:
    void TearDown() override {
        unsetenv("TZ");
        tzset();
    }
};

RuleCase Case(int index) {
    // Month-day rule with a half-hour zone and a 30-minute daylight offset: J100 = 10 April,
    // J232 = 20 August (days counted without 29 February).
    ZAK_DST_RULE byDay = ByWeekday(4, 0, 1, 8, 0, 1);
    byDay.uiRepeatMode = 2;
    byDay.uiStartDay = 10;
    byDay.uiEndDay = 20;
    byDay.ucOffsetHour = 0;
    byDay.ucOffsetMinute = 30;
    const RuleCase cases[] = {
        {"CET-1CEST,M3.5.0/2,M10.5.0/3", Zone(false, 1, 0), ByWeekday(3, 5, 2, 10, 5, 3)},
        {"EST5EDT,M3.2.0/2,M11.1.0/2", Zone(true, 5, 0), ByWeekday(3, 2, 2, 11, 1, 2)},
        {"AEST-10AEDT,M10.1.0/2,M4.1.0/3", Zone(false, 10, 0), ByWeekday(10, 1, 2, 4, 1, 3)},
        {"XST-5:30XDT-6,J100/1,J232/1", Zone(false, 5, 30), byDay},
    };
    return cases[index];
}

TEST_P(ZoneSweep, GmtToLocalMatchesTheCLibraryEveryHalfHourFor2023To2026) {
    RuleCase c = Case(GetParam());
    setenv("TZ", c.tz, 1);
    tzset();
    const time_t first = 1672531200; // 2023-01-01 00:00:00 GMT
    const time_t last = 1798761600;  // 2027-01-01 00:00:00 GMT
    int mismatches = 0;
    for (time_t t = first; t < last && mismatches < 5; t += 1800) {
        struct tm g {};
        gmtime_r(&t, &g);
        SYS_TIME gmt{static_cast<uint16_t>(g.tm_year + 1900),
                     static_cast<uint8_t>(g.tm_mon + 1),
                     static_cast<uint8_t>(g.tm_mday),
                     static_cast<uint8_t>(g.tm_hour),
                     static_cast<uint8_t>(g.tm_min),
                     static_cast<uint8_t>(g.tm_sec),
                     0,
                     0};
        SYS_TIME local{};
        uint32_t isDst = 9;
        ASSERT_EQ(ZAK_Gmt2LocalTimeByCfg(&gmt, &c.zone, &c.rule, &local, &isDst), 0u);
        struct tm l {};
        localtime_r(&t, &l);
        bool same = local.year == l.tm_year + 1900 && local.month == l.tm_mon + 1 &&
                    local.date == l.tm_mday && local.hour == l.tm_hour && local.minute == l.tm_min &&
                    local.week == l.tm_wday && isDst == static_cast<uint32_t>(l.tm_isdst > 0);
        if (!same) {
            ++mismatches;
            ADD_FAILURE() << c.tz << " at " << t << ": got " << local.year << "-" << +local.month << "-"
                          << +local.date << " " << +local.hour << ":" << +local.minute << " dst " << isDst;
        }

        // Back again: the local reading with its own DST flag gives the same moment.
        SYS_TIME again{};
        ASSERT_EQ(ZAK_LocalTime2GmtByCfg(&local, isDst, &c.zone, &c.rule, &again), 0u);
        // year to second: the first seven bytes of the record
        EXPECT_EQ(std::memcmp(&again, &gmt, 7), 0) << c.tz << " round trip at " << t;
    }
}

INSTANTIATE_TEST_SUITE_P(Rules, ZoneSweep, ::testing::Range(0, 4));

TEST(ZoneRecords, PackedLayoutMatchesThePlatformOffsets) {
    const size_t offsets[] = {offsetof(ZAK_TIME_ZONE, uiOption),    offsetof(ZAK_TIME_ZONE, ucHour),
                              offsetof(ZAK_TIME_ZONE, uiLrId),      offsetof(ZAK_DST_RULE, usStartYear),
                              offsetof(ZAK_DST_RULE, ucEndHour),    offsetof(ZAK_DST_RULE, usEndDateYear),
                              offsetof(ZAK_DST_RULE, ucOffsetHour), offsetof(ZAK_DST_RULE, uiStartWeekNum),
                              offsetof(ZAK_DST_RULE, usFirstYear),  offsetof(ZAK_DST_RULE, uiDstEnabled),
                              offsetof(ZAK_DST_RULE, uiRepeatMode), offsetof(ZAK_DST_RULE, stRepeatStart),
                              offsetof(ZAK_DST_RULE, stRepeatEnd)};
    const size_t expected[] = {33, 37, 40, 39, 43, 45, 49, 51, 75, 79, 95, 99, 103};
    for (size_t i = 0; i < std::size(offsets); ++i)
        EXPECT_EQ(offsets[i], expected[i]) << i;
}

TEST(ZoneRecords, TimesOfDayEndAt23Hours59Minutes) {
    SYS_TIME gmt{2024, 6, 1, 12, 0, 0, 0, 0}, local{};
    uint32_t isDst = 0;
    ZAK_TIME_ZONE zone = Zone(false, 23, 59);
    ZAK_DST_RULE rule = ByWeekday(3, 5, 2, 10, 5, 3);
    rule.uiStartWeekDay = 6; // from the last Saturday of March
    ASSERT_EQ(ZAK_Gmt2LocalTimeByCfg(&gmt, &zone, &rule, &local, &isDst), 0u);
    EXPECT_EQ(local.date * 100 + local.hour, 212); // 23:59 ahead, one more hour of daylight time
    rule.ucStartMinute = 60;
    EXPECT_NE(ZAK_Gmt2LocalTimeByCfg(&gmt, &zone, &rule, &local, &isDst), 0u);
}

TEST(RecordArithmetic, RefusesWhatIsNotARealTime) {
    SYS_TIME leap{2024, 2, 29, 23, 59, 59, 0, 999};
    SYS_TIME common{2023, 2, 29, 0, 0, 0, 0, 0};
    EXPECT_EQ(NUK_SystimeCompare(&leap, nullptr), NUK_SYSTIME_CMP_FAILED);
    EXPECT_EQ(NUK_SystimeRelDayCal(&leap, &common), 0xFFFFFFFFu);
    SYS_TIME end{9999, 12, 31, 23, 59, 59, 0, 999};
    EXPECT_EQ(NUK_SystimeAdd(&end, 1), ZAK_TIME_FAILED);
    EXPECT_EQ(end.year, 9999) << "a failed add leaves the record";
    EXPECT_EQ(NUK_SystimeAdd(&leap, 1), 0u);
    EXPECT_EQ(leap.month, 3);
    EXPECT_EQ(leap.week, 5); // 1 March 2024 was a Friday
}

class Internal : public ::testing::Test {
  protected:
    void SetUp() override {
        L = luaL_newstate();
        luaL_openlibs(L);
        zakhost::log_clear();
    }
    void TearDown() override { lua_close(L); }
    void Push(const char *expression) {
        std::string chunk = std::string("return ") + expression;
        ASSERT_EQ(luaL_dostring(L, chunk.c_str()), 0) << lua_tostring(L, -1);
    }
    lua_State *L = nullptr;
};

TEST_F(Internal, CheckedLocalTimeGetterReturnsCodesAsCounts) {
    EXPECT_EQ(QAV_SPT_DoSysTimeGet(L), -1); // 0xFFFFFFFF, nothing pushed
    EXPECT_EQ(lua_gettop(L), 0);
    Push("1");
    EXPECT_EQ(QAV_SPT_DoSysTimeGet(L), -1) << "not a table";
    lua_settop(L, 0);
    lua_newtable(L);
    zakhost::inject("ZAK_Local_SystimeGet", 5, 0, 1);
    EXPECT_EQ(QAV_SPT_DoSysTimeGet(L), 5);
    EXPECT_EQ(lua_gettop(L), 1);
    ASSERT_EQ(QAV_SPT_DoSysTimeGet(L), 2); // (the record's keys: the clock test's getters)
    EXPECT_EQ(lua_tointeger(L, -2), 0);
}

TEST_F(Internal, RuleReaderLeavesTheStackAsItFoundItWhateverTheRule) {
    // every sub-table malformed: each reader stops at its first field and leaves values behind
    Push("{dstName = 'r', type = 1, startTime = {}, startDate = {year = 'x'}, endTime = {hour = 1},"
         " endDate = {}, dstOffset = {minute = 2}, startWeekNum = 1, startWeekDay = 2, startMonth = 3,"
         " endWeekNum = 4, endWeekDay = 5, endMonth = 6, startYear = 7, endYear = 8, isDstEnabled = true,"
         " startDay = 9, endDay = 10, lrId = 11, RepeatMode = 12, repeatStartDate = {month = 1},"
         " repeatEndDate = 5}");
    ZAK_DST_RULE rule{};
    EXPECT_EQ(QAV_GetDstFromStack(L, 1, &rule), 0u);
    EXPECT_EQ(lua_gettop(L), 1);
    EXPECT_EQ(rule.ucStartHour, 0);
    EXPECT_EQ(rule.ucOffsetHour, 0); // (the plain keys of a rule: the zone tests' rules)
    EXPECT_EQ(rule.stRepeatStart.ucMonth, 0);
    EXPECT_EQ(QAV_GetDstFromStack(L, 1, nullptr), 0xFFFFFFFFu);
}

TEST_F(Internal, ComponentLookupAssertsOnANullOut) {
    EXPECT_EQ(QAV_GetCompCidByCompType(204, nullptr), 0xFFFFFFFFu);
    auto lines = zakhost::log_messages("syslog");
    ASSERT_FALSE(lines.empty());
    EXPECT_NE(lines.back().find("ZAK_Assert"), std::string::npos);
    uint32_t cid = 0;
    EXPECT_NE(QAV_GetCompCidByCompType(999, &cid), 0u);
}

} // namespace

// Functions the library exports without registering them: the checked local-time getter, the
// rule reader on a rule full of malformed sub-tables, and the component lookup's null guard.
#include <gtest/gtest.h>

#include <string>

extern "C" {
#include <lauxlib.h>
#include <lualib.h>
}

#include "host.h"
#include "zak_systime.h"

extern "C" {
int QAV_SPT_DoSysTimeGet(lua_State *state);
uint32_t QAV_GetDstFromStack(lua_State *state, int32_t tableIndex, ZAK_DST_RULE *rule);
uint32_t QAV_GetCompCidByCompType(uint32_t type, uint32_t *componentId);
}

namespace {

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
    ASSERT_EQ(QAV_SPT_DoSysTimeGet(L), 2);
    EXPECT_EQ(lua_tointeger(L, -2), 0);
    lua_getfield(L, 1, "year");
    EXPECT_GE(lua_tointeger(L, -1), 2024);
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
    EXPECT_EQ(rule.ucOffsetHour, 0);
    EXPECT_EQ(rule.uiEndMonth, 6u);
    EXPECT_EQ(rule.usLastYear, 8);
    EXPECT_EQ(rule.uiRepeatMode, 12u);
    EXPECT_EQ(rule.stRepeatStart.ucMonth, 0);
    EXPECT_EQ(QAV_GetDstFromStack(L, 1, nullptr), 0xFFFFFFFFu);
}

TEST_F(Internal, ComponentLookupAssertsOnANullOut) {
    EXPECT_EQ(QAV_GetCompCidByCompType(204, nullptr), 0xFFFFFFFFu);
    auto lines = zakhost::log_messages("syslog");
    ASSERT_FALSE(lines.empty());
    EXPECT_NE(lines.back().find("ZAK_Assert"), std::string::npos);
    uint32_t cid = 0;
    EXPECT_EQ(QAV_GetCompCidByCompType(204, &cid), 0u);
    EXPECT_EQ(cid, 0x10CC0001u);
    EXPECT_NE(QAV_GetCompCidByCompType(999, &cid), 0u);
}

} // namespace

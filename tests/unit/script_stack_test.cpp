// Stack operations behave alike on every Lua version: truncate, wrap modulo 2^32, never raise.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

extern "C" {
#include <lauxlib.h>
#include <lualib.h>
}

#include "script_engine.h"

namespace {

class ScriptStack : public ::testing::Test {
  protected:
    void SetUp() override {
        L = luaL_newstate();
        luaL_openlibs(L);
    }
    void TearDown() override { lua_close(L); }
    // Evaluates a Lua expression and leaves its value on the stack at index 1.
    void Push(const char *expression) {
        lua_settop(L, 0);
        std::string chunk = std::string("return ") + expression;
        ASSERT_EQ(luaL_dostring(L, chunk.c_str()), 0) << lua_tostring(L, -1);
        ASSERT_EQ(lua_gettop(L), 1);
    }
    lua_State *L = nullptr;
};

TEST_F(ScriptStack, NumbersConvertTruncateAndWrap) {
    struct Case {
        const char *value;
        uint32_t asUnsigned;
        int32_t asSigned;
    } cases[] = {
        {"7", 7, 7},
        {"4294967296", 0, 0},
        {"2147483648", 0x80000000u, INT32_MIN},
        {"3.9", 3, 3},
        {"-3.9", 0xFFFFFFFDu, -3},
        {"' 0x10 '", 16, 16},
        {"0/0", 0, 0},
        {"1/0", 0, 0},
        {"'abc'", 0, 0},
        {"2^40 + 5", 5, 5},
        {"-(2^40) - 1", 0xFFFFFFFFu, -1},
    };
    for (const auto &c : cases) {
        Push(c.value);
        EXPECT_EQ(SYSDT_SPTI_ToUInt(L, 1), c.asUnsigned) << c.value;
        EXPECT_EQ(SYSDT_SPTI_ToInt(L, 1), c.asSigned) << c.value;
    }
}

TEST_F(ScriptStack, UnsignedIntegerTest) {
    for (const char *yes : {"0", "1", "4294967295", "'42'", "3.0"}) {
        Push(yes);
        EXPECT_TRUE(SYSDT_SPTI_IsUinteger(L, 1)) << yes;
    }
    for (const char *no : {"-1", "4294967296", "1.5", "0/0", "1/0", "'x'", "{}", "nil", "false"}) {
        Push(no);
        EXPECT_FALSE(SYSDT_SPTI_IsUinteger(L, 1)) << no;
    }
}

// (The type tests are the argument check's rows in binding_test.cpp.)
TEST_F(ScriptStack, ConversionsFollowTheLuaApi) {
    Push("5");
    EXPECT_STREQ(SYSDT_SPTI_ToString(L, 1), "5");
    Push("{}");
    EXPECT_EQ(SYSDT_SPTI_ToString(L, 1), nullptr);
    Push("false");
    EXPECT_EQ(SYSDT_SPTI_ToBoolean(L, 1), 0);
    uint32_t length = 99; // (a text with NULs keeps its length: the file handle tests' writes)
    Push("{}");
    EXPECT_EQ(SYSDT_SPTI_ToLString(L, 1, &length), nullptr);
    EXPECT_EQ(length, 0u);
}

TEST_F(ScriptStack, PushStringStopsAtBoundOrNul) {
    lua_settop(L, 0);
    SYSDT_SPTI_PushString(L, "abcdef", 3);
    EXPECT_STREQ(lua_tostring(L, -1), "abc");
    char buffer[8] = {'x', 'y', '\0', 'z', 'z', 'z', 'z', 'z'};
    SYSDT_SPTI_PushString(L, buffer, sizeof buffer);
    EXPECT_EQ(lua_rawlen(L, -1), 2u);
    SYSDT_SPTI_PushLString(L, buffer, sizeof buffer);
    EXPECT_EQ(lua_rawlen(L, -1), 8u);
    SYSDT_SPTI_PushString(L, nullptr, 4);
    EXPECT_TRUE(lua_isnil(L, -1));
}

// (Tables built and read: every script-level test of a table result and the call-anything checks.)
TEST_F(ScriptStack, TablesAreReadWithoutMetamethods) {
    // A metatable that raises on every access is never consulted.
    ASSERT_EQ(luaL_dostring(L, "return setmetatable({}, {__index = function() error('index') end, "
                               "__newindex = function() error('newindex') end})"),
              0);
    int32_t guarded = SYSDT_SPTI_GetTop(L);
    SYSDT_SPTI_GetField(L, guarded, "missing");
    EXPECT_TRUE(lua_isnil(L, -1));
    SYSDT_SPTI_Pop(L, 1);
    SYSDT_SPTI_PushUInt(L, 1);
    SYSDT_SPTI_SetField(L, guarded, "k");
    EXPECT_EQ(SYSDT_SPTI_GetTop(L), guarded);
}

} // namespace

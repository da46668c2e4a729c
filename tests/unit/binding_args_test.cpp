// The argument check every entry function uses: the count and one type letter per argument.
#include <gtest/gtest.h>

#include <string>

extern "C" {
#include <lauxlib.h>
#include <lualib.h>
}

#include "binding/script_frame.h"

TEST(BindingArgs, TypeStringChecksCountAndEveryType) {
    struct Case {
        const char *arguments; // a Lua expression list
        const char *types;
        bool match;
    } cases[] = {
        {"", "", true},
        {"1", "", false},
        {"1, 'a', 'b'", "nss", true},
        {"1, 'a'", "nss", false},
        {"1, 'a', 'b', 2", "nss", false},
        {"1, {}, 'b'", "nss", false},
        {"'7'", "n", true},
        {"7", "s", true},
        {"true", "s", false},
        {"{}, true", "tb", true},
        {"1, false", "tb", false},
        {"3", "u", true},
        {"-3", "u", false},
        {"2.5", "u", false},
        {"nil, {}, 'x'", "...", true},
        {"nil, {}", "...", false},
        {"1", "x", false},
    };
    for (const Case &c : cases) {
        lua_State *L = luaL_newstate();
        std::string chunk = std::string("return ") + c.arguments;
        ASSERT_EQ(luaL_loadstring(L, chunk.c_str()), 0);
        ASSERT_EQ(lua_pcall(L, 0, LUA_MULTRET, 0), 0);
        EXPECT_EQ(qav::ArgsMatch(L, c.types), c.match) << c.arguments << " as \"" << c.types << '"';
        lua_close(L);
    }
}

TEST(BindingArgs, TextArgumentCopiesOnlyWhatFits) {
    lua_State *L = luaL_newstate();
    lua_pushstring(L, "abcd");
    lua_pushboolean(L, 1);
    char fits[5] = {};
    char tooSmall[4] = {};
    EXPECT_TRUE(qav::CopyTextArg(L, 1, fits, "test", __LINE__));
    EXPECT_STREQ(fits, "abcd");
    EXPECT_FALSE(qav::CopyTextArg(L, 1, tooSmall, "test", __LINE__));
    EXPECT_FALSE(qav::CopyTextArg(L, 2, fits, "test", __LINE__));
    EXPECT_EQ(qav::TextArg(L, 2), nullptr);
    lua_close(L);
}

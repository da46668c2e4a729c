// The registry's renamed entries and the argument check (the count, one type letter an argument).
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

extern "C" {
#include <lauxlib.h>
}

#include "binding/registry.h"
#include "binding/script_frame.h"

namespace {

const SCRIPT_REG_ENTRY *Find(const char *script) {
    for (size_t i = 0; i < qav::kRegistryEntries; ++i)
        if (std::strcmp(qav::kRegistry[i].name, script) == 0) return &qav::kRegistry[i];
    return nullptr;
}

// Script names whose entry function is named differently call that exported function.
TEST(Registry, MismatchedNamesCallTheExportedFunction) {
    struct Pair {
        const char *script;
        const char *function;
    } pairs[] = {
        {"qav_Crypt_Digest", "QAV_DESLUA_EncryptSystemPassword"},
        {"qav_GetVEType", "QAV_GetNEType"},
        {"issu", "l_issu_compare"},
        {"qav_IsUpgStatus", "QAV_IsUpgradeStatus"},
    };
    for (const Pair &p : pairs) {
        const SCRIPT_REG_ENTRY *entry = Find(p.script);
        ASSERT_NE(entry, nullptr) << p.script;
        void *function = dlsym(RTLD_DEFAULT, p.function);
        ASSERT_NE(function, nullptr) << p.function << " is not exported";
        EXPECT_EQ(reinterpret_cast<void *>(entry->func), function) << p.script;
    }
}

TEST(BindingArgs, TypeStringChecksCountAndEveryType) {
    struct Case {
        const char *arguments; // a Lua expression list
        const char *types;
        bool match;
    } cases[] = {
        {"", "", true},
        {"1, 'a', 'b'", "nss", true},
        {"1, 'a'", "nss", false},
        {"1, 'a', 'b', 2", "nss", false},
        {"1, {}, 'b'", "nss", false},
        {"'7'", "n", true},
        {"7", "s", true},
        {"{}, true", "tb", true},
        {"1, false", "tb", false},
        {"3", "u", true},
        {"-3", "u", false},
        {"nil, {}, 'x'", "...", true},
        {"nil, {}", "...", false},
        {"1", "x", false},
    };
    lua_State *L = luaL_newstate();
    for (const Case &c : cases) {
        lua_settop(L, 0);
        ASSERT_EQ(luaL_dostring(L, (std::string("return ") + c.arguments).c_str()), 0);
        EXPECT_EQ(qav::ArgsMatch(L, c.types), c.match) << c.arguments << " as \"" << c.types << '"';
    }
    lua_close(L);
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

} // namespace

// Patch entry functions called by other platform libraries without a script state.
#include <gtest/gtest.h>

#include <string>

#include "host.h"

extern "C" {
int l_get_hardtypeOfColdPatHardRst(lua_State *state);
int l_issu_log(lua_State *state);
}

namespace {

bool Logged(const char *log, const std::string &text) {
    for (const std::string &line : zakhost::log_messages(log))
        if (line.find(text) != std::string::npos) return true;
    return false;
}

TEST(PkgmgrEntry, CallsWithoutAScriptStateOnlyLog) {
    zakhost::log_clear();
    EXPECT_EQ(l_get_hardtypeOfColdPatHardRst(nullptr), 0);
    EXPECT_TRUE(Logged("upgrade", "Get hardtypes of cold pat using hard reset policy func enter"));
    EXPECT_TRUE(Logged("upgrade", "Get hardtypes of cold pat using hard reset policy func, pstSc is null"));
    EXPECT_EQ(l_issu_log(nullptr), 1);
    EXPECT_TRUE(Logged("upgrade", "print issu log func, pstSc is null"));
    EXPECT_TRUE(zakhost::log_messages("issu").empty());
}

} // namespace

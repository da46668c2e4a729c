// Patch entry functions called by other platform libraries without a script state.
#include <gtest/gtest.h>

#include "unit_helpers.h"

extern "C" {
int l_get_hardtypeOfColdPatHardRst(lua_State *state);
int l_issu_log(lua_State *state);
}

TEST(PkgmgrEntry, CallsWithoutAScriptStateOnlyLog) {
    zakhost::log_clear();
    EXPECT_EQ(l_get_hardtypeOfColdPatHardRst(nullptr), 0);
    EXPECT_EQ(l_issu_log(nullptr), 1);
    for (const char *text : {"Get hardtypes of cold pat using hard reset policy func enter",
                             "Get hardtypes of cold pat using hard reset policy func, pstSc is null",
                             "print issu log func, pstSc is null"})
        EXPECT_EQ(unit::Logged("upgrade", text), 1u) << text;
    EXPECT_TRUE(zakhost::log_messages("issu").empty());
}

// The exported hardware table filler and the process request record.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
}

#include "device/process_request.h"
#include "host.h"

extern "C" int QAV_GetHardinfo(lua_State *state);

namespace {

class HardInfo : public ::testing::Test {
  protected:
    void SetUp() override { state_ = luaL_newstate(); }
    void TearDown() override {
        lua_close(state_);
        zakhost::inject_clear();
        zakhost::profile_override("board", "mac", std::nullopt);
    }
    std::string Field(const char *key) {
        lua_getfield(state_, 1, key);
        size_t length = 0;
        const char *text = lua_tolstring(state_, -1, &length);
        std::string value = text != nullptr ? std::string(text, length) : "<nil>";
        lua_pop(state_, 1);
        return value;
    }
    lua_State *state_ = nullptr;
};

TEST_F(HardInfo, FillsTheTableArgumentInPlace) {
    zakhost::profile_override("board", "mac", std::string("0a:0b:c"));
    lua_newtable(state_);
    ASSERT_EQ(QAV_GetHardinfo(state_), 1);
    EXPECT_EQ(lua_tointeger(state_, -1), 0);
    EXPECT_EQ(Field("usShelfID"), "0");
    EXPECT_EQ(Field("usChassisID"), "1");
    EXPECT_EQ(Field("usBoardID"), "1");
    EXPECT_EQ(Field("usCpuID"), "1");
    EXPECT_EQ(Field("uiBoardHardType"), std::to_string(0x2001));
    EXPECT_EQ(Field("uiBoardHardExtType"), "0");
    EXPECT_EQ(Field("uiMacAddrLen"), "3");
    // all 16 bytes, though only three are meaningful
    EXPECT_EQ(Field("acMacAddr"), std::string("\x0a\x0b\x0c", 3) + std::string(13, '\0'));
    EXPECT_EQ(lua_gettop(state_), 2); // the table and the status, nothing else
}

TEST_F(HardInfo, WrongArgumentsPushInvalidAndSetNothing) {
    ASSERT_EQ(QAV_GetHardinfo(state_), 1);
    EXPECT_EQ(lua_tointeger(state_, -1), 0xFFFFFFFF);
    lua_settop(state_, 0);
    lua_newtable(state_);
    lua_newtable(state_);
    ASSERT_EQ(QAV_GetHardinfo(state_), 1);
    EXPECT_EQ(lua_tointeger(state_, -1), 0xFFFFFFFF);
    EXPECT_EQ(Field("usBoardID"), "<nil>");
    lua_settop(state_, 0);
    lua_pushstring(state_, "not a table");
    ASSERT_EQ(QAV_GetHardinfo(state_), 1);
    EXPECT_EQ(lua_tointeger(state_, -1), 0xFFFFFFFF);
}

TEST_F(HardInfo, PlatformFailureIsPushedAndTableLeftEmpty) {
    zakhost::inject("ZAK_GetHard_Info", 9, 0, 1);
    lua_newtable(state_);
    ASSERT_EQ(QAV_GetHardinfo(state_), 1);
    EXPECT_EQ(lua_tointeger(state_, -1), 9);
    lua_pushnil(state_);
    EXPECT_EQ(lua_next(state_, 1), 0) << "the table must stay empty";
}

TEST(ProcessRequest, NameCutTo32Characters) {
    qav::ProcessRequest request;
    std::string name(40, 'a');
    name[31] = 'z';
    qav::FillProcessRequest(&request, name.c_str(), 7, "/opt/bin/app", "-v");
    EXPECT_EQ(std::string(request.name), name.substr(0, 32));
    EXPECT_EQ(request.instanceId, 7u);
    EXPECT_STREQ(request.path, "/opt/bin/app");
    EXPECT_STREQ(request.argv, "-v");
    qav::FillProcessRequest(&request, "short", 1, nullptr, nullptr);
    EXPECT_STREQ(request.name, "short");
    EXPECT_STREQ(request.path, "");
}

} // namespace

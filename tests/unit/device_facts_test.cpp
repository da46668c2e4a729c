// Exports other libraries use: hardware table, process request, product type, stamp text format.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
}

#include "device/node_info.h"
#include "device/process_request.h"
#include "device/stamp_text.h"
#include "qav_board.h"
#include "unit_helpers.h"

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
    for (auto [key, value] : {std::pair{"usShelfID", "0"},
                              {"usChassisID", "1"},
                              {"usBoardID", "1"},
                              {"usCpuID", "1"},
                              {"uiBoardHardType", "8193"},
                              {"uiBoardHardExtType", "0"},
                              {"uiMacAddrLen", "3"}})
        EXPECT_EQ(Field(key), value) << key;
    // all 16 bytes, though only three are meaningful
    EXPECT_EQ(Field("acMacAddr"), std::string("\x0a\x0b\x0c", 3) + std::string(13, '\0'));
    EXPECT_EQ(lua_gettop(state_), 2); // the table and the status, nothing else
}

TEST_F(HardInfo, WrongArgumentsPushInvalidAndSetNothing) {
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
    zakhost::inject("ZAK_Malloc_F", 0, 0, 1);
    uint32_t count = 0, *list = nullptr;
    EXPECT_EQ(QAV_GetOsNodeListByBoardId(1, 1, &count, &list), 0xFFFFFFFFu); // no room for the list
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
    std::string longest(300, 'p'); // path and arguments keep 255 characters
    qav::FillProcessRequest(&request, "n", 1, longest.c_str(), longest.c_str());
    EXPECT_EQ(std::string(request.path) + request.argv, longest.substr(0, 255) + longest.substr(0, 255));
    qav::FillProcessRequest(&request, "short", 1, nullptr, nullptr);
    EXPECT_STREQ(request.name, "short");
    EXPECT_STREQ(request.path, "");
}

void MakeDirs(const std::string &path) {
    for (size_t pos = 1; pos != std::string::npos; pos = path.find('/', pos + 1))
        mkdir(path.substr(0, pos).c_str(), 0755);
    mkdir(path.c_str(), 0755);
}

class NodeInfo : public ::testing::Test {
  protected:
    void SetUp() override {
        // these tests write files under the device root: never on the machine itself
        if (zakhost::root().empty()) GTEST_SKIP() << "run with ZAKHOST_ROOT set to a sandbox (ctest does)";
        zakhost::log_clear();
        MakeDirs(zakhost::in_root("/zakv8/main/home"));
        vercfg_ = zakhost::in_root("/zakv8/main/home/vercfg.xml");
    }
    void TearDown() override {
        zakhost::inject_clear();
        if (zakhost::root().empty()) return;
        std::remove(vercfg_.c_str());
    }
    void WriteVercfg(const std::string &body) { std::ofstream(vercfg_) << body; }
    std::string vercfg_;
};

// The running version file, or the one the profile names.
TEST_F(NodeInfo, ProductTypeOfTheRunningVersion) {
    WriteVercfg("<Product><VNF><ProductType>EDGE-R</ProductType></VNF></Product>");
    char type[32];
    std::fill(std::begin(type), std::end(type), 'x');
    ASSERT_EQ(QAV_GetProductType(type), 0u);
    EXPECT_STREQ(type, "EDGE-R");
    EXPECT_EQ(type[31], '\0'); // the whole buffer was cleared first
    std::string other = zakhost::in_root("/zakv8/main/home/other.xml");
    std::ofstream(other) << "<Product><VNF><ProductType>CORE-X</ProductType></VNF></Product>";
    zakhost::profile_override("rpm", "vercfg_file", std::string("/zakv8/main/home/other.xml"));
    EXPECT_EQ(QAV_GetProductType(type), 0u);
    EXPECT_STREQ(type, "CORE-X");
    zakhost::profile_override("rpm", "vercfg_file", std::string("")); // no version file named
    EXPECT_EQ(QAV_GetProductType(type), 1u);
    EXPECT_TRUE(unit::Logged("upgrade", "The input is NULL."));
    zakhost::profile_override("rpm", "vercfg_file", std::nullopt);
    std::remove(other.c_str());
}

TEST_F(NodeInfo, ProductTypeFailures) {
    char type[32];
    EXPECT_EQ(QAV_GetProductType(nullptr), 1u);
    EXPECT_TRUE(unit::Logged("upgrade", "The input is NULL."));

    WriteVercfg("<Product><VNF/></Product>");
    EXPECT_EQ(QAV_GetProductType(type), 1u);
    EXPECT_TRUE(unit::Logged("upgrade", "Get node <Product/VNF/ProductType> value from file(" + vercfg_ +
                                            ") fail! RetCode:"));
}

std::string Format(const char *text, size_t size = 64) {
    char out[256];
    size_t length = qav::FormatWithoutArguments(text, out, size);
    EXPECT_EQ(length, std::string(out).size());
    return out;
}

// What stamps_test.lua leaves out: flags, modifiers, a '*' precision, other conversions, non-ones.
TEST(StampText, ConversionsPrintAsIfGivenZeroOrEmpty) {
    for (auto [text, printed] : {std::pair{"%-3u|%#o|%lld|%hhx|%.*f|%-*s|%.1e %g", "0  |0|0|0|0||0.0e+00 0"},
                                 {"a%hnb%k%y", "ab%k%y"}})
        EXPECT_EQ(Format(text), printed) << text;
    char untouched[4] = "xyz";
    EXPECT_EQ(qav::FormatWithoutArguments("abc", untouched, 0), 0u);
    EXPECT_STREQ(untouched, "xyz");
    EXPECT_EQ(Format(nullptr), "");
}

} // namespace

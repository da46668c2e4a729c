// The registry against the reference table kept in tests/data/registry_table.tsv: every position,
// script name and entry function, both in the constant registry and in the module table a script
// state receives; and the argument check every entry function uses: the count and one type
// letter per argument.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

extern "C" {
#include <lauxlib.h>
#include <lualib.h>
int luaopen_libqavluacommon(lua_State *state);
}

#include "binding/registry.h"
#include "binding/script_frame.h"
#include "host.h"

namespace {

struct Row {
    size_t position;
    std::string script;
    std::string function;
};

// Reads "position<TAB>script name<TAB>entry function" lines; '#' starts a comment line.
std::vector<Row> ReadTable(const std::string &path, std::string *error) {
    std::vector<Row> rows;
    std::ifstream in(path);
    if (!in) *error = "cannot open " + path;
    for (std::string line, extra; std::getline(in, line);) {
        std::istringstream fields(line);
        Row row;
        if (line.empty() || line[0] == '#') continue;
        if (!(fields >> row.position >> row.script >> row.function) || fields >> extra) {
            *error = "malformed line: " + line;
            return {};
        }
        rows.push_back(row);
    }
    return rows;
}

class RegistryTable : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string error;
        rows_ = ReadTable(std::string(QAV_TEST_DATA_DIR) + "/registry_table.tsv", &error);
        ASSERT_TRUE(error.empty()) << error;
        ASSERT_EQ(rows_.size(), qav::kRegistryEntries);
    }
    std::vector<Row> rows_;
};

TEST_F(RegistryTable, EveryPositionHasTheTablesNameAndFunction) {
    for (size_t i = 0; i < rows_.size(); ++i) {
        const Row &row = rows_[i];
        ASSERT_EQ(row.position, i + 1) << "reference table out of order at line " << i + 1;
        const SCRIPT_REG_ENTRY &entry = qav::kRegistry[i];
        ASSERT_NE(entry.name, nullptr) << row.position;
        EXPECT_EQ(row.script, entry.name) << "position " << row.position;
        void *symbol = dlsym(RTLD_DEFAULT, row.function.c_str());
        ASSERT_NE(symbol, nullptr) << row.function << " is not exported";
        EXPECT_EQ(reinterpret_cast<void *>(entry.func), symbol)
            << "position " << row.position << " (" << row.script << ") should call " << row.function;
    }
    EXPECT_EQ(qav::kRegistry[qav::kRegistryEntries].name, nullptr);
    EXPECT_EQ(qav::kRegistry[qav::kRegistryEntries].func, nullptr);
}

// What a script sees: each name of the table resolves to its entry function; a name listed twice
// maps to the same function both times, so the later registration changes nothing.
TEST_F(RegistryTable, ModuleTableResolvesEveryNameToItsFunction) {
    std::map<std::string, std::string> byName;
    for (const Row &row : rows_) {
        auto [it, inserted] = byName.emplace(row.script, row.function);
        EXPECT_TRUE(inserted || it->second == row.function) << row.script << " listed with two functions";
    }
    EXPECT_EQ(byName.size(), 306u);

    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    luaL_requiref(L, "libqavluacommon", luaopen_libqavluacommon, 1);
    ASSERT_TRUE(lua_istable(L, -1));
    size_t fields = 0;
    lua_pushnil(L);
    while (lua_next(L, -2) != 0) {
        ++fields;
        lua_pop(L, 1);
    }
    EXPECT_EQ(fields, byName.size()) << "the module table holds names the reference table lacks";
    for (const auto &[script, function] : byName) {
        // The engine wraps each entry in its guard; the entry function is the one behind it.
        lua_getfield(L, -1, script.c_str());
        ASSERT_TRUE(lua_iscfunction(L, -1)) << script;
        EXPECT_EQ(reinterpret_cast<void *>(zakhost::entry_function(L, -1)),
                  dlsym(RTLD_DEFAULT, function.c_str()))
            << script;
        lua_pop(L, 1);
    }
    lua_close(L);
}

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

} // namespace

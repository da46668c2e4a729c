// Opening the library and the dispatcher's handling of result counts and traces.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

// Before the library's headers: they undo the auxiliary library's luaL_checkstring macro.
#include "unit_helpers.h"

#include "binding/registry.h"
#include "binding/script_frame.h"
#include "state/port_ids.h"
#include "state/swm_locks.h"
#include "state/tpm_tables.h"
#include "state/upgrade_lock.h"

extern "C" uint32_t g_pMibluaSem;
extern "C" uint32_t QAV_lualock_init(void);
extern "C" uint32_t QAV_lualock_lock(void);
extern "C" uint32_t QAV_lualock_unlock(void);
extern "C" uint32_t QAV_lualock_Destroy(void);

namespace {

// The first open makes the process objects; four more, at once, reuse them.
TEST(LibraryOpen, ProcessObjectsOnceTpmTablesEveryOpen) {
    lua_State *states[5] = {unit::OpenState()};
    const std::vector<uint32_t> objects = {g_pUpgradeMutex, g_pHaVnodeDeployMutex, g_pSoftwareManageMutex};
    auto *ports = g_pstAssignPortIDList;
    uint32_t reportSema = g_stTpmReportTable.lock.semaId;
    size_t opens = unit::Logged("upgrade", "init tpm table in open luacommon so");
    size_t tpmInits = unit::Logged("upgrade", "TPM Init Tpm Query Table entry");
    std::thread threads[4];
    for (int i = 0; i < 4; ++i)
        threads[i] = std::thread([&states, i] { states[i + 1] = unit::OpenState(); });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(unit::Logged("upgrade", "init tpm table in open luacommon so"), opens + 4);
    EXPECT_EQ(unit::Logged("upgrade", "TPM Init Tpm Query Table entry"), tpmInits + 8);
    EXPECT_EQ((std::vector<uint32_t>{g_pUpgradeMutex, g_pHaVnodeDeployMutex, g_pSoftwareManageMutex}),
              objects);
    EXPECT_EQ(g_pstAssignPortIDList, ports);
    EXPECT_NE(g_stTpmReportTable.lock.semaId, reportSema); // re-created on every open
    for (lua_State *L : states)
        lua_close(L);
}

TEST(LibraryOpen, UnlockableInitMutexRegistersNothing) {
    size_t opens = unit::Logged("upgrade", "init tpm table in open luacommon so");
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    zakhost::inject("NUK_MutexLock", 1, 0, 1);
    lua_pushstring(L, "marker");
    EXPECT_EQ(luaopen_libqavluacommon(L), 1);
    EXPECT_STREQ(lua_tostring(L, -1), "marker"); // nothing pushed: the result is what lay there
    lua_getglobal(L, "libqavluacommon");
    EXPECT_TRUE(lua_isnil(L, -1));
    EXPECT_EQ(unit::Logged("upgrade", "init tpm table in open luacommon so"), opens);
    zakhost::inject_clear();
    lua_close(L);
}

// Entry functions for the dispatcher test: each pushes 42 and declares a result count.
template <int Count> int Returns(lua_State *L) {
    lua_pushinteger(L, 42);
    return Count == 0 ? lua_gettop(L) + 1 : Count;
}

TEST(Dispatcher, ResultCountsAreClampedOrHonoured) {
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    // (A count of -1, the same branch as a huge one, is the clock test's wrong-argument-count case;
    // placeholder results are patch_header_test.lua's digest and issu_compare_test.lua's missing path.)
    const SCRIPT_REG_ENTRY registry[] = {
        {"huge", Returns<0x801707>}, {"height_plus_one", Returns<0>}, {nullptr, nullptr}};
    ASSERT_EQ(Script_OpenLib(L, "dispatch_test", registry), 0);
    size_t before = zakhost::log_messages("syslog").size();
    ASSERT_EQ(luaL_dostring(L, R"(
        local m = dispatch_test
        local function pack(...) return select('#', ...), ... end
        local n2 = pack(m.huge())
        assert(n2 == 1, "huge " .. n2)
        local n3, f, b, c = pack(m.height_plus_one(5))
        assert(n3 == 3 and type(f) == "function" and b == 5 and c == 42, "height+1 " .. n3)
        return true)"),
              0)
        << lua_tostring(L, -1);
    auto lines = zakhost::log_messages("syslog");
    ASSERT_EQ(lines.size(), before + 1);
    EXPECT_NE(lines[before].find("result count 8394503 of huge clamped"), std::string::npos);
    lua_close(L);
}

// Gives back its arguments and one text of its own.
int EchoWithText(lua_State *L) {
    lua_pushstring(L, "result");
    return lua_gettop(L);
}

// Every script name traced: credential functions show secret arguments and text results as <secret>.
TEST(Dispatcher, TraceHidesSecretArgumentsAndResults) {
    const std::map<std::string, std::set<int>> secrets = {
        {"qav_DecryptPassword_Enh", {1}},
        {"qav_DecryptPassword_EnhExp", {1}},
        {"qav_CRYPT_Decrypt", {1}},
        {"qav_CRYPT_Decrypt_Enhance", {1, 5}},
        {"qav_EncryptPassword_EnhExp", {1}},
        {"qav_CRYPT_Encrypt", {1}},
        {"qav_CRYPT_Encrypt_Enhance", {1, 5}},
        {"qav_CRYPT_Encrypt_Enhance_IV", {1, 5, 6}},
        {"qav_CRYPT_IsCipher", {1}},
        {"qav_CRYPT_IsPlainTextSame", {1, 4}},
        {"qav_CRYPT_IsPlainTextSame_Enhance", {1, 4, 5, 8}},
        {"qav_Crypt_Digest", {1}},
        {"qav_SHA_Digest", {1}},
        {"qav_VerifySystemPassword", {1, 2}},
        {"qav_generate_randnum", {}},
        {"qav_CRYPT_Decrypt_Ext", {2, 4, 6}},
        {"qav_MK_CheckHashHit", {1}},
        {"qav_MK_CheckInputMkIsRight", {1}},
        {"qav_MK_VerifySystemPassword", {1, 2, 3}},
        {"qav_MK_InputKeyIsSecurity", {1}},
        {"qav_MK_GetMKHashValue", {}},
        {"qav_VerifyAndSetGuestOSKey", {2, 3}},
    };
    std::vector<SCRIPT_REG_ENTRY> registry;
    std::set<std::string> names;
    for (size_t i = 0; i < qav::kRegistryEntries; ++i) {
        registry.push_back({qav::kRegistry[i].name, EchoWithText});
        names.insert(qav::kRegistry[i].name);
    }
    registry.push_back({nullptr, nullptr});
    for (const auto &[name, positions] : secrets)
        EXPECT_EQ(names.count(name), 1u) << name << " is no script name";

    lua_State *L = luaL_newstate();
    setenv("ZAKHOST_TRACE", "1", 1);
    ASSERT_EQ(Script_OpenLib(L, "traced", registry.data()), 0);
    unsetenv("ZAKHOST_TRACE");
    testing::internal::CaptureStderr();
    for (const std::string &name : names) {
        lua_getfield(L, -1, name.c_str());
        for (int k = 1; k <= 8; ++k)
            lua_pushfstring(L, "a%d%s", k, k == 8 ? "\x7F" : ""); // DEL is escaped
        lua_call(L, 8, 0);
    }
    std::string trace = testing::internal::GetCapturedStderr();
    lua_close(L);

    for (const std::string &name : names) {
        auto secret = secrets.find(name);
        bool credential = secret != secrets.end();
        std::string args, results;
        for (int k = 1; k <= 8; ++k) {
            std::string shown = "\"a" + std::to_string(k) + (k == 8 ? "\\x7F\"" : "\"");
            args += (k > 1 ? ", " : "") + (credential && secret->second.count(k) ? "<secret>" : shown);
            results += (k > 1 ? ", " : "") + (credential ? "<secret>" : shown);
        }
        results += credential ? ", <secret>" : ", \"result\"";
        std::string line = "[trace] " + name + "(" + args + ") -> " + results + "\n";
        EXPECT_NE(trace.find(line), std::string::npos) << line;
    }
}

// (A table or a missing argument gives null, never an error: the file engine's argument checks.)
TEST(ExportedUtilities, CheckstringConvertsNumbers) {
    lua_State *L = luaL_newstate();
    lua_pushinteger(L, 12);
    EXPECT_STREQ(luaL_checkstring(L, 1), "12");
    lua_close(L);
}

TEST(ExportedUtilities, ScriptLockIsOneProcessMutex) {
    EXPECT_NE(QAV_lualock_lock(), 0u); // not created yet: the open function never creates it
    ASSERT_EQ(QAV_lualock_init(), 0u);
    EXPECT_NE(g_pMibluaSem, 0u);
    EXPECT_EQ(QAV_lualock_lock(), 0u);
    EXPECT_EQ(QAV_lualock_unlock(), 0u);
    EXPECT_EQ(QAV_lualock_Destroy(), 0u);
    EXPECT_NE(QAV_lualock_lock(), 0u);
}

// ctest runs every test in a process of its own, so finalising here disturbs no other test.
TEST(PortTable, FinaliseFreesEverythingAndInitialiseStartsAfresh) {
    lua_State *L = unit::OpenState();
    ASSERT_NE(g_pstAssignPortIDList, nullptr);
    ASSERT_EQ(luaL_dostring(L, "local m = libqavluacommon; m.qav_luaAssignPortID(0x123); "
                               "m.qav_luaAssignPortID(0x124)"),
              0);
    int64_t blocks = zakhost::live_blocks();
    EXPECT_EQ(QAV_LuaAssignPortID_Fini(), 0u);
    EXPECT_EQ(g_pstAssignPortIDList, nullptr);
    EXPECT_LE(zakhost::live_blocks(), blocks - 3); // the table and at least two nodes
    EXPECT_EQ(QAV_LuaAssignPortID_Fini(), 0u);     // a second finalisation finds nothing to do

    // Without a table the entry functions fail instead of touching freed memory.
    ASSERT_EQ(
        luaL_dostring(L, "local m = libqavluacommon; local s, p = m.qav_luaAssignPortID(0x123); "
                         "assert(s == 1 and p == 41000); assert(m.qav_luaSetCurPortID(1, 5) == 0xFFFFFFFF)"),
        0)
        << lua_tostring(L, -1);

    zakhost::inject("ZAK_Malloc_F", 0, 0, 1);
    EXPECT_EQ(QAV_LuaAssignPortID_Init(), 1u);
    EXPECT_EQ(g_pstAssignPortIDList, nullptr);
    auto diag = zakhost::log_messages("diag");
    ASSERT_FALSE(diag.empty());
    EXPECT_EQ(diag.back(), "QAV LuaLock_Init Port Malloc cb failed, Malloc=" +
                               std::to_string(sizeof(QavAssignPortTable)) + ".");

    EXPECT_EQ(QAV_LuaAssignPortID_Init(), 0u);
    EXPECT_EQ(QAV_LuaAssignPortID_Init(), 0u);
    EXPECT_EQ(zakhost::log_messages("diag").back(), "Warnning, QAV LuaAssign Port has Init already");
    ASSERT_EQ(luaL_dostring(L, "local s, p = libqavluacommon.qav_luaAssignPortID(0x123); "
                               "assert(s == 0 and p == 41004, p)"),
              0)
        << lua_tostring(L, -1);
    lua_close(L);
}

} // namespace

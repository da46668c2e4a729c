// No secret byte left in the script functions' buffers when they return; the password tool's log.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

// The library's headers first: the auxiliary library's header would make luaL_checkstring a macro.
#include "crypt/secret_buffer.h"
#include "nuk_crypt.h"
#include "qav_mk.h"

#include "unit_helpers.h"

extern "C" {
int QAV_DecryptPassword_Enh(lua_State *);
int QAV_DecryptPassword_EnhExp(lua_State *);
int QAV_CRYPT_Decrypt(lua_State *);
int QAV_CRYPT_Decrypt_Enhance(lua_State *);
int QAV_EncryptPassword_EnhExp(lua_State *);
int QAV_CRYPT_Encrypt_Enhance_IV(lua_State *);
int QAV_CRYPT_Decrypt_Ext(lua_State *);
uint32_t QAV_GetKeyValue(const char *hex, uint8_t *out, uint32_t size);
uint32_t QAV_GetModPwdErrInfo(const char *logPath);
int32_t QAV_ModifyUserPasswd(const char *user, const char *newPassword);
}

namespace {

struct Wiped {
    std::string name;
    size_t size;
    bool allZero;
};
std::vector<Wiped> g_seen;

void Record(const char *name, const void *data, size_t size) {
    const auto *bytes = static_cast<const unsigned char *>(data);
    bool zero = true;
    for (size_t i = 0; i < size; ++i)
        zero = zero && bytes[i] == 0;
    g_seen.push_back({name, size, zero});
}

class SecretBuffers : public ::testing::Test {
  protected:
    void SetUp() override {
        state_ = luaL_newstate();
        g_seen.clear();
        qav::crypt::g_wipeProbe = &Record;
    }
    void TearDown() override {
        qav::crypt::g_wipeProbe = nullptr;
        lua_close(state_);
    }
    // Calls `entry` (texts that parse as numbers go as numbers); the results as strings.
    std::vector<std::string> Call(lua_CFunction entry, const std::vector<std::string> &args) {
        lua_settop(state_, 0);
        for (const auto &a : args) {
            char *end = nullptr;
            long long n = std::strtoll(a.c_str(), &end, 10);
            if (!a.empty() && *end == '\0')
                lua_pushinteger(state_, n);
            else
                lua_pushlstring(state_, a.data(), a.size());
        }
        int count = entry(state_);
        std::vector<std::string> results;
        for (int i = lua_gettop(state_) - count + 1; i <= lua_gettop(state_); ++i) {
            size_t len = 0;
            const char *text = lua_tolstring(state_, i, &len);
            results.emplace_back(text != nullptr ? std::string(text, len) : "<nil>");
        }
        return results;
    }
    // The one buffer of this name the probe saw, which must have been all zeros.
    void ExpectWiped(const std::string &name, size_t size) {
        size_t found = 0;
        for (const auto &w : g_seen) {
            if (w.name != name) continue;
            ++found;
            EXPECT_EQ(w.size, size) << name;
            EXPECT_TRUE(w.allZero) << name;
        }
        EXPECT_EQ(found, 1u) << name;
    }
    lua_State *state_ = nullptr;
};

std::string Encrypt(const std::string &plain, uint32_t algorithm, const char *key) {
    char out[433] = {};
    uint8_t iv[16] = {1, 2, 3};
    EXPECT_EQ(NUK_CRYPT_Encrypt_Sec(plain.c_str(), static_cast<uint32_t>(plain.size()), out, sizeof out,
                                    algorithm, key, iv),
              0u);
    return out;
}

TEST_F(SecretBuffers, DecryptedPlainTextsAreWipedAfterThePush) {
    std::string cipher = Encrypt("hunter2", 0, "");
    EXPECT_EQ(Call(QAV_DecryptPassword_Enh, {cipher}), (std::vector<std::string>{"0", "hunter2"}));
    ExpectWiped("qav_DecryptPassword_Enh plain", 17);
    EXPECT_EQ(Call(QAV_DecryptPassword_EnhExp, {cipher}), (std::vector<std::string>{"0", "hunter2"}));
    ExpectWiped("qav_DecryptPassword_EnhExp plain", 257);
    EXPECT_EQ(Call(QAV_CRYPT_Decrypt, {cipher, "0", "257", "0"}), (std::vector<std::string>{"0", "hunter2"}));
    ExpectWiped("qav_CRYPT_Decrypt plain", 257);
    std::string keyed = Encrypt("hunter3", 2, "k");
    EXPECT_EQ(Call(QAV_CRYPT_Decrypt_Enhance, {keyed, std::to_string(keyed.size()), "257", "2", "k"}),
              (std::vector<std::string>{"0", "hunter3"}));
    ExpectWiped("qav_CRYPT_Decrypt_Enhance plain", 257);
}

TEST(CipherService, AFailedTagCheckLeavesNoDecryptedBytes) {
    // The cipher is decrypted into the caller's buffer before the tag is checked.
    std::string cipher = Encrypt("hunter3 and more", 0, "right");
    char out[64];
    std::memset(out, 0xAA, sizeof out);
    EXPECT_EQ(NUK_CRYPT_Decrypt_Sec(cipher.c_str(), static_cast<uint32_t>(cipher.size()), out, sizeof out, 0,
                                    "wrong"),
              static_cast<uint32_t>(NUK_CRYPT_ERR_AUTH));
    for (size_t i = 0; i <= 16; ++i)
        EXPECT_EQ(out[i], 0) << i;
    EXPECT_EQ(static_cast<unsigned char>(out[17]), 0xAA); // nothing beyond the plain text was touched
}

TEST(CipherService, TheOutputNeedsRoomForTheTextAndItsEndOnly) {
    auto size = static_cast<uint32_t>(Encrypt("x", 0, "").size());
    char out[433];
    uint8_t iv[16] = {};
    EXPECT_EQ(NUK_CRYPT_Encrypt_Sec("x", 1, out, size + 1, 0, "", iv), 0u);
    EXPECT_EQ(NUK_CRYPT_Encrypt_Sec("x", 1, out, size, 0, "", iv),
              static_cast<uint32_t>(NUK_CRYPT_ERR_BUFFER));
}

TEST_F(SecretBuffers, CipherBuffersOfThePasswordFunctionsAreWiped) {
    auto r = Call(QAV_EncryptPassword_EnhExp, {"pw", "x"});
    ASSERT_EQ(r.size(), 2u);
    ExpectWiped("qav_EncryptPassword_EnhExp cipher", 433);
    r = Call(QAV_CRYPT_Encrypt_Enhance_IV, {"pw", "0", "433", "1", "k", "0123456789abcdef"});
    ASSERT_EQ(r.size(), 1u);
    ExpectWiped("qav_CRYPT_Encrypt_Enhance_IV cipher", 433);
}

TEST_F(SecretBuffers, HexKeyIvCipherAndPlainBuffersAreWiped) {
    // AES-128-CBC of "abc" under key 00..0f and IV 0, computed once with the openssl command.
    const std::string key = "000102030405060708090a0b0c0d0e0f";
    const std::string iv(32, '0');
    const std::string cipher = "b08b1f809a035064420d1d754022ab55";
    auto r = Call(QAV_CRYPT_Decrypt_Ext, {"0", key, "32", iv, "32", cipher, "32"});
    EXPECT_EQ(r, (std::vector<std::string>{"0", "abc"}));
    for (const char *name :
         {"qav_CRYPT_Decrypt_Ext key", "qav_CRYPT_Decrypt_Ext iv", "qav_CRYPT_Decrypt_Ext cipher"})
        ExpectWiped(name, 128);
    ExpectWiped("qav_CRYPT_Decrypt_Ext plain", 256);
}

// (Odd ends, bad pairs and longer texts: block_decrypt_test.lua's odd-character and refusal cases.)
TEST(CryptHexKeys, TwiceTheSizeInCharactersFitsAndNoTextFails) {
    uint8_t out[4] = {};
    EXPECT_EQ(QAV_GetKeyValue("00112233", out, 4), 0u);
    EXPECT_EQ(out[3], 0x33);
    EXPECT_EQ(QAV_GetKeyValue(nullptr, out, 4), 1u);
}

using unit::Spill;

class PasswordTool : public ::testing::Test {
  protected:
    void SetUp() override {
        root_ = unit::TempDir();
        savedRoot_ = std::getenv("ZAKHOST_ROOT") != nullptr ? std::getenv("ZAKHOST_ROOT") : "";
        savedPath_ = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "";
        ASSERT_EQ(std::system(("mkdir -p " + root_ + "/opt " + root_ + "/etc " + root_ + "/tools").c_str()),
                  0);
        // The tool prints R/script and exits with R/status.
        Spill(root_ + "/tools/passwd",
              "#!/bin/bash\nR=" + root_ +
                  "\nIFS= read -r first; IFS= read -r second\n"
                  "cat $R/script 2>/dev/null\nexit $(cat $R/status 2>/dev/null || echo 0)\n");
        Spill(root_ + "/tools/ramdisk-sync", "#!/bin/sh\necho \"$@\" >> " + root_ + "/synced\n");
        ASSERT_EQ(std::system(("chmod 755 " + root_ + "/tools/*").c_str()), 0);
        setenv("ZAKHOST_ROOT", root_.c_str(), 1);
        setenv("PATH", (root_ + "/tools:/usr/bin:/bin").c_str(), 1);
        zakhost::reset_environment();
        zakhost::allow_host_commands(true);
    }
    void TearDown() override {
        zakhost::allow_host_commands(false);
        setenv("ZAKHOST_ROOT", savedRoot_.c_str(), 1);
        setenv("PATH", savedPath_.c_str(), 1);
        zakhost::reset_environment();
        (void)std::system(("rm -rf " + root_).c_str());
    }
    std::string root_, savedRoot_, savedPath_;
};

TEST_F(PasswordTool, LogLinesAreClassified) {
    const std::pair<std::string, uint32_t> cases[] = {
        {"\r\n\nEnter new password:\r\nBAD PASSWORD: it is too short\n", 1003},
        {"Enter new password:\nPassword has been already used. Choose another.\r\n", 1004},
        {"first\nthis one was already there", 1004}, // the last line needs no line end
        // Lines are read 511 characters at a time: a word cut at that boundary is not seen whole.
        {std::string(508, 'x') + "already\n", 1003},
        {std::string(511, 'x') + "already\n", 1004},
    };
    for (const auto &[text, code] : cases) {
        Spill(root_ + "/log", text);
        EXPECT_EQ(QAV_GetModPwdErrInfo((root_ + "/log").c_str()), code) << text.substr(0, 40);
    }
    EXPECT_EQ(QAV_GetModPwdErrInfo((root_ + "/absent").c_str()), 1003u);
}

TEST_F(PasswordTool, FailuresAreClassifiedFromTheToolsLog) {
    Spill(root_ + "/script", "passwd: Password has been already used. Choose another.\n");
    Spill(root_ + "/status", "10");
    EXPECT_EQ(QAV_ModifyUserPasswd("qavunitguest", "again"), 1004);
    // Output on the error stream counts as well ("&>" takes both).
    Spill(root_ + "/tools/passwd", "#!/bin/bash\necho 'Password has been used already' >&2\nexit 1\n");
    EXPECT_EQ(QAV_ModifyUserPasswd("qavunitguest", "again"), 1004);
}

} // namespace

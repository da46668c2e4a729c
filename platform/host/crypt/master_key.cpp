// The device master key and the system-password check.
//
// The master key is the profile's [master_key] key text; an empty text means the device still has
// its default key. Its hash is the first 8 bytes of SHA-256 of the key text (8 zero bytes for the
// default key). The activation and configuration statuses start at the profile's values; the
// setters persist theirs in the sandbox state so that other processes see them.
#include <openssl/crypto.h>
#include <openssl/sha.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "host.h"
#include "nuk_crypt.h"
#include "qav_mk.h"

namespace {

std::string CurrentKey() {
    return zakhost::profile_string("master_key", "key");
}

void HashOf(const std::string &key, uint8_t *hash) {
    if (key.empty()) {
        std::memset(hash, 0, NUK_CRYPT_MK_HASH_LEN);
        return;
    }
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char *>(key.data()), key.size(), digest);
    std::memcpy(hash, digest, NUK_CRYPT_MK_HASH_LEN);
    OPENSSL_cleanse(digest, sizeof digest);
}

// A status word: the injected result, else the persisted state if any, else the profile's value.
uint32_t Status(const char *service, const char *key) {
    int64_t injectedResult = 0;
    if (zakhost::injected(service, &injectedResult)) return static_cast<uint32_t>(injectedResult);
    if (auto value = zakhost::state_value("master_key", key))
        return static_cast<uint32_t>(zakhost::parse_int(*value).value_or(0));
    return static_cast<uint32_t>(zakhost::profile_int("master_key", key, 0));
}

// Persists a status word for the next process.
uint32_t SetStatus(const char *service, const char *key, uint32_t status) {
    if (zakhost::injected(service)) return NUK_MK_ERR_NOKEY;
    return zakhost::set_state_value("master_key", key, std::to_string(status)) ? 0 : NUK_MK_ERR_NOKEY;
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

} // namespace

extern "C" {

uint32_t NUK_CRYPT_IsDefaultMK(void) {
    int64_t injectedResult = 0;
    if (zakhost::injected("NUK_CRYPT_IsDefaultMK", &injectedResult))
        return static_cast<uint32_t>(injectedResult);
    return CurrentKey().empty() ? 1 : 0;
}

uint32_t NUK_CRYPT_StrToHashValue(const char *text, uint32_t textLen, uint8_t *hash, uint32_t hashLen) {
    int64_t injectedResult = 0;
    if (zakhost::injected("NUK_CRYPT_StrToHashValue", &injectedResult))
        return injectedResult == 0 ? NUK_MK_ERR_FORMAT : static_cast<uint32_t>(injectedResult);
    if (text == nullptr || hash == nullptr || hashLen != NUK_CRYPT_MK_HASH_LEN) return NUK_MK_ERR_PARAM;
    if (strnlen(text, textLen) != 2 * NUK_CRYPT_MK_HASH_LEN || textLen < 2 * NUK_CRYPT_MK_HASH_LEN)
        return NUK_MK_ERR_FORMAT;
    for (uint32_t i = 0; i < hashLen; ++i) {
        int high = HexValue(text[2 * i]), low = HexValue(text[2 * i + 1]);
        if (high < 0 || low < 0) return NUK_MK_ERR_FORMAT;
        hash[i] = static_cast<uint8_t>(high << 4 | low);
    }
    return 0;
}

uint32_t NUK_CRYPT_GetMKHashValue(uint8_t *hash, uint32_t hashLen) {
    int64_t injectedResult = 0;
    if (zakhost::injected("NUK_CRYPT_GetMKHashValue", &injectedResult))
        return injectedResult == 0 ? NUK_MK_ERR_NOKEY : static_cast<uint32_t>(injectedResult);
    if (hash == nullptr || hashLen != NUK_CRYPT_MK_HASH_LEN) return NUK_MK_ERR_PARAM;
    std::string key = CurrentKey();
    HashOf(key, hash);
    OPENSSL_cleanse(key.data(), key.size());
    return 0;
}

uint32_t NUK_CRYPT_CheckHashHit(const uint8_t *hash, uint32_t hashLen, uint32_t *hit) {
    int64_t injectedResult = 0;
    if (zakhost::injected("NUK_CRYPT_CheckHashHit", &injectedResult))
        return injectedResult == 0 ? NUK_MK_ERR_NOKEY : static_cast<uint32_t>(injectedResult);
    if (hash == nullptr || hit == nullptr || hashLen != NUK_CRYPT_MK_HASH_LEN) return NUK_MK_ERR_PARAM;
    uint8_t current[NUK_CRYPT_MK_HASH_LEN];
    std::string key = CurrentKey();
    HashOf(key, current);
    OPENSSL_cleanse(key.data(), key.size());
    *hit = CRYPTO_memcmp(current, hash, NUK_CRYPT_MK_HASH_LEN) == 0 ? 1 : 0;
    return 0;
}

uint32_t NUK_CRYPT_HashValueToStr(const uint8_t *hash, uint32_t hashLen, char *out, uint32_t size) {
    int64_t injectedResult = 0;
    if (zakhost::injected("NUK_CRYPT_HashValueToStr", &injectedResult))
        return injectedResult == 0 ? NUK_MK_ERR_PARAM : static_cast<uint32_t>(injectedResult);
    if (hash == nullptr || out == nullptr || hashLen == 0 || size < 2 * hashLen + 1) return NUK_MK_ERR_PARAM;
    zakhost::write_hex(hash, hashLen, out, false);
    return 0;
}

uint32_t QAV_MK_CheckInputKeyAndMk(const char *key, uint32_t *match) {
    int64_t injectedResult = 0;
    if (zakhost::injected("QAV_MK_CheckInputKeyAndMk", &injectedResult))
        return injectedResult == 0 ? NUK_MK_ERR_NOKEY : static_cast<uint32_t>(injectedResult);
    if (key == nullptr || match == nullptr) return NUK_MK_ERR_PARAM;
    std::string current = CurrentKey();
    // Compared as SHA-256 digests so the time taken does not depend on where the texts differ.
    unsigned char a[SHA256_DIGEST_LENGTH], b[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char *>(key), std::strlen(key), a);
    SHA256(reinterpret_cast<const unsigned char *>(current.data()), current.size(), b);
    *match = !current.empty() && CRYPTO_memcmp(a, b, sizeof a) == 0 ? 1 : 0;
    OPENSSL_cleanse(current.data(), current.size());
    OPENSSL_cleanse(a, sizeof a);
    OPENSSL_cleanse(b, sizeof b);
    return 0;
}

uint32_t QAV_MK_GetActiveStatus(void) {
    return Status("QAV_MK_GetActiveStatus", "active");
}

uint32_t QAV_MK_SetActiveStatus(uint32_t status) {
    return SetStatus("QAV_MK_SetActiveStatus", "active", status);
}

uint32_t ZAK_GetMKConfigStatus(void) {
    return Status("ZAK_GetMKConfigStatus", "config_status");
}

uint32_t ZAK_SetMKConfigStatus(uint32_t status) {
    return SetStatus("ZAK_SetMKConfigStatus", "config_status", status);
}

uint32_t SMP_VerifySystemPassword(const char *account, const char *password, const char *digest) {
    int64_t injectedResult = 0;
    if (zakhost::injected("SMP_VerifySystemPassword", &injectedResult))
        return static_cast<uint32_t>(injectedResult);
    if (account == nullptr || password == nullptr || digest == nullptr) return 2;
    std::string stored =
        digest[0] != '\0' ? std::string(digest) : zakhost::profile_string("system_password", account);
    if (stored.empty()) return 2;
    return NUK_VerifySystemPassword(password, static_cast<uint32_t>(std::strlen(password)), stored.c_str()) ==
                   0
               ? 0
               : 1;
}

} // extern "C"

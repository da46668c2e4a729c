// The system-password digest, the random source and the block-cipher decryption of the crypto
// library.
//
// Digest: 32 printable characters: one character giving the scrypt cost (log2 N, as an index into
// the URL-safe base64 alphabet), 11 characters of an 8-byte random salt and 20 characters of a
// 15-byte scrypt result (r = 8, p = 1), all URL-safe base64 without padding.
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "crypt/crypt_common.h"
#include "host.h"
#include "nuk_crypt.h"

namespace {

constexpr int64_t kMinCost = 10;
constexpr int64_t kMaxCost = 20;
constexpr size_t kSaltLen = 8;
constexpr size_t kHashLen = 15;
constexpr size_t kDigestChars = 32;
constexpr const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

std::string UrlEncode(const unsigned char *data, size_t len) {
    std::string text = zakhost_crypt::Base64Encode(data, len);
    while (!text.empty() && text.back() == '=')
        text.pop_back();
    std::replace(text.begin(), text.end(), '+', '-');
    std::replace(text.begin(), text.end(), '/', '_');
    return text;
}

bool UrlDecode(std::string text, size_t expected, std::vector<unsigned char> &out) {
    if (text.find_first_of("+/=") != std::string::npos) return false;
    std::replace(text.begin(), text.end(), '-', '+');
    std::replace(text.begin(), text.end(), '_', '/');
    while (text.size() % 4 != 0)
        text.push_back('=');
    return zakhost_crypt::Base64Decode(text, out) && out.size() == expected;
}

bool Scrypt(const char *plain, size_t len, const unsigned char *salt, int64_t cost, unsigned char *hash) {
    uint64_t n = uint64_t{1} << cost;
    return EVP_PBE_scrypt(plain, len, salt, kSaltLen, n, 8, 1, 1ull << 31, hash, kHashLen) == 1;
}

bool FillRandom(void *buffer, size_t length) {
    auto *p = static_cast<unsigned char *>(buffer);
    while (length > 0) {
        ssize_t n = getrandom(p, length, 0);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        p += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

} // namespace

extern "C" {

uint32_t QAV_EncryptSystemPassword(const char *plain, char *out, uint32_t size) {
    int64_t injectedResult = 0;
    if (zakhost::injected("QAV_EncryptSystemPassword", &injectedResult))
        return injectedResult == 0 ? NUK_CRYPT_ERR_LIBRARY : static_cast<uint32_t>(injectedResult);
    if (plain == nullptr || out == nullptr) return NUK_CRYPT_ERR_PARAM;
    if (size < kDigestChars + 1) return NUK_CRYPT_ERR_BUFFER;
    int64_t cost = zakhost::profile_int("crypt", "password_cost", 14);
    if (cost < kMinCost || cost > kMaxCost) cost = 14;
    unsigned char salt[kSaltLen];
    unsigned char hash[kHashLen];
    if (!FillRandom(salt, sizeof salt)) return NUK_CRYPT_ERR_LIBRARY;
    if (!Scrypt(plain, std::strlen(plain), salt, cost, hash)) return NUK_CRYPT_ERR_LIBRARY;
    std::string digest =
        std::string(1, kAlphabet[cost]) + UrlEncode(salt, sizeof salt) + UrlEncode(hash, sizeof hash);
    OPENSSL_cleanse(hash, sizeof hash);
    std::memcpy(out, digest.c_str(), kDigestChars + 1);
    return 0;
}

uint32_t NUK_VerifySystemPassword(const char *plain, uint32_t plainLen, const char *digest) {
    int64_t injectedResult = 0;
    if (zakhost::injected("NUK_VerifySystemPassword", &injectedResult))
        return injectedResult == 0 ? NUK_CRYPT_ERR_LIBRARY : static_cast<uint32_t>(injectedResult);
    if (plain == nullptr || digest == nullptr) return NUK_CRYPT_ERR_PARAM;
    size_t digestLen = strnlen(digest, kDigestChars + 1);
    if (digestLen != kDigestChars) return NUK_CRYPT_ERR_FORMAT;
    const char *costChar = std::strchr(kAlphabet, digest[0]);
    int64_t cost = costChar != nullptr ? costChar - kAlphabet : -1;
    std::vector<unsigned char> salt, stored;
    if (cost < kMinCost || cost > kMaxCost || !UrlDecode(std::string(digest + 1, 11), kSaltLen, salt) ||
        !UrlDecode(std::string(digest + 12, 20), kHashLen, stored))
        return NUK_CRYPT_ERR_FORMAT;
    unsigned char hash[kHashLen];
    if (!Scrypt(plain, strnlen(plain, plainLen), salt.data(), cost, hash)) return NUK_CRYPT_ERR_LIBRARY;
    bool same = CRYPTO_memcmp(hash, stored.data(), kHashLen) == 0;
    OPENSSL_cleanse(hash, sizeof hash);
    return same ? 0 : 1;
}

uint32_t CRYPT_random(uint8_t *buffer, uint32_t length) {
    int64_t injectedResult = 0;
    if (zakhost::injected("CRYPT_random", &injectedResult))
        return injectedResult == 0 ? NUK_CRYPT_ERR_LIBRARY : static_cast<uint32_t>(injectedResult);
    if (buffer == nullptr && length > 0) return NUK_CRYPT_ERR_PARAM;
    return FillRandom(buffer, length) ? 0 : NUK_CRYPT_ERR_LIBRARY;
}

uint32_t CRYPT_decrypt(uint32_t algorithm, const uint8_t *key, uint32_t keyLen, const uint8_t *iv,
                       uint32_t ivLen, const uint8_t *cipher, uint32_t cipherLen, uint8_t *out,
                       uint32_t *outLen, uint32_t outSize) {
    int64_t injectedResult = 0;
    if (zakhost::injected("CRYPT_decrypt", &injectedResult))
        return injectedResult == 0 ? NUK_CRYPT_ERR_LIBRARY : static_cast<uint32_t>(injectedResult);
    if (key == nullptr || iv == nullptr || cipher == nullptr || out == nullptr || outLen == nullptr)
        return NUK_CRYPT_ERR_PARAM;
    *outLen = 0;
    bool padded;
    if (algorithm == CRYPT_ALG_AES_CBC_PKCS7)
        padded = true;
    else if (algorithm == CRYPT_ALG_AES_CBC_NOPAD)
        padded = false;
    else
        return NUK_CRYPT_ERR_ALGORITHM;
    const char *name = keyLen == 16   ? "AES-128-CBC"
                       : keyLen == 24 ? "AES-192-CBC"
                       : keyLen == 32 ? "AES-256-CBC"
                                      : nullptr;
    if (name == nullptr || ivLen != 16) return NUK_CRYPT_ERR_KEY;
    if (cipherLen == 0 || cipherLen % 16 != 0 || cipherLen > (1u << 30)) return NUK_CRYPT_ERR_FORMAT;

    std::vector<unsigned char> plain(cipherLen + 16);
    EVP_CIPHER *evp = EVP_CIPHER_fetch(nullptr, name, nullptr);
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    int len = 0, last = 0;
    bool ok = evp != nullptr && ctx != nullptr && EVP_DecryptInit_ex2(ctx, evp, key, iv, nullptr) == 1 &&
              EVP_CIPHER_CTX_set_padding(ctx, padded ? 1 : 0) == 1 &&
              EVP_DecryptUpdate(ctx, plain.data(), &len, cipher, static_cast<int>(cipherLen)) == 1;
    bool badPadding = ok && EVP_DecryptFinal_ex(ctx, plain.data() + len, &last) != 1;
    EVP_CIPHER_CTX_free(ctx);
    EVP_CIPHER_free(evp);
    uint32_t rc = 0;
    size_t total = static_cast<size_t>(len) + static_cast<size_t>(last);
    if (!ok)
        rc = NUK_CRYPT_ERR_LIBRARY;
    else if (badPadding)
        rc = NUK_CRYPT_ERR_AUTH;
    else if (total > outSize)
        rc = NUK_CRYPT_ERR_BUFFER;
    if (rc == 0) {
        std::memcpy(out, plain.data(), total);
        *outLen = static_cast<uint32_t>(total);
    }
    OPENSSL_cleanse(plain.data(), plain.size());
    return rc;
}

} // extern "C"

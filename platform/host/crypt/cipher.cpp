// The cipher service on OpenSSL 3: authenticated encryption of configuration secrets.
//
// A cipher text is "zkc1$<algorithm>$<base64 of nonce(12) | encrypted bytes | tag(16)>". The keys
// come from the key text (the device key for "") through HKDF-SHA256. The nonce is synthetic:
// HMAC-SHA256 over the caller's IV and the plain text, so a caller that repeats an IV with another
// plain text still gets a fresh nonce; the same IV, key and plain text give the same cipher text.
// The header is authenticated as associated data, so the algorithm number cannot be swapped.
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/kdf.h>

#include <cstring>
#include <string>
#include <vector>

#include "crypt/crypt_common.h"
#include "host.h"
#include "nuk_crypt.h"

namespace {

constexpr size_t kNonceLen = 12;
constexpr size_t kTagLen = 16;
constexpr size_t kMacKeyLen = 32;
constexpr const char *kPrefix = "zkc1$";

struct Algorithm {
    uint32_t number;
    const char *name;
    size_t keyLen;
};
constexpr Algorithm kAlgorithms[] = {
    {NUK_CRYPT_ALG_AES256_GCM, "AES-256-GCM", 32},
    {NUK_CRYPT_ALG_AES128_GCM, "AES-128-GCM", 16},
    {NUK_CRYPT_ALG_CHACHA20_POLY1305, "ChaCha20-Poly1305", 32},
};

const Algorithm *FindAlgorithm(uint32_t number) {
    for (const auto &a : kAlgorithms)
        if (a.number == number) return &a;
    return nullptr;
}

std::string Header(uint32_t algorithm) {
    return std::string(kPrefix) + std::to_string(algorithm) + "$";
}

// Encryption key and nonce key for one algorithm, wiped when they go out of scope.
struct DerivedKeys {
    unsigned char enc[32] = {};
    unsigned char mac[kMacKeyLen] = {};
    ~DerivedKeys() {
        OPENSSL_cleanse(enc, sizeof enc);
        OPENSSL_cleanse(mac, sizeof mac);
    }
};

uint32_t DeriveKeys(const Algorithm &alg, const char *key, DerivedKeys &keys) {
    std::string deviceKey;
    const char *material = key;
    if (key[0] == '\0') {
        deviceKey = zakhost::profile_string("crypt", "device_key");
        if (deviceKey.empty()) return NUK_CRYPT_ERR_KEY;
        material = deviceKey.c_str();
    }
    unsigned char out[32 + kMacKeyLen];
    std::string info = std::string("zakhost cipher ") + alg.name;
    static const char kSalt[] = "zakhost-crypt-v1";
    EVP_KDF *kdf = EVP_KDF_fetch(nullptr, "HKDF", nullptr);
    EVP_KDF_CTX *ctx = kdf != nullptr ? EVP_KDF_CTX_new(kdf) : nullptr;
    OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, const_cast<char *>("SHA256"), 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, const_cast<char *>(material),
                                          std::strlen(material)),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, const_cast<char *>(kSalt), sizeof kSalt - 1),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, info.data(), info.size()),
        OSSL_PARAM_construct_end()};
    bool ok = ctx != nullptr && EVP_KDF_derive(ctx, out, sizeof out, params) == 1;
    EVP_KDF_CTX_free(ctx);
    EVP_KDF_free(kdf);
    if (!deviceKey.empty()) OPENSSL_cleanse(deviceKey.data(), deviceKey.size());
    if (!ok) return NUK_CRYPT_ERR_LIBRARY;
    std::memcpy(keys.enc, out, alg.keyLen);
    std::memcpy(keys.mac, out + 32, kMacKeyLen);
    OPENSSL_cleanse(out, sizeof out);
    return 0;
}

// Runs the AEAD in one direction; on decryption `tag` is checked, on encryption it is written.
bool RunAead(const Algorithm &alg, bool encrypt, const DerivedKeys &keys, const unsigned char *nonce,
             const std::string &aad, const unsigned char *in, size_t inLen, unsigned char *out,
             unsigned char *tag) {
    EVP_CIPHER *cipher = EVP_CIPHER_fetch(nullptr, alg.name, nullptr);
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    int len = 0;
    bool ok = cipher != nullptr && ctx != nullptr &&
              EVP_CipherInit_ex2(ctx, cipher, nullptr, nullptr, encrypt ? 1 : 0, nullptr) == 1 &&
              EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_AEAD_SET_IVLEN, kNonceLen, nullptr) == 1 &&
              EVP_CipherInit_ex2(ctx, nullptr, keys.enc, nonce, encrypt ? 1 : 0, nullptr) == 1 &&
              EVP_CipherUpdate(ctx, nullptr, &len, reinterpret_cast<const unsigned char *>(aad.data()),
                               static_cast<int>(aad.size())) == 1;
    if (ok && inLen > 0) ok = EVP_CipherUpdate(ctx, out, &len, in, static_cast<int>(inLen)) == 1;
    if (ok && !encrypt) ok = EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_AEAD_SET_TAG, kTagLen, tag) == 1;
    if (ok) ok = EVP_CipherFinal_ex(ctx, out + (inLen > 0 ? len : 0), &len) == 1;
    if (ok && encrypt) ok = EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_AEAD_GET_TAG, kTagLen, tag) == 1;
    EVP_CIPHER_CTX_free(ctx);
    EVP_CIPHER_free(cipher);
    return ok;
}

// A parsed cipher text: algorithm number and the decoded nonce | bytes | tag.
struct Parsed {
    uint32_t algorithm = 0;
    std::string header;
    std::vector<unsigned char> body;
};

// Longer texts are no cipher texts of this service (its outputs fit a few hundred bytes).
constexpr size_t kMaxCipherText = 1 << 20;

bool Parse(const char *text, size_t len, Parsed &parsed) {
    if (len > kMaxCipherText) return false;
    std::string_view view(text, len);
    size_t prefixLen = std::strlen(kPrefix);
    if (view.substr(0, prefixLen) != kPrefix) return false;
    size_t dollar = view.find('$', prefixLen);
    if (dollar == std::string_view::npos || dollar == prefixLen || dollar - prefixLen > 9) return false;
    uint64_t number = 0;
    for (size_t i = prefixLen; i < dollar; ++i) {
        if (view[i] < '0' || view[i] > '9') return false;
        number = number * 10 + static_cast<uint64_t>(view[i] - '0');
    }
    if (number > 0xFFFFFFFFu) return false;
    parsed.algorithm = static_cast<uint32_t>(number);
    parsed.header = std::string(view.substr(0, dollar + 1));
    if (!zakhost_crypt::Base64Decode(view.substr(dollar + 1), parsed.body)) return false;
    return parsed.body.size() >= kNonceLen + kTagLen;
}

} // namespace

extern "C" {

uint32_t NUK_CRYPT_Encrypt_Sec(const char *plain, uint32_t plainLen, char *out, uint32_t outSize,
                               uint32_t algorithm, const char *key, const uint8_t *iv) {
    int64_t injectedResult = 0;
    if (zakhost::injected("NUK_CRYPT_Encrypt_Sec", &injectedResult))
        return injectedResult == 0 ? NUK_CRYPT_ERR_LIBRARY : static_cast<uint32_t>(injectedResult);
    if (plain == nullptr || out == nullptr || outSize == 0 || key == nullptr || iv == nullptr)
        return NUK_CRYPT_ERR_PARAM;
    out[0] = '\0';
    const Algorithm *alg = FindAlgorithm(algorithm);
    if (alg == nullptr) return NUK_CRYPT_ERR_ALGORITHM;
    size_t len = strnlen(plain, plainLen);
    std::string header = Header(algorithm);
    size_t bodyLen = kNonceLen + len + kTagLen;
    if (header.size() + zakhost_crypt::Base64Length(bodyLen) + 1 > outSize) return NUK_CRYPT_ERR_BUFFER;

    DerivedKeys keys;
    uint32_t rc = DeriveKeys(*alg, key, keys);
    if (rc != 0) return rc;
    std::vector<unsigned char> body(bodyLen);
    unsigned char mac[32];
    // nonce = HMAC(mac key, iv | plain)
    std::vector<unsigned char> macInput(NUK_CRYPT_IV_LEN + len);
    std::memcpy(macInput.data(), iv, NUK_CRYPT_IV_LEN);
    if (len > 0) std::memcpy(macInput.data() + NUK_CRYPT_IV_LEN, plain, len);
    unsigned int macLen = 0;
    bool ok =
        HMAC(EVP_sha256(), keys.mac, kMacKeyLen, macInput.data(), macInput.size(), mac, &macLen) != nullptr;
    OPENSSL_cleanse(macInput.data(), macInput.size());
    if (!ok) return NUK_CRYPT_ERR_LIBRARY;
    std::memcpy(body.data(), mac, kNonceLen);
    if (!RunAead(*alg, true, keys, body.data(), header, reinterpret_cast<const unsigned char *>(plain), len,
                 body.data() + kNonceLen, body.data() + kNonceLen + len))
        return NUK_CRYPT_ERR_LIBRARY;
    std::string text = header + zakhost_crypt::Base64Encode(body.data(), body.size());
    std::memcpy(out, text.c_str(), text.size() + 1);
    return 0;
}

uint32_t NUK_CRYPT_Decrypt_Sec(const char *cipher, uint32_t cipherLen, char *out, uint32_t outSize,
                               uint32_t algorithm, const char *key) {
    int64_t injectedResult = 0;
    if (zakhost::injected("NUK_CRYPT_Decrypt_Sec", &injectedResult))
        return injectedResult == 0 ? NUK_CRYPT_ERR_LIBRARY : static_cast<uint32_t>(injectedResult);
    if (cipher == nullptr || out == nullptr || outSize == 0 || key == nullptr) return NUK_CRYPT_ERR_PARAM;
    out[0] = '\0';
    Parsed parsed;
    if (!Parse(cipher, strnlen(cipher, cipherLen), parsed)) return NUK_CRYPT_ERR_FORMAT;
    const Algorithm *alg = FindAlgorithm(algorithm);
    if (alg == nullptr) return NUK_CRYPT_ERR_ALGORITHM;
    if (parsed.algorithm != algorithm) return NUK_CRYPT_ERR_MISMATCH;
    size_t len = parsed.body.size() - kNonceLen - kTagLen;
    if (len + 1 > outSize) return NUK_CRYPT_ERR_BUFFER;
    DerivedKeys keys;
    uint32_t rc = DeriveKeys(*alg, key, keys);
    if (rc != 0) return rc;
    unsigned char *plain = reinterpret_cast<unsigned char *>(out);
    if (!RunAead(*alg, false, keys, parsed.body.data(), parsed.header, parsed.body.data() + kNonceLen, len,
                 plain, parsed.body.data() + kNonceLen + len)) {
        OPENSSL_cleanse(out, len + 1);
        return NUK_CRYPT_ERR_AUTH;
    }
    out[len] = '\0';
    return 0;
}

uint32_t NUK_DecryptPassword_Enh(const char *cipher, char *out) {
    if (zakhost::injected("NUK_DecryptPassword_Enh")) return NUK_CRYPT_ERR_LIBRARY;
    if (cipher == nullptr) return NUK_CRYPT_ERR_PARAM;
    return NUK_CRYPT_Decrypt_Sec(cipher, static_cast<uint32_t>(std::strlen(cipher)), out, 17,
                                 NUK_CRYPT_ALG_AES256_GCM, "");
}

uint32_t NUK_CRYPT_IsCipher(const char *text) {
    if (zakhost::injected("NUK_CRYPT_IsCipher")) return 1;
    if (text == nullptr) return 1;
    Parsed parsed;
    return Parse(text, std::strlen(text), parsed) && FindAlgorithm(parsed.algorithm) != nullptr ? 0 : 1;
}

} // extern "C"

namespace {

// The plain text behind one side of a comparison: a cipher text is decrypted, any other text is
// its own plain text. The result is wiped by the caller.
uint32_t PlainOf(const char *text, uint32_t len, uint32_t algorithm, const char *key, std::string &plain) {
    if (text == nullptr || key == nullptr) return NUK_CRYPT_ERR_PARAM;
    size_t n = strnlen(text, len);
    Parsed parsed;
    if (!Parse(text, n, parsed) || FindAlgorithm(parsed.algorithm) == nullptr) {
        plain.assign(text, n);
        return 0;
    }
    std::vector<char> buffer(n + 1);
    uint32_t rc = NUK_CRYPT_Decrypt_Sec(text, static_cast<uint32_t>(n), buffer.data(),
                                        static_cast<uint32_t>(buffer.size()), algorithm, key);
    if (rc == 0) plain.assign(buffer.data());
    OPENSSL_cleanse(buffer.data(), buffer.size());
    return rc;
}

uint32_t ComparePlain(const char *first, uint32_t firstLen, uint32_t firstAlgorithm, const char *firstKey,
                      const char *second, uint32_t secondLen, uint32_t secondAlgorithm,
                      const char *secondKey) {
    std::string a, b;
    uint32_t rc = PlainOf(first, firstLen, firstAlgorithm, firstKey, a);
    if (rc == 0) rc = PlainOf(second, secondLen, secondAlgorithm, secondKey, b);
    if (rc == 0) rc = a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0 ? 0 : 1;
    OPENSSL_cleanse(a.data(), a.size());
    OPENSSL_cleanse(b.data(), b.size());
    return rc;
}

} // namespace

extern "C" {

uint32_t NUK_CRYPT_IsPlainTextSame(const char *first, uint32_t firstLen, uint32_t firstAlgorithm,
                                   const char *second, uint32_t secondLen, uint32_t secondAlgorithm) {
    int64_t injectedResult = 0;
    if (zakhost::injected("NUK_CRYPT_IsPlainTextSame", &injectedResult))
        return injectedResult == 0 ? NUK_CRYPT_ERR_LIBRARY : static_cast<uint32_t>(injectedResult);
    return ComparePlain(first, firstLen, firstAlgorithm, "", second, secondLen, secondAlgorithm, "");
}

uint32_t NUK_CRYPT_IsPlainTextSame_Enhance(const char *first, uint32_t firstLen, uint32_t firstAlgorithm,
                                           const char *firstKey, const char *second, uint32_t secondLen,
                                           uint32_t secondAlgorithm, const char *secondKey) {
    int64_t injectedResult = 0;
    if (zakhost::injected("NUK_CRYPT_IsPlainTextSame_Enhance", &injectedResult))
        return injectedResult == 0 ? NUK_CRYPT_ERR_LIBRARY : static_cast<uint32_t>(injectedResult);
    return ComparePlain(first, firstLen, firstAlgorithm, firstKey, second, secondLen, secondAlgorithm,
                        secondKey);
}

} // extern "C"

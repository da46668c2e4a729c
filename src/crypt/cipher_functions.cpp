// Script functions that encrypt, decrypt and compare secrets through the platform cipher service,
// draw random bytes and make or check the system-password digest. They only marshal: the fixed
// buffers, which arguments reach the platform and the shape of the results are theirs; plain and
// key bytes live in SecretBuffers that are wiped when the call returns.
#include "binding/memory.h"
#include "binding/script_frame.h"
#include "crypt/secret_buffer.h"
#include "nuk_crypt.h"
#include "securec.h"

using qav::crypt::PushText;
using qav::crypt::SecretBuffer;

namespace {

constexpr uint32_t kPlainOut = 257;
constexpr uint32_t kCipherOut = 433;
constexpr uint32_t kHexBytes = 128;
constexpr const char *kNoKey = ""; // selects the platform's default key

// The script's out size, kept from exceeding the buffer the platform writes into.
uint32_t BoundedOutSize(uint32_t requested, uint32_t bufferSize) {
    return requested < bufferSize ? requested : bufferSize;
}

// The two fixed failure messages of the single-argument password functions.
bool OneTextArgument(lua_State *state, int32_t count, const char **text) {
    if (qav::ArgCount(state) != count) {
        QAV_Log(0, qav::kBaseLogCode, "QAV_GetEcmCid proc fail SYSDT_SPTI_GetTop. uiRet = %d \n", 1);
        return false;
    }
    *text = SYSDT_SPTI_ToString(state, 1);
    if (*text == nullptr) {
        QAV_Log(0, qav::kBaseLogCode, "QAV_GetEcmCid proc fail SYSDT_SPTI_ToString. uiRet = %d \n", 1);
        return false;
    }
    return true;
}

int PushStatusAndText(lua_State *state, uint32_t status, const char *text, uint32_t size) {
    SYSDT_SPTI_PushUInt(state, status);
    PushText(state, text, size);
    return 2;
}

int PushEmptyCipher(lua_State *state) {
    SYSDT_SPTI_PushLString(state, "", 0);
    return 1;
}

// A fresh IV; a failed draw leaves the zero-filled buffer, the platform result is not looked at.
void DrawIv(uint8_t *iv) {
    (void)CRYPT_random(iv, NUK_CRYPT_IV_LEN);
}

struct EncryptRequest {
    const char *plain;
    uint32_t plainLen;
    uint32_t outSize;
    uint32_t algorithm;
    const char *key;
};

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

} // namespace

extern "C" {

// Turns hex text into bytes, two characters per byte; an odd last character is ignored. 0 on
// success; 1 for a text of more than 2 * size characters or a pair that is not hexadecimal.
__attribute__((visibility("default"))) uint32_t QAV_GetKeyValue(const char *hex, uint8_t *out,
                                                                uint32_t size) {
    if (hex == nullptr || out == nullptr) return qav::kFailed;
    size_t len = strnlen(hex, 2 * static_cast<size_t>(size) + 1);
    if (len > 2 * static_cast<size_t>(size)) return qav::kFailed;
    for (size_t i = 0; i + 1 < len; i += 2) {
        int high = HexDigit(hex[i]), low = HexDigit(hex[i + 1]);
        if (high < 0 || low < 0) return qav::kFailed;
        out[i / 2] = static_cast<uint8_t>(high << 4 | low);
    }
    return qav::kOk;
}

QAV_ENTRY_FUNCTION QAV_DecryptPassword_Enh(lua_State *state) {
    constexpr uint32_t kPasswordOut = 17;
    SecretBuffer<kPasswordOut> plain("qav_DecryptPassword_Enh plain");
    const char *cipher = nullptr;
    if (!OneTextArgument(state, 1, &cipher)) return PushStatusAndText(state, qav::kFailed, "", 1);
    uint32_t status = NUK_DecryptPassword_Enh(cipher, plain.chars());
    return PushStatusAndText(state, status, plain.chars(), plain.size());
}

QAV_ENTRY_FUNCTION QAV_DecryptPassword_EnhExp(lua_State *state) {
    SecretBuffer<kPlainOut> plain("qav_DecryptPassword_EnhExp plain");
    uint32_t cipherLen = 0;
    const char *cipher = qav::ArgsMatch(state, ".") ? SYSDT_SPTI_ToLString(state, 1, &cipherLen) : nullptr;
    if (cipher == nullptr) return PushStatusAndText(state, qav::kFailed, "", 1);
    uint32_t status = NUK_CRYPT_Decrypt_Sec(cipher, cipherLen, plain.chars(), plain.size(), 0, kNoKey);
    return PushStatusAndText(state, status, plain.chars(), plain.size());
}

QAV_ENTRY_FUNCTION QAV_CRYPT_Decrypt(lua_State *state) {
    SecretBuffer<kPlainOut> plain("qav_CRYPT_Decrypt plain");
    uint32_t cipherLen = 0;
    const char *cipher = qav::ArgsMatch(state, "....") ? SYSDT_SPTI_ToLString(state, 1, &cipherLen) : nullptr;
    if (cipher == nullptr) return PushStatusAndText(state, qav::kFailed, "", 1);
    uint32_t outSize = BoundedOutSize(SYSDT_SPTI_ToUInt(state, 3), plain.size());
    uint32_t algorithm = SYSDT_SPTI_ToUInt(state, 4);
    uint32_t status = NUK_CRYPT_Decrypt_Sec(cipher, cipherLen, plain.chars(), outSize, algorithm, kNoKey);
    // Every platform failure reaches the script as 1.
    return PushStatusAndText(state, status == 0 ? qav::kOk : qav::kFailed, plain.chars(), plain.size());
}

QAV_ENTRY_FUNCTION QAV_CRYPT_Decrypt_Enhance(lua_State *state) {
    SecretBuffer<kPlainOut> plain("qav_CRYPT_Decrypt_Enhance plain");
    if (!qav::ArgsMatch(state, "s...s")) return PushStatusAndText(state, qav::kFailed, "", 1);
    const char *cipher = SYSDT_SPTI_ToString(state, 1);
    const char *key = SYSDT_SPTI_ToString(state, 5);
    uint32_t status = NUK_CRYPT_Decrypt_Sec(cipher, SYSDT_SPTI_ToUInt(state, 2), plain.chars(),
                                            BoundedOutSize(SYSDT_SPTI_ToUInt(state, 3), plain.size()),
                                            SYSDT_SPTI_ToUInt(state, 4), key);
    // A platform failure pushes nothing and still reports one result, so the script reads its own
    // last argument (the key) as the result; callers test the text, and they rely on this.
    if (status != 0) return 1;
    return PushStatusAndText(state, status, plain.chars(), plain.size());
}

QAV_ENTRY_FUNCTION QAV_EncryptPassword_EnhExp(lua_State *state) {
    SecretBuffer<kCipherOut> cipher("qav_EncryptPassword_EnhExp cipher");
    uint8_t iv[NUK_CRYPT_IV_LEN] = {};
    const char *plain = nullptr;
    if (!OneTextArgument(state, 2, &plain)) return PushStatusAndText(state, qav::kFailed, "", 1);
    DrawIv(iv);
    // The platform result is not looked at: a failure leaves the cipher text empty.
    (void)NUK_CRYPT_Encrypt_Sec(plain, static_cast<uint32_t>(strlen(plain)), cipher.chars(), cipher.size(), 0,
                                kNoKey, iv);
    return PushStatusAndText(state, qav::kOk, cipher.chars(), cipher.size());
}

} // extern "C"

namespace {

// The three script encrypt functions push the cipher text alone, empty on any failure.
int EncryptToScript(lua_State *state, const EncryptRequest &request, const uint8_t *iv, char *out,
                    uint32_t size) {
    uint32_t status =
        NUK_CRYPT_Encrypt_Sec(request.plain, request.plainLen, out, BoundedOutSize(request.outSize, size),
                              request.algorithm, request.key, iv);
    if (status != 0) return PushEmptyCipher(state);
    PushText(state, out, size);
    return 1;
}

} // namespace

extern "C" {

QAV_ENTRY_FUNCTION QAV_CRYPT_Encrypt(lua_State *state) {
    // The cipher buffer is left as it is after the call: it holds no plain text.
    char cipher[kCipherOut] = {};
    uint8_t iv[NUK_CRYPT_IV_LEN] = {};
    if (!qav::ArgsMatch(state, "s....")) return PushEmptyCipher(state);
    const char *plain = SYSDT_SPTI_ToString(state, 1);
    DrawIv(iv);
    // The stated plain length reaches the platform unchanged, even when it exceeds the text.
    EncryptRequest request{plain, SYSDT_SPTI_ToUInt(state, 2), SYSDT_SPTI_ToUInt(state, 3),
                           SYSDT_SPTI_ToUInt(state, 5), kNoKey};
    return EncryptToScript(state, request, iv, cipher, sizeof cipher);
}

QAV_ENTRY_FUNCTION QAV_CRYPT_Encrypt_Enhance(lua_State *state) {
    char cipher[kCipherOut] = {};
    uint8_t iv[NUK_CRYPT_IV_LEN] = {};
    if (!qav::ArgsMatch(state, "s...s")) return PushEmptyCipher(state);
    const char *plain = SYSDT_SPTI_ToString(state, 1);
    const char *key = SYSDT_SPTI_ToString(state, 5);
    DrawIv(iv);
    EncryptRequest request{plain, static_cast<uint32_t>(strlen(plain)), SYSDT_SPTI_ToUInt(state, 3),
                           SYSDT_SPTI_ToUInt(state, 4), key};
    return EncryptToScript(state, request, iv, cipher, sizeof cipher);
}

QAV_ENTRY_FUNCTION QAV_CRYPT_Encrypt_Enhance_IV(lua_State *state) {
    SecretBuffer<kCipherOut> cipher("qav_CRYPT_Encrypt_Enhance_IV cipher");
    uint8_t iv[NUK_CRYPT_IV_LEN] = {};
    if (!qav::ArgsMatch(state, "s...ss")) return PushEmptyCipher(state);
    const char *plain = SYSDT_SPTI_ToString(state, 1);
    const char *key = SYSDT_SPTI_ToString(state, 5);
    uint32_t ivLen = 0;
    const char *ivText = SYSDT_SPTI_ToLString(state, 6, &ivLen);
    // The platform reads 16 IV bytes: a shorter text is padded with zeros, a longer one cut.
    (void)memcpy_s(iv, sizeof iv, ivText, ivLen < sizeof iv ? ivLen : sizeof iv);
    EncryptRequest request{plain, static_cast<uint32_t>(strlen(plain)), SYSDT_SPTI_ToUInt(state, 3),
                           SYSDT_SPTI_ToUInt(state, 4), key};
    return EncryptToScript(state, request, iv, cipher.chars(), cipher.size());
}

QAV_ENTRY_FUNCTION QAV_CRYPT_IsCipher(lua_State *state) {
    if (!qav::ArgsMatch(state, "s")) return qav::ReturnUInt(state, qav::kFailed);
    return qav::ReturnUInt(state, NUK_CRYPT_IsCipher(SYSDT_SPTI_ToString(state, 1)));
}

QAV_ENTRY_FUNCTION QAV_CRYPT_IsPlainTextSame(lua_State *state) {
    if (!qav::ArgsMatch(state, "s..s..")) return qav::ReturnUInt(state, qav::kFailed);
    const char *first = SYSDT_SPTI_ToString(state, 1);
    const char *second = SYSDT_SPTI_ToString(state, 4);
    return qav::ReturnUInt(
        state, NUK_CRYPT_IsPlainTextSame(first, SYSDT_SPTI_ToUInt(state, 2), SYSDT_SPTI_ToUInt(state, 3),
                                         second, SYSDT_SPTI_ToUInt(state, 5), SYSDT_SPTI_ToUInt(state, 6)));
}

QAV_ENTRY_FUNCTION QAV_CRYPT_IsPlainTextSame_Enhance(lua_State *state) {
    if (!qav::ArgsMatch(state, "s..ss..s")) return qav::ReturnUInt(state, qav::kFailed);
    const char *first = SYSDT_SPTI_ToString(state, 1);
    const char *firstKey = SYSDT_SPTI_ToString(state, 4);
    const char *second = SYSDT_SPTI_ToString(state, 5);
    const char *secondKey = SYSDT_SPTI_ToString(state, 8);
    return qav::ReturnUInt(state, NUK_CRYPT_IsPlainTextSame_Enhance(first, SYSDT_SPTI_ToUInt(state, 2),
                                                                    SYSDT_SPTI_ToUInt(state, 3), firstKey,
                                                                    second, SYSDT_SPTI_ToUInt(state, 6),
                                                                    SYSDT_SPTI_ToUInt(state, 7), secondKey));
}

QAV_ENTRY_FUNCTION QAV_DESLUA_EncryptSystemPassword(lua_State *state) {
    constexpr uint32_t kDigestOut = 33;
    char digest[kDigestOut] = {};
    const char *plain = nullptr;
    uint32_t status = qav::kFailed;
    if (OneTextArgument(state, 1, &plain)) status = QAV_EncryptSystemPassword(plain, digest, sizeof digest);
    // The whole buffer, bytes after the digest's terminator included.
    SYSDT_SPTI_PushUInt(state, status);
    SYSDT_SPTI_PushLString(state, digest, sizeof digest);
    return 2;
}

QAV_ENTRY_FUNCTION QAV_VerifySystemPassword(lua_State *state) {
    uint32_t plainLen = 0;
    if (!qav::ArgsMatch(state, "ss")) return qav::ReturnUInt(state, qav::kFailed);
    const char *plain = SYSDT_SPTI_ToLString(state, 1, &plainLen);
    const char *digest = SYSDT_SPTI_ToString(state, 2);
    return qav::ReturnUInt(state, NUK_VerifySystemPassword(plain, plainLen, digest));
}

QAV_ENTRY_FUNCTION QAV_Generate_Randnum(lua_State *state) {
    uint32_t count = qav::ArgsMatch(state, ".") ? SYSDT_SPTI_ToUInt(state, 1) : 0;
    if (count == 0) return PushStatusAndText(state, qav::kFailed, "", 1);
    // A count of 0xFFFFFFFF (what -1 reads as) leaves no room for the extra byte: no block.
    auto *buffer =
        count == UINT32_MAX ? nullptr : static_cast<uint8_t *>(qav::PlatformAllocZeroed(count + 1));
    if (buffer == nullptr) {
        // The contents are undefined to callers, who look at the status; the bytes come from a
        // zero constant, as many as it holds.
        static const char kZeros[4096] = {};
        SYSDT_SPTI_PushUInt(state, qav::kFailed);
        SYSDT_SPTI_PushLString(state, kZeros, count < sizeof kZeros ? count : sizeof kZeros);
        return 2;
    }
    (void)CRYPT_random(buffer, count);
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    SYSDT_SPTI_PushLString(state, reinterpret_cast<const char *>(buffer), count);
    qav::crypt::Wipe(buffer, count + 1);
    qav::PlatformFree(buffer);
    return 2;
}

QAV_ENTRY_FUNCTION QAV_CRYPT_Decrypt_Ext(lua_State *state) {
    SecretBuffer<kHexBytes> key("qav_CRYPT_Decrypt_Ext key");
    SecretBuffer<kHexBytes> iv("qav_CRYPT_Decrypt_Ext iv");
    SecretBuffer<kHexBytes> cipher("qav_CRYPT_Decrypt_Ext cipher");
    constexpr uint32_t kExtPlainOut = 256;
    SecretBuffer<kExtPlainOut> plain("qav_CRYPT_Decrypt_Ext plain");
    if (!qav::ArgsMatch(state, ".s.s.s.") || SYSDT_SPTI_ToUInt(state, 1) > 1)
        return PushStatusAndText(state, qav::kFailed, "", 1);
    uint32_t mode = SYSDT_SPTI_ToUInt(state, 1);
    const char *keyHex = SYSDT_SPTI_ToString(state, 2);
    const char *ivHex = SYSDT_SPTI_ToString(state, 4);
    const char *cipherHex = SYSDT_SPTI_ToString(state, 6);
    if (QAV_GetKeyValue(keyHex, key.bytes(), key.size()) != qav::kOk ||
        QAV_GetKeyValue(ivHex, iv.bytes(), iv.size()) != qav::kOk ||
        QAV_GetKeyValue(cipherHex, cipher.bytes(), cipher.size()) != qav::kOk)
        return PushStatusAndText(state, qav::kFailed, "", 1);
    // The stated hex lengths, halved, are what the crypto library is told; a stated length beyond
    // the 128-byte buffers is refused rather than read past them.
    uint32_t keyLen = SYSDT_SPTI_ToUInt(state, 3) / 2;
    uint32_t ivLen = SYSDT_SPTI_ToUInt(state, 5) / 2;
    uint32_t cipherLen = SYSDT_SPTI_ToUInt(state, 7) / 2;
    if (keyLen > kHexBytes || ivLen > kHexBytes || cipherLen > kHexBytes)
        return PushStatusAndText(state, qav::kFailed, "", 1);
    uint32_t outLen = 0;
    uint32_t algorithm = mode == 1 ? CRYPT_ALG_AES_CBC_NOPAD : CRYPT_ALG_AES_CBC_PKCS7;
    uint32_t status = CRYPT_decrypt(algorithm, key.bytes(), keyLen, iv.bytes(), ivLen, cipher.bytes(),
                                    cipherLen, plain.bytes(), &outLen, plain.size());
    return PushStatusAndText(state, status, plain.chars(), plain.size());
}

} // extern "C"

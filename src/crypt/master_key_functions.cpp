// Script functions over the device master key: default or set, its hash as text, a typed key
// checked for strength and for a match, the activation and configuration statuses, and the
// back-off after a failed authentication.
#include <cctype>
#include <ctime>

#include "binding/script_frame.h"
#include "crypt/secret_buffer.h"
#include "os_env.h"
#include "qav_mk.h"
#include "securec.h"
#include "zak_systime.h"

extern "C" {
// Seconds of CPU run time at the last failed authentication; 0 when there was none.
__attribute__((visibility("default"))) uint32_t g_uiLastAuthFailTimeS = 0;
}

namespace {

constexpr uint32_t kBackOffSeconds = 16;
constexpr size_t kStrongKeyMinLength = 20;
constexpr uint32_t kHashTextMax = 18; // hash texts must be shorter than this
constexpr uint32_t kHashTextOut = 17;
constexpr const char kDefaultHashText[] = "0000000000000000";

uint32_t CpuRunTimeSeconds() {
    uint32_t seconds = 0, rest = 0;
    (void)ZAK_GetCPURunTime(&seconds, &rest);
    return seconds;
}

// Digit, lower, upper, punctuation: one bit each.
uint32_t CharacterClass(unsigned char c) {
    if (isdigit(c)) return 1;
    if (islower(c)) return 2;
    if (isupper(c)) return 4;
    if (ispunct(c)) return 8;
    return 0;
}

bool IsStrongKey(const char *key, size_t length) {
    if (length < kStrongKeyMinLength) return false;
    uint32_t seen = 0;
    for (size_t i = 0; i < length; ++i) {
        seen |= CharacterClass(static_cast<unsigned char>(key[i]));
        if (seen == 0xF) return true;
    }
    return false;
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) uint32_t NUK_CRYPT_GetMKHashStrValue(char *out, uint32_t size) {
    if (out == nullptr || size <= 2 * NUK_CRYPT_MK_HASH_LEN) return qav::kInvalidCall;
    uint8_t hash[NUK_CRYPT_MK_HASH_LEN] = {};
    uint32_t rc = NUK_CRYPT_GetMKHashValue(hash, sizeof hash);
    if (rc == 0) rc = NUK_CRYPT_HashValueToStr(hash, sizeof hash, out, size);
    qav::crypt::Wipe(hash, sizeof hash);
    return rc;
}

QAV_ENTRY_FUNCTION QAV_MK_CurrentKeyIsDefault(lua_State *state) {
    return qav::ReturnUIntPair(state, qav::kOk, NUK_CRYPT_IsDefaultMK() != 0 ? 1 : 0);
}

QAV_ENTRY_FUNCTION QAV_MK_CheckHashHit(lua_State *state) {
    uint32_t length = 0;
    const char *text = qav::ArgsMatch(state, ".") ? SYSDT_SPTI_ToLString(state, 1, &length) : nullptr;
    if (text == nullptr || length >= kHashTextMax) return qav::ReturnUInt(state, qav::kInvalidCall);
    uint8_t hash[NUK_CRYPT_MK_HASH_LEN] = {};
    uint32_t hit = 0;
    bool ok = NUK_CRYPT_StrToHashValue(text, length, hash, sizeof hash) == 0 &&
              NUK_CRYPT_CheckHashHit(hash, sizeof hash, &hit) == 0;
    if (!ok) return qav::ReturnUInt(state, qav::kInvalidCall);
    return qav::ReturnUIntPair(state, qav::kOk, hit != 0 ? 1 : 0);
}

QAV_ENTRY_FUNCTION QAV_MK_CheckInputMkIsRight(lua_State *state) {
    // With the default key in place any input is taken as right.
    if (NUK_CRYPT_IsDefaultMK() != 0) {
        return qav::ReturnUIntPair(state, qav::kOk, 1);
    }
    const char *key = SYSDT_SPTI_ToString(state, 1);
    uint32_t match = 0;
    if (key == nullptr || QAV_MK_CheckInputKeyAndMk(key, &match) != 0) {
        return qav::ReturnUIntPair(state, qav::kInvalidCall, 0);
    }
    return qav::ReturnUIntPair(state, qav::kOk, match != 0 ? 1 : 0);
}

QAV_ENTRY_FUNCTION QAV_MK_CheckMKActiveStatus(lua_State *state) {
    return qav::ReturnUInt(state, QAV_MK_GetActiveStatus());
}

QAV_ENTRY_FUNCTION QAV_MK_SetMKActiveStatus(lua_State *state) {
    (void)QAV_MK_SetActiveStatus(0);
    return qav::ReturnUInt(state, qav::kOk);
}

QAV_ENTRY_FUNCTION QAV_MK_VerifySystemPassword(lua_State *state) {
    if (!qav::ArgsMatch(state, "sss")) return qav::ReturnUInt(state, qav::kInvalidCall);
    return qav::ReturnUInt(state, SMP_VerifySystemPassword(SYSDT_SPTI_ToString(state, 1),
                                                           SYSDT_SPTI_ToString(state, 2),
                                                           SYSDT_SPTI_ToString(state, 3)));
}

QAV_ENTRY_FUNCTION QAV_MK_RefreshAuthenFailTime(lua_State *) {
    g_uiLastAuthFailTimeS = CpuRunTimeSeconds();
    return 0;
}

QAV_ENTRY_FUNCTION QAV_MK_CheckAuthenDisabled(lua_State *state) {
    uint32_t now = CpuRunTimeSeconds();
    uint32_t failedAt = g_uiLastAuthFailTimeS;
    bool disabled = failedAt != 0 && failedAt <= now && now - failedAt < kBackOffSeconds;
    SYSDT_SPTI_PushBool(state, disabled ? 1 : 0);
    return 1;
}

QAV_ENTRY_FUNCTION QAV_MK_GetMKConfigStatus(lua_State *state) {
    return qav::ReturnUInt(state, ZAK_GetMKConfigStatus());
}

QAV_ENTRY_FUNCTION QAV_MK_SetMKConfigStatus(lua_State *state) {
    if (!qav::ArgsMatch(state, ".")) return qav::ReturnInt(state, -1);
    (void)ZAK_SetMKConfigStatus(static_cast<uint32_t>(SYSDT_SPTI_ToInt(state, 1)));
    return qav::ReturnInt(state, 0);
}

QAV_ENTRY_FUNCTION QAV_MK_InputKeyIsSecurity(lua_State *state) {
    uint32_t length = 0;
    const char *key = qav::ValueIs(state, 1, 's') ? SYSDT_SPTI_ToLString(state, 1, &length) : nullptr;
    return qav::ReturnUInt(state, key != nullptr && IsStrongKey(key, length) ? 1 : 0);
}

QAV_ENTRY_FUNCTION QAV_MK_GetMKHashValue(lua_State *state) {
    if (NUK_CRYPT_IsDefaultMK() != 0) {
        SYSDT_SPTI_PushUInt(state, qav::kOk);
        SYSDT_SPTI_PushLString(state, kDefaultHashText, sizeof kDefaultHashText - 1);
        return 2;
    }
    char text[kHashTextOut] = {};
    if (NUK_CRYPT_GetMKHashStrValue(text, sizeof text) != 0 || strnlen(text, sizeof text) >= kHashTextOut)
        return qav::ReturnUInt(state, qav::kInvalidCall);
    SYSDT_SPTI_PushUInt(state, qav::kOk);
    qav::crypt::PushText(state, text, sizeof text);
    return 2;
}

} // extern "C"

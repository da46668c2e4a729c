// Text conversions of the OS abstraction.
#include <cstdio>

#include "host.h"
#include "nuk_string.h"

void zakhost::write_hex(const uint8_t *bytes, size_t length, char *out, bool lowerCase) {
    const char *digits = lowerCase ? "0123456789abcdef" : "0123456789ABCDEF";
    for (size_t i = 0; i < length; ++i) {
        out[2 * i] = digits[bytes[i] >> 4];
        out[2 * i + 1] = digits[bytes[i] & 0xF];
    }
    out[2 * length] = '\0';
}

extern "C" {

uint32_t NUK_IpAddrToStr(uint32_t address, char *text) {
    if (zakhost::injected("NUK_IpAddrToStr") || text == nullptr) return 1;
    std::snprintf(text, 16, "%u.%u.%u.%u", address >> 24, (address >> 16) & 0xFF, (address >> 8) & 0xFF,
                  address & 0xFF);
    return 0;
}

uint32_t NUK_BinToAsc(const uint8_t *bytes, int32_t length, char *text, uint32_t lowerCase) {
    if (zakhost::injected("NUK_BinToAsc") || bytes == nullptr || text == nullptr || length < 0 ||
        static_cast<uint32_t>(length) > NUK_BIN_TO_ASC_MAX_BYTES)
        return 1;
    zakhost::write_hex(bytes, static_cast<size_t>(length), text, lowerCase != 0);
    return 0;
}

uint32_t NUK_StrToUint32(const char *text, uint32_t *value) {
    if (zakhost::injected("NUK_StrToUint32") || text == nullptr || value == nullptr || *text == '\0')
        return 1;
    uint64_t result = 0;
    for (const char *p = text; *p != '\0'; ++p) {
        if (*p < '0' || *p > '9') return 1;
        result = result * 10 + static_cast<uint64_t>(*p - '0');
        if (result > 0xFFFFFFFFu) return 1;
    }
    *value = static_cast<uint32_t>(result);
    return 0;
}

} // extern "C"

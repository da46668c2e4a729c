// Bounds-checked memory and string functions; the contract is in securec.h.
#include "securec.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

bool bad_size(size_t destMax) {
    return destMax == 0 || destMax > SECUREC_STRING_MAX_LEN;
}

bool overlaps(const void *a, size_t aLen, const void *b, size_t bLen) {
    auto x = reinterpret_cast<uintptr_t>(a);
    auto y = reinterpret_cast<uintptr_t>(b);
    return x < y + bLen && y < x + aLen;
}

// The checks every string copy and append starts with; EOK when the call may go on. Failures
// after a valid destination reset it.
errno_t check_string_call(char *dest, size_t destMax, const char *src, size_t count) {
    if (bad_size(destMax)) return SECUREC_ERANGE;
    if (dest == nullptr) return SECUREC_EINVAL;
    if (src == nullptr) {
        dest[0] = '\0';
        return EINVAL_AND_RESET;
    }
    if (count != SIZE_MAX && count > SECUREC_STRING_MAX_LEN) {
        dest[0] = '\0';
        return ERANGE_AND_RESET;
    }
    return EOK;
}

// Appends at most `count` characters of src (the whole of it when count is SIZE_MAX).
errno_t append(char *dest, size_t destMax, const char *src, size_t count) {
    if (errno_t rc = check_string_call(dest, destMax, src, count); rc != EOK) return rc;
    size_t destLen = strnlen(dest, destMax);
    if (destLen == destMax) { // the destination holds no terminator
        dest[0] = '\0';
        return EINVAL_AND_RESET;
    }
    size_t srcLen = strnlen(src, count == SIZE_MAX ? destMax : count);
    if (destLen + srcLen >= destMax) {
        dest[0] = '\0';
        return ERANGE_AND_RESET;
    }
    if (overlaps(dest, destLen + srcLen + 1, src, srcLen + 1)) {
        dest[0] = '\0';
        return EOVERLAP_AND_RESET;
    }
    memcpy(dest + destLen, src, srcLen);
    dest[destLen + srcLen] = '\0';
    return EOK;
}

// Copies at most `count` characters of src (the whole of it when count is SIZE_MAX).
errno_t copy(char *dest, size_t destMax, const char *src, size_t count) {
    if (errno_t rc = check_string_call(dest, destMax, src, count); rc != EOK) return rc;
    size_t srcLen = strnlen(src, count == SIZE_MAX ? destMax : count);
    if (srcLen >= destMax) {
        dest[0] = '\0';
        return ERANGE_AND_RESET;
    }
    if (dest == src) return EOK;
    if (overlaps(dest, srcLen + 1, src, srcLen + 1)) {
        dest[0] = '\0';
        return EOVERLAP_AND_RESET;
    }
    memcpy(dest, src, srcLen);
    dest[srcLen] = '\0';
    return EOK;
}

// The formatting core: `count` is the character limit, `resetOnCut` says whether output cut by
// the limit empties the destination (true) or stays cut (false).
int format_into(char *dest, size_t destMax, size_t count, bool resetOnCut, const char *format,
                va_list values) {
    if (bad_size(destMax)) return -1;
    if (dest == nullptr) return -1;
    if (format == nullptr || count > SECUREC_STRING_MAX_LEN) {
        dest[0] = '\0';
        return -1;
    }
    size_t limit = count < destMax ? count : destMax - 1;
    int written = vsnprintf(dest, limit + 1, format, values);
    if (written < 0) {
        dest[0] = '\0';
        return -1;
    }
    if (static_cast<size_t>(written) > limit) {
        if (resetOnCut) dest[0] = '\0';
        return -1;
    }
    return written;
}

} // namespace

extern "C" {

errno_t memcpy_s(void *dest, size_t destMax, const void *src, size_t count) {
    if (destMax == 0 || destMax > SECUREC_MEM_MAX_LEN) return SECUREC_ERANGE;
    if (dest == nullptr) return SECUREC_EINVAL;
    if (src == nullptr) {
        memset(dest, 0, destMax);
        return EINVAL_AND_RESET;
    }
    if (count > destMax) {
        memset(dest, 0, destMax);
        return ERANGE_AND_RESET;
    }
    if (count == 0 || dest == src) return EOK;
    if (overlaps(dest, count, src, count)) {
        memset(dest, 0, destMax);
        return EOVERLAP_AND_RESET;
    }
    memcpy(dest, src, count);
    return EOK;
}

errno_t memset_s(void *dest, size_t destMax, int c, size_t count) {
    if (destMax == 0 || destMax > SECUREC_MEM_MAX_LEN) return SECUREC_ERANGE;
    if (dest == nullptr) return SECUREC_EINVAL;
    if (count > destMax) {
        memset(dest, c, destMax);
        return ERANGE_AND_RESET;
    }
    // Through a volatile pointer so that clearing a secret before it goes out of scope survives
    // the optimiser.
    volatile unsigned char *p = static_cast<volatile unsigned char *>(dest);
    for (size_t i = 0; i < count; ++i)
        p[i] = static_cast<unsigned char>(c);
    return EOK;
}

errno_t strcpy_s(char *dest, size_t destMax, const char *src) {
    return copy(dest, destMax, src, SIZE_MAX);
}

errno_t strncpy_s(char *dest, size_t destMax, const char *src, size_t count) {
    if (count == 0 && !bad_size(destMax) && dest != nullptr && src != nullptr) {
        dest[0] = '\0';
        return EOK;
    }
    return copy(dest, destMax, src, count);
}

errno_t strcat_s(char *dest, size_t destMax, const char *src) {
    return append(dest, destMax, src, SIZE_MAX);
}

errno_t strncat_s(char *dest, size_t destMax, const char *src, size_t count) {
    return append(dest, destMax, src, count);
}

int vsnprintf_s(char *dest, size_t destMax, size_t count, const char *format, va_list values) {
    return format_into(dest, destMax, count, count >= destMax, format, values);
}

int snprintf_s(char *dest, size_t destMax, size_t count, const char *format, ...) {
    va_list values;
    va_start(values, format);
    int result = vsnprintf_s(dest, destMax, count, format, values);
    va_end(values);
    return result;
}

int sprintf_s(char *dest, size_t destMax, const char *format, ...) {
    va_list values;
    va_start(values, format);
    int result = format_into(dest, destMax, destMax, true, format, values);
    va_end(values);
    return result;
}

int snprintf_truncated_s(char *dest, size_t destMax, const char *format, ...) {
    if (bad_size(destMax) || dest == nullptr) return -1;
    if (format == nullptr) {
        dest[0] = '\0';
        return -1;
    }
    va_list values;
    va_start(values, format);
    int written = vsnprintf(dest, destMax, format, values);
    va_end(values);
    if (written < 0) {
        dest[0] = '\0';
        return -1;
    }
    return static_cast<size_t>(written) >= destMax ? static_cast<int>(destMax - 1) : written;
}

} // extern "C"

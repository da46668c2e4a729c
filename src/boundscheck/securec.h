/* Bounds-checked memory and string functions.
 *
 * The library copies every script text into fixed buffers with these. Their contract, shared by
 * all of them: `destMax` is the size of the destination in bytes and must lie in 1 to
 * SECUREC_STRING_MAX_LEN; a bad destMax or a null destination is refused without touching the
 * destination; every other failure resets the destination (the first byte for strings, the whole
 * destMax bytes for memory) and reports it with a code that has SECUREC_RESET_FLAG set.
 *
 * The formatting functions return the number of characters written, or -1 on failure:
 *   - snprintf_s/vsnprintf_s with count < destMax write at most `count` characters; output that is
 *     longer is cut there (the cut text stays in the destination) and the result is -1.
 *   - with count >= destMax the whole output must fit in destMax - 1 characters; otherwise the
 *     destination is reset to "" and the result is -1.
 *   - sprintf_s behaves as snprintf_s with count = destMax - 1 but resets on overflow.
 *   - snprintf_truncated_s always cuts to destMax - 1 and returns the length written. */
#ifndef QAV_SECUREC_H
#define QAV_SECUREC_H

#include <stdarg.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef __errno_t_defined
typedef int errno_t;
#define __errno_t_defined 1
#endif

#define EOK 0
#define SECUREC_RESET_FLAG 0x80
#define SECUREC_EINVAL 22
#define SECUREC_ERANGE 34
#define SECUREC_EOVERLAP 54
#define EINVAL_AND_RESET (SECUREC_EINVAL | SECUREC_RESET_FLAG)
#define ERANGE_AND_RESET (SECUREC_ERANGE | SECUREC_RESET_FLAG)
#define EOVERLAP_AND_RESET (SECUREC_EOVERLAP | SECUREC_RESET_FLAG)
#define SECUREC_STRING_MAX_LEN 0x7FFFFFFFUL
#define SECUREC_MEM_MAX_LEN 0x7FFFFFFFUL

errno_t memcpy_s(void *dest, size_t destMax, const void *src, size_t count);
errno_t memset_s(void *dest, size_t destMax, int c, size_t count);
errno_t strcpy_s(char *dest, size_t destMax, const char *src);
errno_t strncpy_s(char *dest, size_t destMax, const char *src, size_t count);
errno_t strcat_s(char *dest, size_t destMax, const char *src);
errno_t strncat_s(char *dest, size_t destMax, const char *src, size_t count);
int sprintf_s(char *dest, size_t destMax, const char *format, ...) __attribute__((format(printf, 3, 4)));
int snprintf_s(char *dest, size_t destMax, size_t count, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
int vsnprintf_s(char *dest, size_t destMax, size_t count, const char *format, va_list values)
    __attribute__((format(printf, 4, 0)));
int snprintf_truncated_s(char *dest, size_t destMax, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif

#endif

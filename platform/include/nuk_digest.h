/* File digests. */
#ifndef PLATFORM_NUK_DIGEST_H
#define PLATFORM_NUK_DIGEST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* SHA-256 of the file's contents as 64 lower-case hexadecimal characters into out. On entry
 * *length is the size of out (at least 64; the text is NUL-terminated when out has room for
 * it); on success *length is 64. 0 on success. */
uint32_t NUK_Crypt_Digest_Ex_HOOK(const char *path, char *out, uint32_t *length);

#ifdef __cplusplus
}
#endif

#endif

/* The device master key (MK): whether it is the default key, its 8-byte hash, its activation and
 * configuration status, and the device's system-password check. */
#ifndef PLATFORM_QAV_MK_H
#define PLATFORM_QAV_MK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes of a master-key hash. */
#define NUK_CRYPT_MK_HASH_LEN 8u

/* Status codes of the master-key services (0 is success). */
#define NUK_MK_ERR_PARAM 0x5A4B0001u  /* null pointer, wrong length or size */
#define NUK_MK_ERR_FORMAT 0x5A4B0002u /* not a hash text */
#define NUK_MK_ERR_NOKEY 0x5A4B0003u  /* the master key is unavailable */

/* 1 when the device's current master key is the default key, else 0. */
uint32_t NUK_CRYPT_IsDefaultMK(void);
/* Parses the hash text (hexadecimal, two characters per byte) into hash[hashLen]. */
uint32_t NUK_CRYPT_StrToHashValue(const char *text, uint32_t textLen, uint8_t *hash, uint32_t hashLen);
/* *hit = 1 when hash[hashLen] is the hash of the current master key, else 0. */
uint32_t NUK_CRYPT_CheckHashHit(const uint8_t *hash, uint32_t hashLen, uint32_t *hit);
/* The hash of the current master key into hash[hashLen]. */
uint32_t NUK_CRYPT_GetMKHashValue(uint8_t *hash, uint32_t hashLen);
/* The hash as upper-case hexadecimal text with a NUL into out[size]. */
uint32_t NUK_CRYPT_HashValueToStr(const uint8_t *hash, uint32_t hashLen, char *out, uint32_t size);
/* *match = 1 when the key text is the current master key, else 0. */
uint32_t QAV_MK_CheckInputKeyAndMk(const char *key, uint32_t *match);
/* The master key's activation status (0 not active, 1 active). */
uint32_t QAV_MK_GetActiveStatus(void);
uint32_t QAV_MK_SetActiveStatus(uint32_t status);
/* The master key's configuration status (0 not configured). */
uint32_t ZAK_GetMKConfigStatus(void);
uint32_t ZAK_SetMKConfigStatus(uint32_t status);
/* Checks the system password of an account: 0 when `password` matches `digest` (a digest of
 * QAV_EncryptSystemPassword) or, when digest is empty, the digest the device keeps for `account`;
 * 1 when it does not match; 2 for a missing argument or an account without a digest. */
uint32_t SMP_VerifySystemPassword(const char *account, const char *password, const char *digest);

#ifdef __cplusplus
}
#endif

#endif

/* The platform cipher service: authenticated encryption of configuration secrets, comparison of
 * plain texts behind cipher texts, the system-password digest, the crypto library's random source
 * and block-cipher decryption. Cipher texts are printable text; the empty key selects the device
 * key. Plain texts end at their first NUL byte or after the stated length, whichever comes first. */
#ifndef PLATFORM_NUK_CRYPT_H
#define PLATFORM_NUK_CRYPT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Algorithm numbers of NUK_CRYPT_Encrypt_Sec / NUK_CRYPT_Decrypt_Sec. */
#define NUK_CRYPT_ALG_AES256_GCM 0u
#define NUK_CRYPT_ALG_AES128_GCM 1u
#define NUK_CRYPT_ALG_CHACHA20_POLY1305 2u

/* Bytes of the initialisation vector NUK_CRYPT_Encrypt_Sec reads. */
#define NUK_CRYPT_IV_LEN 16u

/* Status codes of the cipher service (0 is success). */
#define NUK_CRYPT_ERR_PARAM 0x5A430001u     /* null pointer, zero length or size */
#define NUK_CRYPT_ERR_ALGORITHM 0x5A430002u /* unknown algorithm number */
#define NUK_CRYPT_ERR_BUFFER 0x5A430003u    /* the result does not fit the output size */
#define NUK_CRYPT_ERR_FORMAT 0x5A430004u    /* not a cipher text of this platform */
#define NUK_CRYPT_ERR_AUTH 0x5A430005u      /* wrong key or altered cipher text */
#define NUK_CRYPT_ERR_MISMATCH 0x5A430006u  /* the cipher text was made with another algorithm */
#define NUK_CRYPT_ERR_LIBRARY 0x5A430007u   /* the crypto library failed */
#define NUK_CRYPT_ERR_KEY 0x5A430008u       /* bad key or IV length, or no device key */

/* Encrypts plain[0..plainLen) (up to its first NUL) into a NUL-terminated printable cipher text
 * in out[outSize], with the key text `key` ("" = the device key) and the 16 bytes at iv. */
uint32_t NUK_CRYPT_Encrypt_Sec(const char *plain, uint32_t plainLen, char *out, uint32_t outSize,
                               uint32_t algorithm, const char *key, const uint8_t *iv);
/* Decrypts a cipher text of NUK_CRYPT_Encrypt_Sec into a NUL-terminated plain text in out. */
uint32_t NUK_CRYPT_Decrypt_Sec(const char *cipher, uint32_t cipherLen, char *out, uint32_t outSize,
                               uint32_t algorithm, const char *key);
/* Decrypts a password cipher text (algorithm 0, device key) into out[17]: at most 16 characters. */
uint32_t NUK_DecryptPassword_Enh(const char *cipher, char *out);
/* 0 when text is a cipher text of this platform, 1 when not. */
uint32_t NUK_CRYPT_IsCipher(const char *text);
/* 0 when the two texts hold the same plain text, 1 when not, else a status code. Each side is a
 * text with its length and algorithm: a cipher text is decrypted (with the device key or the key
 * given), any other text is taken as plain text. */
uint32_t NUK_CRYPT_IsPlainTextSame(const char *first, uint32_t firstLen, uint32_t firstAlgorithm,
                                   const char *second, uint32_t secondLen, uint32_t secondAlgorithm);
uint32_t NUK_CRYPT_IsPlainTextSame_Enhance(const char *first, uint32_t firstLen, uint32_t firstAlgorithm,
                                           const char *firstKey, const char *second, uint32_t secondLen,
                                           uint32_t secondAlgorithm, const char *secondKey);

/* The system-password digest: a salted, slow hash written as 32 printable characters and a NUL
 * into out[size >= 33]. 0 on success. */
uint32_t QAV_EncryptSystemPassword(const char *plain, char *out, uint32_t size);
/* 0 when plain[0..plainLen) matches the digest of QAV_EncryptSystemPassword, 1 when not, else a
 * status code. The comparison takes the same time wherever the digests differ. */
uint32_t NUK_VerifySystemPassword(const char *plain, uint32_t plainLen, const char *digest);

/* Fills buffer[0..length) from the operating system's random source; 0 on success. */
uint32_t CRYPT_random(uint8_t *buffer, uint32_t length);

/* Block-cipher algorithm numbers of CRYPT_decrypt. */
#define CRYPT_ALG_AES_CBC_PKCS7 0x1Bu
#define CRYPT_ALG_AES_CBC_NOPAD 0x1001Bu
/* Decrypts cipher[0..cipherLen) with key (16, 24 or 32 bytes: AES-128/192/256) and a 16-byte iv
 * into out[outSize]; *outLen receives the plain length. 0 on success, else a NUK_CRYPT_ERR_ code. */
uint32_t CRYPT_decrypt(uint32_t algorithm, const uint8_t *key, uint32_t keyLen, const uint8_t *iv,
                       uint32_t ivLen, const uint8_t *cipher, uint32_t cipherLen, uint8_t *out,
                       uint32_t *outLen, uint32_t outSize);

#ifdef __cplusplus
}
#endif

#endif

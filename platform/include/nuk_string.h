/* Text conversions of the OS abstraction. */
#ifndef PLATFORM_NUK_STRING_H
#define PLATFORM_NUK_STRING_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Dotted form of an IPv4 address held in host order (0xC0A80001 -> "192.168.0.1") into a
 * buffer of at least 16 bytes; 0 on success. */
uint32_t NUK_IpAddrToStr(uint32_t address, char *text);

/* Most bytes NUK_BinToAsc converts: its output buffer must hold 2 * 22 characters and a NUL. */
#define NUK_BIN_TO_ASC_MAX_BYTES 22u
/* Hexadecimal text of `length` bytes (two characters a byte, upper case when `lowerCase` is
 * 0, lower case otherwise) into `text`, which must hold 45 bytes; 0 on success, 1 for a null
 * pointer or a length outside 0..22. */
uint32_t NUK_BinToAsc(const uint8_t *bytes, int32_t length, char *text, uint32_t lowerCase);

/* Unsigned decimal text to a 32-bit value: digits only, at least one, no overflow; 0 on success,
 * 1 otherwise (value untouched). */
uint32_t NUK_StrToUint32(const char *text, uint32_t *value);

#ifdef __cplusplus
}
#endif

#endif

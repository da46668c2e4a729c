/* INI files of the package manager. A section is named as its header line is written, brackets
 * included ("[VPN INDEX]"); a key is the text before the first '=' exactly as written ("index "
 * with its trailing blank differs from "index"); a value loses its leading blanks and line end. */
#ifndef PLATFORM_RPM_INI_H
#define PLATFORM_RPM_INI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Copies the value into buffer[size]; 0 on success, 1 when the file, section or key is missing,
 * 2 when the value does not fit or an argument is null. */
uint32_t RPM_GetProfileString(const char *file, const char *section, const char *key, char *buffer,
                              uint32_t size);
/* Sets the key in the section, creating the file, section or key as needed; 0 on success. */
uint32_t RPM_WriteProfileString(const char *file, const char *section, const char *key, const char *value);

#ifdef __cplusplus
}
#endif

#endif

/* Text helpers. Each takes NULL as an empty text. Any thread. */
#ifndef TEXT_HELPERS_H
#define TEXT_HELPERS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Length in bytes without the terminator. */
uint32_t VLK_strlen_s(const char *text);

/* Compares at most count characters without regard to case (ASCII). 0 when equal, else their order. */
int At_strncasecmp(const char *a, const char *b, uint32_t count);

/* 0 when the texts are equal, else their order. */
int safe_strcmp(const char *a, const char *b);

/* Decimal text to a number: blanks, a sign, digits; the nearest 32-bit number when out of range; 0 without digits. */
int32_t safe_atoi(const char *text);

/* Hexadecimal text, with or without 0x, to a number; UINT64_MAX when out of range; 0 without digits. */
uint64_t hex_str_to_uinteger(const char *text);

#ifdef __cplusplus
}
#endif

#endif

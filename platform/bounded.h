/* Bounds-checked memory and text. 0 on success. A copy that does not fit, or a null argument, is refused: an error
 * (non-zero) is returned and the destination, if there is one, is zero-filled to dest_size. Any thread. */
#ifndef BOUNDED_H
#define BOUNDED_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

int memcpy_s(void *dest, size_t dest_size, const void *src, size_t count);
int memset_s(void *dest, size_t dest_size, int value, size_t count);

/* Copies at most count characters of src and a terminator. Refused when they need more than dest_size bytes. */
int strncpy_s(char *dest, size_t dest_size, const char *src, size_t count);

/* Appends at most count characters of src, or all of src, and a terminator. */
int strncat_s(char *dest, size_t dest_size, const char *src, size_t count);
int strcat_s(char *dest, size_t dest_size, const char *src);

/* Formats into dest. count < dest_size: a longer result is cut to count characters and a negative value returned.
 * count == dest_size: a longer result leaves dest empty and a negative value is returned. Otherwise the number of
 * characters written, without the terminator. */
int snprintf_s(char *dest, size_t dest_size, size_t count, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif

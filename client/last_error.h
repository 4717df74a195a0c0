// The text behind vlk_last_error. Every thread has its own.
#ifndef VLK_LAST_ERROR_H
#define VLK_LAST_ERROR_H

#include "vlk_client.h"

/// Remembers the text (cut to 511 bytes) for the calling thread and returns the result.
int fail(vlk_result result, const char *format, ...) __attribute__((format(printf, 2, 3)));

#endif

// Start of the daemon on a Linux host: standard descriptors, arguments, settings, the claim on its runtime folder.
#ifndef VLK_HOST_START_H
#define VLK_HOST_START_H

#include <cstddef>
#include <cstdint>

#include "host_config.h"

/// Does everything above, in this order and before anything else is opened. Prints one line and ends the process when
/// something fails (exit codes: sysexits.h). Main thread, once, before any other thread.
void host_start();

/// Ends the process with exit_code after the line "vorlink: MESSAGE" on standard error.
[[noreturn]] void host_fail(int exit_code, const char *format, ...) __attribute__((format(printf, 2, 3)));

/// The settings: defaults until they are read, then constant. Any thread. Inline, because every trace reads its level.
inline const host_config &host_settings()
{
    extern host_config host_settings_as_read;
    return host_settings_as_read;
}

/// Reads the settings from the environment (host_start does). 0, or -1 and a message in error.
int host_load_settings(char *error, size_t error_size);

/// When host_start was called, in monotonic milliseconds. Any thread.
int64_t host_started_ms();

#endif

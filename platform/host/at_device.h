// The modem's device: a serial device or pty, raw and exclusive, or a Unix stream socket. Reading and writing may
// happen on two threads at once; opening and closing need the device alone.
#ifndef VLK_AT_DEVICE_H
#define VLK_AT_DEVICE_H

#include <cstddef>
#include <span>

#include <sys/types.h>

struct at_device {
    int fd = -1;
    bool is_socket = false;
};

enum class at_write {
    WRITTEN, ///< all of it
    REFUSED, ///< nothing was taken in time
    BROKEN,  ///< a part was taken, or the device is gone: what the modem has seen is unknown
};

/// Opens the device at path with its own speed (115200 when it has none), 8 bits, no parity, and drops stale input.
/// 0, or -1 and one line in message that names cause and cure.
int at_device_open(at_device &device, const char *path, std::span<char> message);

/// Closes it; a closed one is accepted.
void at_device_close(at_device &device);

/// Drops the control line that tells the modem that somebody is there (DTR) for half a second, where there is one.
void at_device_hang_up(const at_device &device);

/// Reads what is there, without waiting. Bytes read, 0 when there are none now, -1 when the device is gone.
ssize_t at_device_read(const at_device &device, std::span<char> buffer);

/// Writes all of bytes within limit_ms milliseconds.
at_write at_device_write(const at_device &device, std::span<const char> bytes, int limit_ms);

#endif

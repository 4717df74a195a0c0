// The modem's device: a serial device or pty, raw and exclusive; a port that is no terminal, such as /dev/wwan0at0
// and /dev/cdc-wdm0; or a Unix stream socket. Reading and writing may happen on two threads at once; nothing else may
// happen during opening and closing.
#ifndef VLK_AT_DEVICE_H
#define VLK_AT_DEVICE_H

#include <cstddef>
#include <span>

#include <sys/types.h>

#include "at_line_settings.h"
#include "uucp_lock.h"

struct at_device {
    int fd = -1;
    bool is_socket = false;
    uint32_t speed = 0; ///< bits per second, 0: it has no speed
    uucp_lock lock;
};

/// What at_device_open returns.
inline constexpr int AT_DEVICE_OPENED = 0;
inline constexpr int AT_DEVICE_NOT_YET = -1; ///< it may come: try again soon
inline constexpr int AT_DEVICE_NEVER = -2; ///< it is no AT port: somebody has to change something, try seldom

enum class at_write {
    WRITTEN, ///< all of it
    REFUSED, ///< nothing was taken in time
    BROKEN,  ///< a part was taken, or the device is gone: what the modem has seen is unknown
};

/// Opens the device at path with this speed (115200 when none is asked for and it has none of its own) and flow
/// control, 8 bits, no parity; drops stale input and makes the lock file that other programs look for. Returns a
/// result from above; when the device is not opened, message has one line that names cause and cure.
int at_device_open(at_device &device, const char *path, const at_line_settings &line,
                   std::span<char> message);

/// Closes the device; a closed one is accepted.
void at_device_close(at_device &device);

/// Drops the control line that tells the modem that somebody is there (DTR) for half a second, where there is one.
void at_device_hang_up(const at_device &device);

/// Reads what is there, without waiting. Bytes read, 0 when there are none now, -1 when the device is gone.
ssize_t at_device_read(const at_device &device, std::span<char> buffer);

/// Writes all of bytes within limit_ms milliseconds. before_wait, which may be null, is called before each wait
/// for the device to take more.
at_write at_device_write(const at_device &device, std::span<const char> bytes, int limit_ms,
                         void (*before_wait)() = nullptr);

#endif

// The daemon's state as text, for whoever asks at the hub: lines of a name, a blank and a value.
#ifndef VLK_HOST_STATUS_H
#define VLK_HOST_STATUS_H

#include <cstddef>
#include <span>

/// Lines that are put together in a buffer; a line that does not fit whole is left out.
class status_text
{
public:
    explicit status_text(std::span<char> buffer) : room(buffer) {}

    /// Adds one line. Control characters in it become '?'.
    void add(const char *format, ...) __attribute__((format(printf, 2, 3)));
    std::size_t size() const { return used; }

private:
    std::span<char> room;
    std::size_t used = 0;
};

/// Writes the whole status into buffer. Returns the bytes written. Any thread.
std::size_t host_status(std::span<char> buffer);

#endif

// What a line of either log is made of: texts without secrets, without bytes that could fake a line or drive a
// terminal, within bounds. No state, no I/O; any thread, signal handlers too.
#ifndef VLK_LOG_TEXT_H
#define VLK_LOG_TEXT_H

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <span>

inline constexpr size_t LOG_TEXT_SIZE = 900; ///< bytes of one text with its end; what is longer is cut
inline constexpr size_t LOG_LINE_SIZE =
    4096; ///< holds a text with every byte escaped; a pipe takes it in one piece

/// Formats as printf does. A text that is too long ends with "...", a line end of the caller is dropped.
__attribute__((format(printf, 2, 0))) void log_format(std::span<char, LOG_TEXT_SIZE> text, const char *format,
                                                      va_list arguments);

/// A line that is built piece by piece; what does not fit is left out.
class log_line
{
public:
    void add(char c)
    {
        if (used < bytes.size())
            bytes[used++] = c;
    }
    void add(const char *text)
    {
        for (; *text != '\0'; ++text)
            add(*text);
    }
    /// At least `digits` digits.
    void add_number(uint64_t number, int digits = 1);
    /// Text from anywhere, every byte that is not printable ASCII as \xHH, without its secrets: what follows '=' in an
    /// AT command, dialled numbers, quoted text behind the name of a command or report, what follows a report's line
    /// end, and PDUs show as ***.
    void add_masked(const char *text);
    /// Seconds since 1970 and the milliseconds as "2026-11-23 14:05:06.789 ". offset_s: local time's, east of UTC.
    void add_time(int64_t seconds, int milliseconds, long offset_s);
    /// Ends the line, which may be full.
    void end();

    std::span<const char> text() const { return {bytes.data(), used}; }

private:
    void add_visible(char c);

    std::array<char, LOG_LINE_SIZE> bytes;
    size_t used = 0;
};

#endif

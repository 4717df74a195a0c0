#include "log_text.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace
{
constexpr size_t PDU_DIGITS_MIN = 16; ///< a run of at least this many hexadecimal digits is taken for a PDU

bool is_letter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

bool is_hex(char c)
{
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool is_any_of(char c, const char *set)
{
    return c != '\0' && strchr(set, c) != nullptr;
}

/// The sign in front of an extended command's name.
bool is_sign(char c)
{
    return is_any_of(c, "+^*#$%&!");
}

/// Whether "AT" and the beginning of a command stand at the head of the text.
bool begins_command(std::string_view text)
{
    if (text.size() < 3 || (text[0] | 0x20) != 'a' || (text[1] | 0x20) != 't')
        return false;
    if (is_sign(text[2]) || is_any_of(text[2], "\"=\\"))
        return true;
    if (is_letter(text[2]) && text.size() > 3 && (is_digit(text[3]) || is_any_of(text[3], "=?+*#\"")))
        return true; // ATD5, ATS0=1, ate0
    return text.starts_with("AT") && is_letter(text[2]);
}

bool is_dialling(std::string_view text)
{
    return text.size() > 3 && begins_command(text) && (text[2] | 0x20) == 'd';
}

/// Bytes of a name as in "+CPIN", 0 when none stands at the head of the text.
size_t name_length(std::string_view text)
{
    if (text.size() < 2 || !is_sign(text[0]) || !is_letter(text[1]))
        return 0;
    size_t length = 2;
    while (length < text.size() && (is_letter(text[length]) || is_digit(text[length])))
        ++length;
    return length;
}

size_t skip_blanks(std::string_view text, size_t at)
{
    while (at < text.size() && is_any_of(text[at], " \t"))
        ++at;
    return at;
}

size_t hex_run(std::string_view text)
{
    size_t length = 0;
    while (length < text.size() && is_hex(text[length]))
        ++length;
    return length;
}

/// Walks over a text and says what of it may be shown.
struct mask_walk {
    std::string_view text;
    size_t at = 0;
    bool in_word = false; ///< the byte before was a letter or a digit
    bool in_path = false; ///< within a word that begins with a slash: device names have long numbers
    bool in_command = false;
    bool named = false; ///< a command or a report was named: quotes and line ends are secret from here on

    /// Whether all that follows is secret.
    bool rest_is_secret()
    {
        const std::string_view rest = text.substr(at);
        if (!in_word && begins_command(rest))
            in_command = named = true;
        const size_t name = name_length(rest);
        if (name != 0) {
            named = true;
            const size_t behind = skip_blanks(rest, name);
            in_command = in_command || (behind < rest.size() && rest[behind] == '=');
        }
        return named && is_any_of(rest[0], "\r\n");
    }

    /// Takes one byte.
    void step()
    {
        const char c = text[at++];
        in_word = is_letter(c) || is_digit(c);
        if (c == '/')
            in_path = true;
        if (is_any_of(c, " \t\"'(),;"))
            in_path = false;
    }
};
} // namespace

void log_format(std::span<char, LOG_TEXT_SIZE> text, const char *format, va_list arguments)
{
    const int length = vsnprintf(text.data(), text.size(), format, arguments);
    if (length < 0)
        text[0] = '\0';
    else if (static_cast<size_t>(length) >= text.size())
        memcpy(text.data() + text.size() - 4, "...", 4);
    else if (length > 0 && text[static_cast<size_t>(length) - 1] == '\n')
        text[static_cast<size_t>(length) - 1] = '\0';
}

void log_line::add_number(uint64_t number, int digits)
{
    std::array<char, 24> text;
    size_t first = text.size();
    while (number != 0 || digits > 0) {
        text[--first] = static_cast<char>('0' + number % 10);
        number /= 10;
        --digits;
    }
    for (; first < text.size(); ++first)
        add(text[first]);
}

void log_line::add_visible(char c)
{
    constexpr char digits[] = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= ' ' && byte <= '~')
        return add(c);
    add("\\x");
    add(digits[byte >> 4]);
    add(digits[byte & 15]);
}

void log_line::add_masked(const char *text)
{
    mask_walk walk{text};
    while (walk.at < walk.text.size()) {
        const std::string_view rest = walk.text.substr(walk.at);
        if (!walk.in_word && is_dialling(rest)) {
            for (size_t i = 0; i < 3; ++i)
                add(rest[i]);
            return add("***");
        }
        if (walk.rest_is_secret())
            return add("***");
        const size_t digits = walk.in_path ? 0 : hex_run(rest);
        if (digits >= PDU_DIGITS_MIN) {
            add("***");
            walk.at += digits;
            continue;
        }
        if (walk.named && rest[0] == '"') {
            add("\"***\"");
            const size_t end = rest.find('"', 1);
            walk.at += end == rest.npos ? rest.size() : end + 1;
            continue;
        }
        add_visible(rest[0]);
        if (walk.in_command && rest[0] == '=')
            return add("***");
        walk.step();
    }
}

void log_line::add_time(int64_t seconds, int milliseconds, long offset_s)
{
    using namespace std::chrono;
    const sys_seconds local{std::chrono::seconds{seconds + offset_s}};
    const sys_days day = floor<days>(local);
    const year_month_day date{day};
    const hh_mm_ss time{local - day};
    add_number(static_cast<uint64_t>(static_cast<int>(date.year())), 4);
    add('-');
    add_number(static_cast<unsigned>(date.month()), 2);
    add('-');
    add_number(static_cast<unsigned>(date.day()), 2);
    add(' ');
    add_number(static_cast<uint64_t>(time.hours().count()), 2);
    add(':');
    add_number(static_cast<uint64_t>(time.minutes().count()), 2);
    add(':');
    add_number(static_cast<uint64_t>(time.seconds().count()), 2);
    add('.');
    add_number(static_cast<uint64_t>(milliseconds), 3);
    add(' ');
}

void log_line::end()
{
    if (used == bytes.size())
        --used;
    add('\n');
}

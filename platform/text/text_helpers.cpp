#include "text_helpers.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>

static const char *or_empty(const char *text)
{
    return text == nullptr ? "" : text;
}

static int lower(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 'A' && byte <= 'Z' ? byte + ('a' - 'A') : byte;
}

uint32_t VLK_strlen_s(const char *text)
{
    return static_cast<uint32_t>(strlen(or_empty(text)));
}

int At_strncasecmp(const char *a, const char *b, uint32_t count)
{
    a = or_empty(a);
    b = or_empty(b);
    for (; count > 0; --count, ++a, ++b) {
        const int order = *a == *b ? 0 : lower(*a) - lower(*b);
        if (order != 0 || *a == '\0')
            return order;
    }
    return 0;
}

int safe_strcmp(const char *a, const char *b)
{
    return strcmp(or_empty(a), or_empty(b));
}

int32_t safe_atoi(const char *text)
{
    using limits = std::numeric_limits<int32_t>;
    text = or_empty(text);
    while (*text == ' ' || (*text >= '\t' && *text <= '\r'))
        ++text;
    const bool negative = *text == '-';
    if (negative || *text == '+')
        ++text;
    int64_t number = 0;
    for (; *text >= '0' && *text <= '9' && number <= limits::max(); ++text)
        number = number * 10 + (*text - '0');
    return static_cast<int32_t>(negative ? std::max<int64_t>(-number, limits::min())
                                         : std::min<int64_t>(number, limits::max()));
}

uint64_t hex_str_to_uinteger(const char *text)
{
    text = or_empty(text);
    text += strspn(text, " \t");
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X'))
        text += 2;
    uint64_t number = 0;
    const auto result = std::from_chars(text, text + strlen(text), number, 16);
    return result.ec == std::errc::result_out_of_range ? UINT64_MAX : number;
}

#include "bounded.h"

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

namespace
{

using namespace std::string_literals;
using text = char *;

const char endless[] = {'x', 'y'};

/// The destination as the text "ab".
text ab(text dest)
{
    dest[2] = '\0';
    return dest;
}

// Every operation works on the first bytes of "abcd~~~~" and must leave what lies behind its dest_size alone.
struct {
    const char *fault;
    int (*operation)(text dest);
    int result;
    std::string after; // all eight bytes
} const cases[] = {
    {"a copy stays inside its count", [](text d) { return memcpy_s(d, 4, "xyz", 2); }, 0, "xycd~~~~"s},
    {"a copy may fill all", [](text d) { return memcpy_s(d, 4, "wxyz", 4); }, 0, "wxyz~~~~"s},
    {"a byte too many clears all", [](text d) { return memcpy_s(d, 4, "vwxyz", 5); }, EINVAL,
     "\0\0\0\0~~~~"s},
    {"nothing fits into nothing", [](text d) { return memcpy_s(d, 0, "x", 1); }, EINVAL, "abcd~~~~"s},
    {"no source", [](text d) { return memcpy_s(d, 4, nullptr, 1); }, EINVAL, "\0\0\0\0~~~~"s},
    {"no destination", [](text) { return memcpy_s(nullptr, 4, "x", 1); }, EINVAL, "abcd~~~~"s},
    {"overlapping bytes move", [](text d) { return memcpy_s(d + 1, 3, d, 3); }, 0, "aabc~~~~"s},
    {"a fill stays inside its count", [](text d) { return memset_s(d, 4, 'x', 3); }, 0, "xxxd~~~~"s},
    {"a long fill clears", [](text d) { return memset_s(d, 4, 'x', 5); }, EINVAL, "\0\0\0\0~~~~"s},
    {"no destination", [](text) { return memset_s(nullptr, 4, 'x', 1); }, EINVAL, "abcd~~~~"s},

    {"a text is not padded", [](text d) { return strncpy_s(d, 4, "x", 4); }, 0, "x\0cd~~~~"s},
    {"count cuts a long text", [](text d) { return strncpy_s(d, 4, "wxyz", 3); }, 0, "wxy\0~~~~"s},
    {"a huge count means all", [](text d) { return strncpy_s(d, 4, "xyz", SIZE_MAX); }, 0, "xyz\0~~~~"s},
    {"no room for the end", [](text d) { return strncpy_s(d, 4, "wxyz", 4); }, EINVAL, "\0\0\0\0~~~~"s},
    {"count ends a source", [](text d) { return strncpy_s(d, 4, endless, 2); }, 0, "xy\0d~~~~"s},
    {"the size ends a source", [](text d) { return strncpy_s(d, 2, endless, 9); }, EINVAL, "\0\0cd~~~~"s},
    {"an empty destination", [](text d) { return strncpy_s(d, 0, "", 0); }, EINVAL, "abcd~~~~"s},
    {"no text", [](text d) { return strncpy_s(d, 4, nullptr, 1); }, EINVAL, "\0\0\0\0~~~~"s},

    {"no end to append to", [](text d) { return strcat_s(d, 4, ""); }, EINVAL, "\0\0\0\0~~~~"s},
    {"no end, with a count", [](text d) { return strncat_s(d, 4, "x", 1); }, EINVAL, "\0\0\0\0~~~~"s},
    {"the last place counts", [](text d) { return strcat_s(ab(d), 4, "x"); }, 0, "abx\0~~~~"s},
    {"no room for the end", [](text d) { return strcat_s(ab(d), 4, "xy"); }, EINVAL, "\0\0\0\0~~~~"s},
    {"count cuts", [](text d) { return strncat_s(ab(d), 4, "xyz", 1); }, 0, "abx\0~~~~"s},
    {"count 0 appends nothing", [](text d) { return strncat_s(ab(d), 4, "xyz", 0); }, 0, "ab\0d~~~~"s},
    {"no text", [](text d) { return strcat_s(ab(d), 4, nullptr); }, EINVAL, "\0\0\0\0~~~~"s},
    {"no destination", [](text) { return strcat_s(nullptr, 4, "x"); }, EINVAL, "abcd~~~~"s},

    {"what fits is counted", [](text d) { return snprintf_s(d, 4, 3, "%d", 12); }, 2, "12\0d~~~~"s},
    {"count is no cut", [](text d) { return snprintf_s(d, 4, 3, "%s", "xyz"); }, 3, "xyz\0~~~~"s},
    {"one more is cut to count", [](text d) { return snprintf_s(d, 4, 3, "%s", "wxyz"); }, -1, "wxy\0~~~~"s},
    {"count 0 cuts all", [](text d) { return snprintf_s(d, 4, 0, "%s", "x"); }, -1, "\0bcd~~~~"s},
    {"the size holds one less", [](text d) { return snprintf_s(d, 4, 4, "%s", "xyz"); }, 3, "xyz\0~~~~"s},
    {"the size does not cut", [](text d) { return snprintf_s(d, 4, 4, "%s", "wxyz"); }, -1, "\0\0\0\0~~~~"s},
    {"count above the size", [](text d) { return snprintf_s(d, 4, 5, "%s", "x"); }, -1, "\0\0\0\0~~~~"s},
    {"an empty destination", [](text d) { return snprintf_s(d, 0, 0, "%s", "x"); }, -1, "abcd~~~~"s},
    {"no destination", [](text) { return snprintf_s(nullptr, 4, 3, "%s", "x"); }, -1, "abcd~~~~"s},
};

TEST(Bounded, KeepsToItsBounds)
{
    for (const auto &c : cases) {
        char dest[] = "abcd~~~~";
        EXPECT_EQ(c.operation(dest), c.result) << c.fault;
        EXPECT_EQ(std::string(dest, 8), c.after) << c.fault;
    }
}

} // namespace

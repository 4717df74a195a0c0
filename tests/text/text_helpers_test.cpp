#include "text_helpers.h"

#include <climits>

#include <gtest/gtest.h>

namespace
{

const char *shown(const char *text)
{
    return text == nullptr ? "none" : text;
}

TEST(TextHelpers, NumbersStopAtTheFirstOtherCharacterAndSaturate)
{
    struct {
        const char *text;
        int32_t decimal;
        uint64_t hexadecimal;
    } const cases[] = {
        {nullptr, 0, 0},
        {"", 0, 0},
        {"-1", -1, 0},
        {"+7", 7, 0},
        {" \t42,5", 42, 0x42},
        {" \n\v\f\r-8", -8, 0},
        {"+-1", 0, 0},
        {"-2147483649", INT32_MIN, 0},
        {"0x1F", 0, 0x1F},
        {"0xg", 0, 0},
        {"beefZ", 0, 0xBEEF},
        {"2147483647", INT32_MAX, 0x2147483647},
        {"2147483648", INT32_MAX, 0x2147483648},
        {"-2147483648", INT32_MIN, 0},
        {"-99999999999999999999999", INT32_MIN, 0},
        {"99999999999999999999999", INT32_MAX, UINT64_MAX},
        {"FFFFFFFFFFFFFFFE", 0, 0xFFFFFFFFFFFFFFFE},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(safe_atoi(c.text), c.decimal) << shown(c.text);
        EXPECT_EQ(hex_str_to_uinteger(c.text), c.hexadecimal) << shown(c.text);
    }
}

TEST(TextHelpers, ComparisonsFoldAsciiLettersOnly)
{
    struct {
        const char *a, *b;
        uint32_t count;
        int without_case; // sign of the order
        int exact;
    } const cases[] = {
        {"AT+CSQ", "at", 2, 0, -1},
        {"AT+CSQ", "at", 3, 1, -1},
        {"a", "B", 0, 0, 1},
        {"[", "{", 1, -1, -1},
        {"Z", "z", 1, 0, -1},
        {"@", "`", 1, -1, -1},
        {nullptr, "", 4, 0, 0},
        {nullptr, "a", 1, -1, -1},
        {"a", nullptr, 1, 1, 1},
        {"\xC9", "\xE9", 1, -1, -1},
        {"a\0b", "a\0c", UINT32_MAX, 0, 0},
    };
    const auto sign = [](int value) { return (value > 0) - (value < 0); };
    for (const auto &c : cases) {
        EXPECT_EQ(sign(At_strncasecmp(c.a, c.b, c.count)), c.without_case) << shown(c.a);
        EXPECT_EQ(sign(safe_strcmp(c.a, c.b)), c.exact) << shown(c.a);
    }
    EXPECT_EQ(VLK_strlen_s(nullptr), 0U);
}

} // namespace

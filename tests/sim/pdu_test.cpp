// PDUs: what is taken apart is put together again, and hostile octets are refused.

#include "pdu.h"
#include "text.h"

#include <gtest/gtest.h>

#include <random>

using namespace modemsim;

namespace
{

struct vector_case {
    const char *fault;
    const char *pdu;
    const char *number;
    const char *time;
    const char *text; ///< in UTF-8
};

// Written by hand after 3GPP TS 23.040, and by other programs.
const vector_case vectors[] = {
    {"plain", "00040B912120550521F300006210102100000005C8329BFD06", "+12025550123", "26/01/01,12:00:00+00",
     "Hello"},
    {"a service centre and an odd number of digits",
     "07917283010010F5040BC87238880900F10000993092516195800AE8329BFD4697D9EC37", "27838890001",
     "99/03/29,15:16:59+08", "hellohello"},
    {"a name for a number", "00040DD0457CB80D67970100006210102100000A05C8329BFD06", "Example",
     "26/01/01,12:00:00-20", "Hello"},
    {"a submit with relative validity", "0011000B912120550521F30000A705C8329BFD06", "+12025550123", "",
     "Hello"},
    {"the extension table", "00040B912120550521F3000062101021000000049BF28602", "+12025550123",
     "26/01/01,12:00:00+00", "€^"},
};

TEST(SimulatedPdu, VectorsReadAndWrittenBack)
{
    for (const vector_case &row : vectors) {
        SCOPED_TRACE(row.fault);
        const auto message = read_pdu(row.pdu);
        ASSERT_TRUE(message);
        EXPECT_EQ(write_pdu(*message), row.pdu);
        EXPECT_EQ(time_text(message->time), row.time);
        EXPECT_EQ(number_of(message->address), row.number);
        EXPECT_EQ(text_of(*message, character_set::utf8), row.text);
    }
}

struct text_case {
    const char *fault;
    std::string text;
    bool fits;
    unsigned coding;
    unsigned length;
};

std::string times(int count, const std::string &text)
{
    std::string result;
    for (; count > 0; --count)
        result += text;
    return result;
}

const text_case texts[] = {
    {"nothing", "", true, 0, 0},
    {"160 septets, and no more", std::string(160, 'x'), true, 0, 160},
    {"161", std::string(161, 'x'), false, 0, 161},
    {"the alphabet's corners", "@£$_ΔÅåÉ!\"#¤%&'()Ü§¿à\n\r", true, 0, 23},
    {"extended characters take two", "[{€}]~^|\\", true, 0, 18},
    {"80 of them", times(80, "€"), true, 0, 160},
    {"81 of them", times(81, "€"), false, 0, 162},
    {"other alphabets", "Привет", true, 8, 12},
    {"beyond 16 bits", "😀", true, 8, 4},
    {"70 units", times(70, "я"), true, 8, 140},
    {"71", times(71, "я"), false, 8, 142},
    {"bytes that are no UTF-8 become one sign", "a\xff\xc3", true, 8, 6},
};

TEST(SimulatedPdu, TextsTakeTheAlphabetTheyNeed)
{
    for (const text_case &row : texts) {
        SCOPED_TRACE(row.fault);
        short_message message;
        message.address = address_of("+1234567");
        message.time = time_of("26/11/23,13:00:01-08");
        EXPECT_EQ(set_any_text(message, row.text), row.fits);
        EXPECT_EQ(message.coding, row.coding);
        EXPECT_EQ(message.length, row.length);
        if (!row.fits)
            continue;
        const auto read = read_pdu(write_pdu(message));
        ASSERT_TRUE(read);
        EXPECT_EQ(number_of(read->address), "+1234567");
        EXPECT_EQ(time_text(read->time), "26/11/23,13:00:01-08");
        if (row.coding == 0)
            EXPECT_EQ(text_of(*read, character_set::utf8), row.text);
        else
            EXPECT_EQ(from_hex(text_of(*read, character_set::utf8)).value_or("").size(), row.length);
    }
}

TEST(SimulatedPdu, WhatIsCutOrRandomIsRefusedOrSurvivesUnchanged)
{
    const std::string whole = vectors[1].pdu;
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_FALSE(read_pdu(whole.substr(0, length))) << length;
    EXPECT_FALSE(read_pdu(whole + "00"));
    std::mt19937 random(7);
    int taken = 0;
    for (int i = 0; i < 50000; ++i) {
        std::string octets(random() % 40, '\0');
        for (char &octet : octets)
            octet = static_cast<char>(random() % (i % 2 == 0 ? 256 : 12));
        const auto message = read_pdu(to_hex(octets));
        if (!message)
            continue;
        ++taken;
        for (const auto set :
             {character_set::ira, character_set::gsm, character_set::ucs2, character_set::utf8})
            EXPECT_LT(text_of(*message, set).size(), 1000U);
        EXPECT_EQ(read_pdu(write_pdu(*message)).has_value(), true) << to_hex(octets);
        EXPECT_LT(number_of(message->address).size(), 40U);
    }
    EXPECT_GT(taken, 100) << "the octets must not all be refused at once";
}

} // namespace

// Short messages as they are on the air: vectors that others have published, texts of every alphabet there and back,
// and PDUs that are wrong in every place.
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "random_text.h"
#include "sms/broadcast.h"
#include "sms/joiner.h"

namespace
{
using sms::alphabet;
using sms::pdu;
using std::string;
using testing::HasSubstr;

/// All that a person can see of a PDU, in one line.
string summary(const pdu &seen)
{
    const sms::content &data = seen.data;
    string text = std::to_string(static_cast<int>(seen.type)) + " " + sms::text_of(seen.smsc) + " " +
                  sms::text_of(seen.peer) + " ";
    text += seen.time ? sms::text_of(*seen.time) + " " : "";
    text += seen.discharge ? sms::text_of(*seen.discharge) + " " : "";
    text += "ref" + std::to_string(seen.reference) + " status" + std::to_string(seen.status);
    text += seen.report ? " report" : "";
    text += seen.validity == sms::validity_form::relative
                ? " valid" + std::to_string(sms::minutes_of_validity(seen.validity_octets[0]))
                : "";
    text += data.message_class >= 0 ? " class" + std::to_string(data.message_class) : "";
    if (data.count > 1)
        text += " part" + std::to_string(data.number) + "/" + std::to_string(data.count) + "#" +
                std::to_string(data.reference);
    return text + " " + sms::name_of(data.coding) + ": " + sms::text_of(data);
}

TEST(SmsCodec, PublishedPdusAreReadAndWrittenAgain)
{
    const struct {
        const char *fault;
        const char *hex;
        const char *seen;
        bool same; // written again it is the same
    } cases[] = {
        {"a delivered message",
         "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07",
         "0 +31624000000 +31641600986 2002-08-26T19:37:41+00:00 ref0 status0 GSM 7-bit: How are you?", false},
        {"a number whose type is not known, a time zone of two hours",
         "07917283010010F5040BC87238880900F10000993092516195800AE8329BFD4697D9EC37",
         "0 +27381000015 27838890001 1999-03-29T15:16:59+02:00 ref0 status0 GSM 7-bit: hellohello", true},
        {"a submitted message with a validity", "0011000B916407281553F80000AA0AE8329BFD4697D9EC37",
         "1  +46708251358 ref0 status0 valid5760 GSM 7-bit: hellohello", true},
        {"a delivery report without anything behind its status",
         "0006D60B911326880736F4111011719551401110117195714000",
         "2  +31628870634 2011-01-11T17:59:15+01:00 2011-01-11T17:59:17+01:00 ref214 status0 GSM 7-bit: ",
         true},
        {"a name whose last octet is full, a flash message, west of Greenwich",
         "00040ED0D432BBBC7EB70100104250210102036902C834",
         "0  Telekom 2024-05-12T10:20:30-04:00 ref0 status0 class0 GSM 7-bit: Hi", false},
        {"UCS-2 with a surrogate pair", "0001000B916407281553F8000808D83DDE0000480069",
         "1  +46708251358 ref0 status0 UCS-2: \U0001F600Hi", true},
        {"8-bit data of a class", "0001000B916407281553F80015030001FF",
         "1  +46708251358 ref0 status0 class1 8-bit: 0001FF", true},
        {"a part of a long text, 8-bit reference", "0041000491942100000A050003530401F06F20",
         "1  +4912 ref0 status0 part1/4#83 GSM 7-bit: xo¡", true},
        {"the only part of one, which is no part", "0041000491942100000A050003530101F06F20",
         "1  +4912 ref0 status0 GSM 7-bit: xo¡", false},
        {"an SMS-DELIVER whose time is nonsense", "000404A121430000FFFFFFFFFFFFFF0161",
         "0  1234 ref0 status0 GSM 7-bit: a", false},
    };
    for (const auto &c : cases) {
        pdu read;
        EXPECT_EQ(sms::decode_pdu(c.hex, -1, read), nullptr) << c.fault;
        EXPECT_THAT(summary(read), testing::StartsWith(c.seen)) << c.fault;
        string hex;
        EXPECT_EQ(sms::encode_pdu(read, hex), nullptr) << c.fault;
        if (c.same) {
            EXPECT_EQ(hex, c.hex) << c.fault;
        }
        pdu again;
        EXPECT_EQ(sms::decode_pdu(hex, -1, again), nullptr) << c.fault;
        EXPECT_EQ(again, read) << c.fault;
    }
}

TEST(SmsCodec, WrongPdusAreRefusedWithTheReason)
{
    const struct {
        const char *hex;
        int octets;
        const char *reason;
    } cases[] = {
        {"", -1, "empty"},
        {"0", -1, "pairs of hexadecimal digits"},
        {"00110Z", -1, "pairs of hexadecimal digits"},
        {"0C91", -1, "more than 11 octets"},
        {"0791", -1, "cut"},
        {"00", -1, "cut"},
        {"0011000B916407281553F80000AA0AE8329BFD4697D9EC", -1, "the text is cut"},
        {"0011000B916407281553F80000AA0AE8329BFD4697D9EC37", 25, "shorter than the modem said"},
        {"00110015916407281553F80000AA0AE8329BFD4697D9EC37", -1, "more than 20 digits"},
        {"000100049194210000A1", -1, "longer than a message"},
        {"0001000491942100088D", -1, "longer than a message"},
        {"00010004919421000803004100", -1, "odd number of octets"},
        {"004100049194210004020301", -1, "header is longer than the text"},
        {"00410004919421000404030003FF", -1, "header is cut"},
        {"0041000491942100", -1, "cut"},
    };
    for (const auto &c : cases) {
        pdu read;
        const sms::refusal why = sms::decode_pdu(c.hex, c.octets, read);
        ASSERT_NE(why, nullptr) << c.hex;
        EXPECT_THAT(why, HasSubstr(c.reason)) << c.hex;
    }
    pdu read;
    EXPECT_STREQ(sms::decode_pdu(string(1000, '0'), -1, read), "the PDU is longer than a message can be");
    EXPECT_EQ(sms::decode_pdu("01000491942100000161", 10, read), nullptr)
        << "a modem leaves the first part out";
    EXPECT_EQ(summary(read), "1  +4912 ref0 status0 GSM 7-bit: a");
    EXPECT_EQ(sms::decode_pdu("00410004919421000407050003070302AA", -1, read), nullptr)
        << "a part that is not among its parts is whole";
    EXPECT_EQ(summary(read), "1  +4912 ref0 status0 part2/3#7 8-bit: AA");
    EXPECT_EQ(sms::decode_pdu("00410004919421000407050003070304AA", -1, read), nullptr);
    EXPECT_EQ(summary(read), "1  +4912 ref0 status0 8-bit: AA");
}

TEST(SmsCodec, NumbersArePeoplesOrRefused)
{
    const struct {
        const char *text;
        const char *read; // nullptr: refused
    } cases[] = {
        {"+49 151-1234567", "+491511234567"},
        {"*100#", "*100#"},
        {"12345", "12345"},
        {"", nullptr},
        {"+", nullptr},
        {"+49x", nullptr},
        {"4+9", nullptr},
        {"++49", nullptr},
        {"12345678901234567890", "12345678901234567890"},
        {"123456789012345678901", nullptr},
        {"Telekom", nullptr},
        {"1;2", nullptr},
    };
    for (const auto &c : cases) {
        sms::address read;
        const sms::refusal why = sms::parse_number(c.text, read);
        ASSERT_EQ(why == nullptr, c.read != nullptr) << c.text;
        if (c.read != nullptr) {
            EXPECT_EQ(sms::text_of(read), c.read);
        }
    }
}

TEST(SmsCodec, ATextTakesAsFewPartsAsItCan)
{
    const struct {
        const char *fault;
        string text;
        bool wide;
        std::vector<size_t> units; // of each part
    } cases[] = {
        {"one message", random_text::repeated("a", 160), false, {160}},
        {"one too many", random_text::repeated("a", 161), false, {153, 8}},
        {"full parts", random_text::repeated("a", 306), false, {153, 153}},
        {"a wide reference takes a septet more", random_text::repeated("a", 306), true, {152, 152, 2}},
        {"an extension is not divided",
         random_text::repeated("a", 152) + "€" + random_text::repeated("b", 10),
         false,
         {152, 12}},
        {"80 extensions fit", random_text::repeated("€", 80), false, {160}},
        {"one character makes it UCS-2", random_text::repeated("a", 69) + "я", false, {70}},
        {"UCS-2 parts", random_text::repeated("я", 71), false, {67, 4}},
        {"wide UCS-2 parts", random_text::repeated("я", 71), true, {66, 5}},
        {"a surrogate pair is not divided",
         random_text::repeated("я", 66) + "\U0001F600" + "яяя",
         false,
         {66, 5}},
        {"nothing is a message", "", false, {0}},
    };
    for (const auto &c : cases) {
        std::vector<sms::content> parts;
        ASSERT_EQ(sms::split_text(c.text, {-1, c.wide, 300}, parts), nullptr) << c.fault;
        std::vector<size_t> units;
        for (const sms::content &part : parts)
            units.push_back(part.units.size());
        EXPECT_EQ(units, c.units) << c.fault;
    }
    std::vector<sms::content> parts;
    EXPECT_EQ(sms::split_text(random_text::repeated("a", 255 * 153), {}, parts), nullptr);
    EXPECT_STREQ(sms::split_text(random_text::repeated("a", 255 * 153 + 1), {}, parts),
                 "the text needs more than 255 parts");
    for (const char *wrong : {"\xFF", "a\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\x80"})
        EXPECT_STREQ(sms::split_text(wrong, {}, parts), "the text is not UTF-8");
}

/// A message of random settings, without a text.
pdu random_pdu(std::mt19937 &random)
{
    const auto below = [&random](unsigned limit) { return static_cast<int>(random() % limit); };
    pdu made;
    made.type = random() % 2 == 0 ? sms::pdu_type::submit : sms::pdu_type::deliver;
    made.peer = {static_cast<sms::number_type>(random() % 5), static_cast<uint8_t>(random() % 16),
                 random_text::number(random)};
    if (made.type == sms::pdu_type::deliver && random() % 4 == 0)
        made.peer = {sms::number_type::alphanumeric, 0, random_text::name(random)};
    if (random() % 2 == 0)
        made.smsc = {sms::number_type::international, 1, random_text::number(random)};
    made.protocol = static_cast<uint8_t>(random());
    made.report = random() % 2 == 0;
    made.reply_path = random() % 2 == 0;
    if (made.type == sms::pdu_type::deliver) {
        made.more = random() % 2 == 0;
        made.time = sms::timestamp{1970 + below(100), 1 + below(12), 1 + below(31),         below(24),
                                   below(60),         below(60),     15 * (below(113) - 56)};
        return made;
    }
    made.reference = static_cast<uint8_t>(random());
    made.reject_duplicates = random() % 2 == 0;
    made.validity = static_cast<sms::validity_form>(random() % 4);
    for (size_t at = 0; at < (made.validity == sms::validity_form::none       ? 0U
                              : made.validity == sms::validity_form::relative ? 1U
                                                                              : 7U);
         at++)
        made.validity_octets[at] = static_cast<uint8_t>(random());
    return made;
}

TEST(SmsCodec, RandomTextsOfAllAlphabetsComeBackWhole)
{
    std::mt19937 random(20240501);
    for (int round = 0; round < 10000; round++) {
        const string text = random_text::of_any_alphabet(random, 10);
        pdu message = random_pdu(random);
        const sms::text_form form = {static_cast<int>(random() % 5) - 1, random() % 2 == 0,
                                     static_cast<uint16_t>(random())};
        std::vector<sms::content> parts;
        ASSERT_EQ(sms::split_text(text, form, parts), nullptr);
        std::shuffle(parts.begin(), parts.end(), random);
        sms::joiner joiner;
        std::vector<sms::message> ready;
        for (const sms::content &part : parts) {
            ASSERT_TRUE(ready.empty()) << "complete before its last part";
            message.data = part;
            string hex;
            ASSERT_EQ(sms::encode_pdu(message, hex), nullptr);
            pdu read;
            ASSERT_EQ(sms::decode_pdu(hex, -1, read), nullptr) << hex;
            ASSERT_EQ(read, message) << hex;
            ready = joiner.take(read, part.number);
        }
        ASSERT_EQ(ready.size(), 1U);
        ASSERT_EQ(ready[0].text(), text);
    }
}

TEST(SmsCodec, DamagedPdusAreRefusedOrReadTheSameAgain)
{
    std::mt19937 random(7);
    int accepted = 0;
    for (int round = 0; round < 20000; round++) {
        pdu message = random_pdu(random);
        std::vector<sms::content> parts;
        ASSERT_EQ(sms::split_text(random_text::of_any_alphabet(random, 2), {0, true, 1}, parts), nullptr);
        message.data = parts.back();
        string hex;
        ASSERT_EQ(sms::encode_pdu(message, hex), nullptr);
        if (round % 2 == 0)
            hex.resize(random() % hex.size());
        for (unsigned errors = random() % 4; errors > 0 && !hex.empty(); errors--)
            hex[random() % hex.size()] = "0123456789ABCDEFabcdefx"[random() % 23];
        pdu read;
        if (sms::decode_pdu(hex, static_cast<int>(random() % 200) - 1, read) != nullptr)
            continue;
        string again_hex;
        pdu again;
        if (sms::encode_pdu(read, again_hex) != nullptr || read.data.compressed)
            continue; // some of what can be read is not written
        accepted++;
        ASSERT_EQ(sms::decode_pdu(again_hex, -1, again), nullptr) << hex << " " << again_hex;
        ASSERT_EQ(sms::text_of(again.data), sms::text_of(read.data)) << hex << " " << again_hex;
    }
    EXPECT_GT(accepted, 1000) << "the damage leaves nothing to look at";
}

TEST(SmsJoiner, PartsOfDifferentMessagesAreKeptApart)
{
    const auto part = [](const char *from, uint16_t reference, int number, int count, const char16_t *text) {
        pdu made;
        made.type = sms::pdu_type::deliver;
        made.peer.number = from;
        made.data.coding = alphabet::ucs2;
        made.data.reference = reference;
        made.data.number = static_cast<uint8_t>(number);
        made.data.count = static_cast<uint8_t>(count);
        made.data.units = text;
        return made;
    };
    sms::joiner joiner;
    EXPECT_TRUE(joiner.take(part("1", 7, 2, 2, u"\xDE00 b"), 1).empty());
    EXPECT_TRUE(joiner.take(part("2", 7, 1, 2, u"other"), 2).empty());
    EXPECT_TRUE(joiner.take(part("1", 7, 2, 2, u"again"), 3).empty())
        << "a part that comes twice is another message's";
    EXPECT_EQ(joiner.take(part("3", 7, 1, 1, u"alone"), 4).at(0).text(), "alone");
    const auto ready = joiner.take(part("1", 7, 1, 2, u"a \xD83D"), 5);
    ASSERT_EQ(ready.size(), 1U);
    EXPECT_EQ(ready[0].text(), "a \U0001F600 b") << "a pair that the sender divided";
    EXPECT_EQ(ready[0].places, (std::vector<int64_t>{5, 1}));
    const auto rest = joiner.take_rest();
    ASSERT_EQ(rest.size(), 2U);
    EXPECT_EQ(rest[0].text(), "other[...]");
    EXPECT_EQ(rest[1].text(), "[...]again");

    size_t shown = 0;
    for (uint16_t reference = 0; reference < 1000; reference++)
        shown += joiner.take(part("4", reference, 1, 255, u"x"), 1).size();
    EXPECT_EQ(shown + joiner.take_rest().size(), 1000U) << "one that waits too long is lost";
}

TEST(SmsBroadcast, UssdTextsOfEveryModem)
{
    const struct {
        const char *fault;
        const char *value;
        int scheme;
        const char *text;
    } cases[] = {
        {"packed septets", "AA180C3602", 15, "*100#"},
        {"a CR that fills seven octets", "31D98C56B3DD1A", 15, "1234567"},
        {"packed septets without a scheme", "C2309BFD06", -1, "Ballo"},
        {"UCS-2 by the scheme", "041F04400438", 72, "\u041F\u0440\u0438"},
        {"UCS-2 with a language in front", "656E00480069", 17, "Hi"},
        {"UCS-2 although the scheme says septets", "00420061006C", 15, "Bal"},
        {"plain text", "Balance 5.00", 15, "Balance 5.00"},
        {"digits that are the text itself", "250050", 15, "250050"},
        {"a text of bytes", "caf\xE9 5", 15, "caf\uFFFD 5"},
        {"nothing", "", 0, ""},
        {"8-bit data stays", "00FF", 0x44, "00FF"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(sms::ussd_text(c.value, c.scheme), c.text) << c.fault;
}

TEST(SmsBroadcast, PagesOfCellBroadcasts)
{
    sms::broadcast page;
    EXPECT_EQ(sms::decode_broadcast("4C1011120122"
                                    "C8329BFD0651C3F3",
                                    page),
              nullptr);
    EXPECT_EQ(page.channel, 0x1112);
    EXPECT_EQ(page.serial, 0x4C10);
    EXPECT_EQ(page.page, 2);
    EXPECT_EQ(page.pages, 2);
    EXPECT_THAT(page.text, testing::StartsWith("Hello"));
    EXPECT_EQ(sms::decode_broadcast("000100324811"
                                    "041F0440000D000D",
                                    page),
              nullptr);
    EXPECT_EQ(page.text, "\u041F\u0440") << "padding is shown";
    EXPECT_NE(sms::decode_broadcast("0001003248", page), nullptr);
    EXPECT_NE(sms::decode_broadcast(string(2 * 89, '0'), page), nullptr);
}
} // namespace

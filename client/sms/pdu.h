// Short messages as modems exchange them in PDU mode: 3GPP TS 23.040 behind the service centre's address of TS 27.005.
// Any thread. Nothing is assumed about what is decoded; a refusal is a constant sentence.
#ifndef VLK_SMS_PDU_H
#define VLK_SMS_PDU_H

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "alphabet.h"

namespace sms
{
/// nullptr: done. Else the reason, worded to follow a colon.
using refusal = const char *;

enum class number_type : uint8_t {
    unknown = 0, // as it is dialled, short codes as well
    international = 1,
    national = 2,
    network = 3,
    subscriber = 4,
    alphanumeric = 5,
    abbreviated = 6,
    reserved = 7
};

struct address {
    number_type type = number_type::unknown;
    uint8_t plan = 1; ///< numbering plan, 0 to 15; 1: telephone
    std::string
        number; ///< 1 to 20 of 0-9 * # a b c, without a plus sign; alphanumeric: a name in UTF-8; empty: none

    bool operator==(const address &) const = default;
};

/// "+4915112345" for an international number, else the number or name itself.
std::string text_of(const address &from);

/// A number as people write it: a plus sign for an international one, up to 20 digits, * and #; blanks and hyphens
/// between them do not count.
refusal parse_number(std::string_view text, address &to);

struct timestamp {
    int year = 2000; ///< 1970 to 2069
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int zone = 0; ///< minutes east of Greenwich that the other members include, a multiple of 15

    bool operator==(const timestamp &) const = default;
};

/// "2026-03-01T10:00:00+02:00".
std::string text_of(const timestamp &time);

/// User data of one message, which may be one part of a longer one.
struct content {
    alphabet coding = alphabet::gsm7;
    int message_class = -1;  ///< 0: flash, shown at once and not stored; 1 to 3; -1: none
    bool compressed = false; ///< the units are octets of a compressed text
    bool wide = false;       ///< the reference has 16 bits
    uint16_t reference = 0;  ///< the same in all parts
    uint8_t count = 1;       ///< parts, 1 to 255
    uint8_t number = 1;      ///< of this part, 1 to count
    std::string elements;    ///< other elements of the user data header, each with its id and length
    std::u16string units;    ///< as they are on the air: septets, octets or UTF-16 units

    bool operator==(const content &) const = default;
};

enum class pdu_type : uint8_t {
    deliver = 0,      ///< to the phone
    submit = 1,       ///< from the phone
    status_report = 2 ///< the fate of a submitted message
};

enum class validity_form : uint8_t {
    none = 0,
    enhanced = 1,
    relative = 2,
    absolute = 3
};

struct pdu {
    pdu_type type = pdu_type::submit;
    address smsc; ///< empty: the modem's own
    address peer; ///< sender, or recipient of a submitted message and of the one that a report is about
    uint8_t protocol = 0;
    uint8_t reference = 0; ///< submit, report: the message reference
    bool report = false;   ///< a report is asked for; deliver: will be returned; report: on a command
    bool more = false;     ///< deliver, report: further messages wait
    bool reply_path = false;
    bool reject_duplicates = false;               ///< submit
    validity_form validity = validity_form::none; ///< submit
    std::array<uint8_t, 7> validity_octets{};     ///< relative: the first one only
    std::optional<timestamp>
        time; ///< deliver, report: when the service centre took the message; none: nonsense
    std::optional<timestamp> discharge; ///< report: when it was delivered, or last tried
    uint8_t status = 0;                 ///< report
    content data;

    bool operator==(const pdu &) const = default;
};

/// Reads hexadecimal digits that begin with the service centre's part. octets: how many the modem
/// announced behind that part, -1 when unknown; they also show that a modem left the part out. Octets behind the end do
/// not count.
refusal decode_pdu(std::string_view hex, int octets, pdu &to);

/// Hexadecimal digits that begin with the service centre's part; AT+CMGS wants the number of octets behind that part.
refusal encode_pdu(const pdu &from, std::string &hex);

/// The octet of a relative validity period of at least so many minutes; the longest is 63 weeks.
uint8_t validity_of_minutes(int minutes);
int minutes_of_validity(uint8_t octet);

enum class fate : uint8_t {
    delivered,
    pending, ///< the service centre is still trying
    failed
};
fate fate_of(uint8_t status);

/// What a status means, "delivered" for example.
const char *text_of_status(uint8_t status);

/// How a text is to be sent.
struct text_form {
    int message_class = -1;
    bool wide = false;      ///< a reference of 16 bits
    uint16_t reference = 0; ///< of a text with several parts
};

constexpr size_t MAX_PARTS = 255;

/// Divides a UTF-8 text into as few parts as it needs, in UCS-2 when a character is not in the GSM alphabet.
refusal split_text(std::string_view utf8, const text_form &form, std::vector<content> &parts);

/// Text of 8-bit data is its hexadecimal digits.
std::string text_of(const content &data);
} // namespace sms

#endif

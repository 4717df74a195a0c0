// Short message PDUs, as far as the message store and text mode need them: 3GPP TS 23.040 and 23.038.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace modemsim
{

/// One PDU taken apart. Addresses, times and data stay octets, so that what is read is written back unchanged.
struct short_message {
    enum kind {
        deliver = 0,
        submit = 1,
        status_report = 2
    } type = deliver; ///< the two lowest bits of first_octet
    std::string smsc; ///< service centre: type and digits, without the length in front
    unsigned first_octet = 0;
    unsigned reference = 0;
    std::string address; ///< of the other side: length, type, digits
    unsigned protocol = 0;
    unsigned coding = 0;
    std::string validity;            ///< submit: 0, 1 or 7 octets, as first_octet says
    std::string time = {};           ///< 7 octets, not in a submit
    std::string discharge_time = {}; ///< status_report: 7 octets
    unsigned status = 0;             ///< status_report
    unsigned length = 0;             ///< of the data: septets when packed, else octets
    std::string data;

    bool has_header() const { return (first_octet & 0x40) != 0; }
    bool wants_report() const { return type == submit && (first_octet & 0x20) != 0; }
    bool is_flash() const;
};

/// How text mode writes characters (AT+CSCS).
enum class character_set {
    ira,  ///< ASCII; '?' for what it lacks
    gsm,  ///< one octet a septet of the GSM alphabet
    ucs2, ///< four hexadecimal digits a UTF-16 unit
    utf8
};
character_set character_set_of(std::string_view name);

/// Reads the hexadecimal form with its service centre; nothing for what is no whole deliver, submit or status report.
std::optional<short_message> read_pdu(std::string_view hex);
std::string write_pdu(const short_message &message);

/// Octets of a PDU in hexadecimal form behind its service centre; nothing when the text is no PDU.
std::optional<unsigned> pdu_length(std::string_view hex);

/// "+12025550123", "0123" or "Example" as length, type and digits, and back.
std::string address_of(std::string_view number);
std::string number_of(std::string_view address);

/// "26/01/01,12:00:00+04" as seven octets, and back. Zeros for anything else.
std::string time_of(std::string_view text);
std::string time_text(std::string_view octets);

/// Gives the message this text, written in `set`, as its coding demands: packed septets, octets or UTF-16. False when
/// it is too long or cannot be written so.
bool set_text(short_message &message, std::string_view text, character_set set);

/// The same for UTF-8, with the coding that the text needs.
bool set_any_text(short_message &message, std::string_view text);

/// UTF-8 as text mode writes it.
std::string in_character_set(std::string_view utf8, character_set set);

/// The text in `set`; hexadecimal octets for what is not plain text of the GSM alphabet.
std::string text_of(const short_message &message, character_set set);

} // namespace modemsim

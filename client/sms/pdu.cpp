#include "pdu.h"

#include <algorithm>
#include <cstdio>

namespace sms
{
namespace
{
constexpr size_t MAX_DIGITS = 20;
constexpr size_t MAX_SMSC_OCTETS = 11;
constexpr size_t MAX_PDU_OCTETS = 1 + MAX_SMSC_OCTETS + 255;
constexpr size_t MAX_USER_OCTETS = 140;
constexpr std::string_view SEMI_OCTETS = "0123456789*#abc"; // 15: filler
constexpr uint8_t FILLER = 15;

// Bits of the first octet.
constexpr unsigned TYPE_MASK = 0x03;
constexpr unsigned NO_MORE = 0x04;           // deliver, report
constexpr unsigned REJECT_DUPLICATES = 0x04; // submit
constexpr unsigned VALIDITY_SHIFT = 3;
constexpr unsigned REPORT = 0x20;
constexpr unsigned HEADER = 0x40;
constexpr unsigned REPLY_PATH = 0x80;

// Elements of the user data header.
constexpr unsigned CONCATENATION = 0x00;
constexpr unsigned WIDE_CONCATENATION = 0x08;

/// Reads octets from front to back. Behind the end there are zeros, and the reader is exhausted.
class octet_reader
{
public:
    explicit octet_reader(std::string_view octets) : rest_(octets) {}

    uint8_t take()
    {
        const std::string_view one = take(1);
        return one.empty() ? uint8_t{0} : static_cast<uint8_t>(one[0]);
    }
    std::string_view take(size_t count)
    {
        exhausted_ = exhausted_ || count > rest_.size();
        const std::string_view taken = rest_.substr(0, count);
        rest_.remove_prefix(taken.size());
        return taken;
    }
    bool exhausted() const { return exhausted_; }
    size_t left() const { return rest_.size(); }

private:
    std::string_view rest_;
    bool exhausted_ = false;
};

char octet(size_t value)
{
    return static_cast<char>(value);
}

// ---- Addresses

void read_type(uint8_t type, address &to)
{
    to.type = static_cast<number_type>(type >> 4 & 7);
    to.plan = type & 15;
}

uint8_t type_octet(const address &from)
{
    return static_cast<uint8_t>(0x80 | static_cast<unsigned>(from.type) << 4 | (from.plan & 15U));
}

std::string digits_of(std::string_view octets, size_t count)
{
    std::string digits;
    for (size_t at = 0; at < count && at / 2 < octets.size(); at++) {
        const auto pair = static_cast<uint8_t>(octets[at / 2]);
        const unsigned value = at % 2 == 0 ? pair & 15U : pair >> 4;
        if (value == FILLER)
            break;
        digits += SEMI_OCTETS[value];
    }
    return digits;
}

/// A name whose last octet is full may hold a character of padding, which reads as an at sign.
std::string name_of_octets(std::string_view octets, size_t semi_octets)
{
    std::u16string septets = unpack_septets(octets, semi_octets * 4 / 7, 0);
    if (septets.size() % 8 == 0 && !septets.empty() && septets.back() == 0)
        septets.pop_back();
    return text_of(alphabet::gsm7, septets);
}

refusal read_address(octet_reader &in, address &to)
{
    const size_t semi_octets = in.take();
    read_type(in.take(), to);
    if (semi_octets > MAX_DIGITS)
        return "an address has more than 20 digits";
    const std::string_view octets = in.take((semi_octets + 1) / 2);
    to.number = to.type == number_type::alphanumeric ? name_of_octets(octets, semi_octets)
                                                     : digits_of(octets, semi_octets);
    return nullptr;
}

refusal read_smsc(octet_reader &in, address &to)
{
    const size_t length = in.take();
    if (length == 0)
        return nullptr;
    if (length > MAX_SMSC_OCTETS)
        return "the service centre's part has more than 11 octets";
    read_type(in.take(), to);
    to.number = digits_of(in.take(length - 1), 2 * (length - 1));
    return nullptr;
}

refusal append_digits(const address &from, std::string &octets)
{
    if (from.number.size() > MAX_DIGITS)
        return "a number has more than 20 digits";
    for (size_t at = 0; at < from.number.size(); at += 2) {
        const size_t low = SEMI_OCTETS.find(from.number[at]);
        const size_t high = at + 1 < from.number.size() ? SEMI_OCTETS.find(from.number[at + 1]) : FILLER;
        if (low == std::string_view::npos || high == std::string_view::npos)
            return "a number has a character that is no digit";
        octets += octet(high << 4 | low);
    }
    return nullptr;
}

refusal append_address(const address &from, std::string &octets)
{
    if (from.type != number_type::alphanumeric) {
        octets += octet(from.number.size());
        octets += octet(type_octet(from));
        return append_digits(from, octets);
    }
    std::u16string text;
    std::u16string septets;
    if (!utf16_of(from.number, text) || !septets_of(text, septets))
        return "a name has a character that the GSM alphabet lacks";
    const size_t semi_octets = (septets.size() * 7 + 3) / 4;
    if (semi_octets > MAX_DIGITS)
        return "a name has more than 11 characters";
    octets += octet(semi_octets);
    octets += octet(type_octet(from));
    octets += pack_septets(septets, 0);
    return nullptr;
}

refusal append_smsc(const address &from, std::string &octets)
{
    if (from.number.empty()) {
        octets += '\0';
        return nullptr;
    }
    if (from.type == number_type::alphanumeric)
        return "a service centre has no name, only a number";
    octets += octet(1 + (from.number.size() + 1) / 2);
    octets += octet(type_octet(from));
    return append_digits(from, octets);
}

// ---- Times

int swapped_digits(uint8_t value)
{
    return (value & 15) * 10 + (value >> 4);
}

char octet_of_digits(int value)
{
    return octet(static_cast<size_t>(value % 10) << 4 | static_cast<size_t>(value / 10));
}

bool is_decimal(uint8_t value)
{
    return (value & 15) <= 9 && value >> 4 <= 9;
}

/// None for digits that are no time.
std::optional<timestamp> read_time(octet_reader &in)
{
    const std::string_view octets = in.take(7);
    if (octets.size() < 7)
        return std::nullopt;
    std::array<int, 6> fields{};
    for (size_t at = 0; at < fields.size(); at++) {
        if (!is_decimal(static_cast<uint8_t>(octets[at])))
            return std::nullopt;
        fields[at] = swapped_digits(static_cast<uint8_t>(octets[at]));
    }
    const auto zone = static_cast<uint8_t>(octets[6]);
    const int quarters = swapped_digits(zone & 0xF7U);
    const timestamp time = {fields[0] < 70 ? 2000 + fields[0] : 1900 + fields[0],
                            fields[1],
                            fields[2],
                            fields[3],
                            fields[4],
                            fields[5],
                            (zone & 8) != 0 ? -15 * quarters : 15 * quarters};
    const bool exists = time.month >= 1 && time.month <= 12 && time.day >= 1 && time.day <= 31 &&
                        time.hour <= 23 && time.minute <= 59 && time.second <= 60 && zone >> 4 <= 9;
    return exists ? std::optional(time) : std::nullopt;
}

void append_time(const std::optional<timestamp> &time, std::string &octets)
{
    if (!time) {
        octets.append(7, '\0');
        return;
    }
    for (const int field : {time->year % 100, time->month, time->day, time->hour, time->minute, time->second})
        octets += octet_of_digits(field);
    const int quarters = std::min(std::abs(time->zone) / 15, 79);
    octets += octet(static_cast<unsigned char>(octet_of_digits(quarters)) | (time->zone < 0 ? 8U : 0U));
}

// ---- User data

void read_coding(uint8_t scheme, content &to)
{
    const unsigned group = scheme >> 4;
    const bool general = group < 8; // with or without deletion by the network
    const unsigned coding = general ? scheme & 0x0CU : 0;
    to.compressed = general && (scheme & 0x20) != 0;
    if (to.compressed || coding == 0x04 || (group == 0xF && (scheme & 0x04) != 0))
        to.coding = alphabet::octets;
    else if (coding == 0x08 || group == 0xE)
        to.coding = alphabet::ucs2;
    else
        to.coding = alphabet::gsm7;
    if ((general && (scheme & 0x10) != 0) || group == 0xF)
        to.message_class = scheme & 3;
}

uint8_t scheme_of(const content &from)
{
    unsigned scheme = from.coding == alphabet::ucs2 ? 0x08 : from.coding == alphabet::octets ? 0x04 : 0;
    if (from.compressed)
        scheme = 0x20;
    if (from.message_class >= 0)
        scheme |= 0x10U | (static_cast<unsigned>(from.message_class) & 3U);
    return static_cast<uint8_t>(scheme);
}

/// Numbers that make no sense are as good as no element.
void read_concatenation(std::string_view element, bool wide, content &to)
{
    const size_t size = wide ? 2 : 1;
    octet_reader in(element);
    unsigned reference = in.take();
    if (wide)
        reference = reference << 8 | in.take();
    const uint8_t count = in.take();
    const uint8_t number = in.take();
    if (element.size() != size + 2 || number == 0 || number > count || count == 1)
        return;
    to.wide = wide;
    to.reference = static_cast<uint16_t>(reference);
    to.count = count;
    to.number = number;
}

refusal read_header(std::string_view header, content &to)
{
    octet_reader in(header);
    while (in.left() > 0) {
        const uint8_t id = in.take();
        const uint8_t length = in.take();
        const std::string_view element = in.take(length);
        if (in.exhausted())
            return "the user data header is cut";
        if (id == CONCATENATION || id == WIDE_CONCATENATION) {
            read_concatenation(element, id == WIDE_CONCATENATION, to);
            continue;
        }
        to.elements += octet(id);
        to.elements += octet(length);
        to.elements += element;
    }
    return nullptr;
}

std::string header_of(const content &from)
{
    std::string header;
    if (from.count > 1) {
        header += octet(from.wide ? WIDE_CONCATENATION : CONCATENATION);
        header += octet(from.wide ? 4 : 3);
        if (from.wide)
            header += octet(from.reference >> 8);
        header += octet(from.reference & 0xFF);
        header += octet(from.count);
        header += octet(from.number);
    }
    header += from.elements;
    return header.empty() ? header : octet(header.size()) + header;
}

/// Septets that a header takes, its fill bits included.
size_t septets_of_header(size_t octets)
{
    return (octets * 8 + 6) / 7;
}

unsigned fill_bits(size_t header_octets)
{
    return static_cast<unsigned>(septets_of_header(header_octets) * 7 - header_octets * 8);
}

refusal read_content(octet_reader &in, bool with_header, content &to)
{
    const size_t length = in.take(); // septets or octets
    const bool septets = to.coding == alphabet::gsm7;
    const size_t octets = septets ? (length * 7 + 7) / 8 : length;
    if (octets > MAX_USER_OCTETS)
        return "the text is longer than a message can be";
    const std::string_view user = in.take(octets);
    if (in.exhausted())
        return "the text is cut";
    size_t header = 0;
    if (with_header) {
        if (user.empty() || size_t{1} + static_cast<uint8_t>(user[0]) > user.size())
            return "the user data header is longer than the text";
        header = size_t{1} + static_cast<uint8_t>(user[0]);
        if (const refusal why = read_header(user.substr(1, header - 1), to))
            return why;
    }
    const std::string_view text = user.substr(header);
    if (septets) {
        const size_t taken = std::min(septets_of_header(header), length);
        to.units = unpack_septets(text, length - taken, fill_bits(header));
    } else if (to.coding == alphabet::ucs2) {
        if (text.size() % 2 != 0)
            return "a UCS-2 text has an odd number of octets";
        to.units = units_of_octets(text);
    } else {
        for (const char byte : text)
            to.units += static_cast<char16_t>(static_cast<unsigned char>(byte));
    }
    return nullptr;
}

refusal append_content(const content &from, const std::string &header, std::string &octets)
{
    std::string text;
    size_t length = header.size() + from.units.size();
    if (from.coding == alphabet::gsm7) {
        length = septets_of_header(header.size()) + from.units.size();
        text = pack_septets(from.units, fill_bits(header.size()));
    } else if (from.coding == alphabet::ucs2) {
        length += from.units.size();
        for (const char16_t unit : from.units) {
            text += octet(unit >> 8);
            text += octet(unit & 0xFF);
        }
    } else {
        text = text_of(alphabet::octets, from.units);
    }
    if (header.size() + text.size() > MAX_USER_OCTETS)
        return "the text does not fit into one message";
    octets += octet(length);
    octets += header;
    octets += text;
    return nullptr;
}

// ---- The three kinds

refusal read_submit(octet_reader &in, unsigned first, pdu &to)
{
    to.reject_duplicates = (first & REJECT_DUPLICATES) != 0;
    to.reference = in.take();
    if (const refusal why = read_address(in, to.peer))
        return why;
    to.protocol = in.take();
    read_coding(in.take(), to.data);
    to.validity = static_cast<validity_form>(first >> VALIDITY_SHIFT & 3);
    const size_t octets = to.validity == validity_form::none       ? 0
                          : to.validity == validity_form::relative ? 1
                                                                   : 7;
    std::ranges::copy(in.take(octets), to.validity_octets.begin());
    return read_content(in, (first & HEADER) != 0, to.data);
}

refusal read_deliver(octet_reader &in, unsigned first, pdu &to)
{
    to.more = (first & NO_MORE) == 0;
    if (const refusal why = read_address(in, to.peer))
        return why;
    to.protocol = in.take();
    read_coding(in.take(), to.data);
    to.time = read_time(in);
    return read_content(in, (first & HEADER) != 0, to.data);
}

/// What stands behind the status is optional and announced by an octet of its own.
refusal read_status_report(octet_reader &in, unsigned first, pdu &to)
{
    constexpr unsigned HAS_PROTOCOL = 1;
    constexpr unsigned HAS_CODING = 2;
    constexpr unsigned HAS_DATA = 4;
    to.more = (first & NO_MORE) == 0;
    to.reference = in.take();
    if (const refusal why = read_address(in, to.peer))
        return why;
    to.time = read_time(in);
    to.discharge = read_time(in);
    to.status = in.take();
    if (in.left() == 0)
        return nullptr;
    const unsigned present = in.take();
    if ((present & HAS_PROTOCOL) != 0)
        to.protocol = in.take();
    if ((present & HAS_CODING) != 0)
        read_coding(in.take(), to.data);
    return (present & HAS_DATA) != 0 ? read_content(in, (first & HEADER) != 0, to.data) : nullptr;
}

refusal read_pdu(octet_reader &in, pdu &to)
{
    const unsigned first = in.take();
    const unsigned type = first & TYPE_MASK;
    to.type = type == 3 ? pdu_type::deliver : static_cast<pdu_type>(type); // reserved: read as deliver
    to.report = (first & REPORT) != 0;
    to.reply_path = to.type != pdu_type::status_report && (first & REPLY_PATH) != 0;
    if (to.type == pdu_type::submit)
        return read_submit(in, first, to);
    return to.type == pdu_type::deliver ? read_deliver(in, first, to) : read_status_report(in, first, to);
}

unsigned first_octet(const pdu &from, bool with_header)
{
    unsigned first = static_cast<unsigned>(from.type);
    if (from.type == pdu_type::submit) {
        first |= from.reject_duplicates ? REJECT_DUPLICATES : 0;
        first |= static_cast<unsigned>(from.validity) << VALIDITY_SHIFT;
    } else {
        first |= from.more ? 0 : NO_MORE;
    }
    first |= from.report ? REPORT : 0;
    first |= with_header ? HEADER : 0;
    return first | (from.reply_path ? REPLY_PATH : 0);
}

bool is_number_character(char c)
{
    return (c >= '0' && c <= '9') || c == '*' || c == '#';
}

struct status_text {
    uint8_t status;
    const char *text;
};

constexpr status_text STATUS_TEXTS[] = {
    {0x00, "delivered"},
    {0x01, "forwarded, but not confirmed by the recipient's network"},
    {0x02, "replaced by the service centre"},
    {0x20, "not delivered yet: the network is congested"},
    {0x21, "not delivered yet: the recipient is busy"},
    {0x22, "not delivered yet: no response from the recipient"},
    {0x23, "not delivered yet: the service was rejected"},
    {0x24, "not delivered yet: the quality of service is not available"},
    {0x25, "not delivered yet: an error at the recipient"},
    {0x40, "failed: remote procedure error"},
    {0x41, "failed: incompatible destination"},
    {0x42, "failed: the recipient's network rejected it"},
    {0x43, "failed: not obtainable"},
    {0x44, "failed: the quality of service is not available"},
    {0x45, "failed: no interworking"},
    {0x46, "failed: the validity period is over"},
    {0x47, "failed: deleted by the sender"},
    {0x48, "failed: deleted by the service centre"},
    {0x49, "failed: unknown to the service centre"},
    {0x60, "given up: the network is congested"},
    {0x61, "given up: the recipient is busy"},
    {0x62, "given up: no response from the recipient"},
    {0x63, "given up: the service was rejected"},
    {0x64, "given up: the quality of service is not available"},
    {0x65, "given up: an error at the recipient"},
};

size_t capacity_of(alphabet coding)
{
    if (coding == alphabet::gsm7)
        return 160;
    return coding == alphabet::ucs2 ? 70 : 140;
}

/// Units of one part of several, which has a header.
size_t part_capacity(alphabet coding, bool wide)
{
    const size_t header = wide ? 7 : 6;
    if (coding == alphabet::gsm7)
        return 160 - septets_of_header(header);
    return (MAX_USER_OCTETS - header) / (coding == alphabet::ucs2 ? 2 : 1);
}

/// How many units go into the first part without separating what belongs together.
size_t first_units(alphabet coding, std::u16string_view units, size_t capacity)
{
    size_t at = 0;
    while (at < units.size()) {
        const size_t next = at + whole_units(coding, units[at]);
        if (next > capacity)
            break;
        at = std::min(next, units.size());
    }
    return at;
}
} // namespace

std::string text_of(const address &from)
{
    return from.type == number_type::international ? "+" + from.number : from.number;
}

refusal parse_number(std::string_view text, address &to)
{
    to = address{};
    if (text.starts_with('+')) {
        to.type = number_type::international;
        text.remove_prefix(1);
    }
    for (const char c : text) {
        if (is_number_character(c))
            to.number += c;
        else if (c != ' ' && c != '-')
            return "a number has digits, * and #, and may begin with a plus sign";
    }
    if (to.number.empty())
        return "the number has no digits";
    return to.number.size() > MAX_DIGITS ? "the number has more than 20 digits" : nullptr;
}

std::string text_of(const timestamp &time)
{
    const int zone = std::abs(time.zone);
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d%c%02d:%02d", time.year, time.month,
                  time.day, time.hour, time.minute, time.second, time.zone < 0 ? '-' : '+', zone / 60,
                  zone % 60);
    return text;
}

refusal decode_pdu(std::string_view hex, int octets, pdu &to)
{
    to = pdu{};
    std::string bytes;
    if (hex.empty())
        return "the PDU is empty";
    if (hex.size() > 2 * MAX_PDU_OCTETS)
        return "the PDU is longer than a message can be";
    if (!octets_of_hex(hex, bytes))
        return "the PDU must be pairs of hexadecimal digits";
    octet_reader in(bytes);
    const bool bare = octets >= 0 && static_cast<size_t>(octets) == bytes.size();
    if (!bare)
        if (const refusal why = read_smsc(in, to.smsc))
            return why;
    if (octets > 0 && in.left() < static_cast<size_t>(octets))
        return "the PDU is shorter than the modem said";
    const refusal why = read_pdu(in, to);
    return why == nullptr && in.exhausted() ? "the PDU is cut" : why;
}

refusal encode_pdu(const pdu &from, std::string &hex)
{
    const std::string header = header_of(from.data);
    std::string octets;
    refusal why = append_smsc(from.smsc, octets);
    octets += octet(first_octet(from, !header.empty()));
    if (from.type != pdu_type::deliver)
        octets += octet(from.reference);
    if (why == nullptr)
        why = append_address(from.peer, octets);
    if (from.type == pdu_type::status_report) {
        append_time(from.time, octets);
        append_time(from.discharge, octets);
        octets += octet(from.status);
        if (!header.empty() || !from.data.units.empty())
            return "a report with a text is not made here";
    } else {
        octets += octet(from.protocol);
        octets += octet(scheme_of(from.data));
        if (from.type == pdu_type::deliver)
            append_time(from.time, octets);
        else if (from.validity != validity_form::none)
            for (size_t at = 0; at < (from.validity == validity_form::relative ? 1 : 7); at++)
                octets += octet(from.validity_octets[at]);
        if (why == nullptr)
            why = append_content(from.data, header, octets);
    }
    if (why == nullptr)
        hex = hex_of(octets);
    return why;
}

uint8_t validity_of_minutes(int minutes)
{
    for (int value = 0; value < 255; value++)
        if (minutes_of_validity(static_cast<uint8_t>(value)) >= minutes)
            return static_cast<uint8_t>(value);
    return 255;
}

int minutes_of_validity(uint8_t value)
{
    constexpr int DAY = 24 * 60;
    if (value <= 143)
        return (value + 1) * 5;
    if (value <= 167)
        return DAY / 2 + (value - 143) * 30;
    return value <= 196 ? (value - 166) * DAY : (value - 192) * 7 * DAY;
}

fate fate_of(uint8_t status)
{
    if (status < 0x20)
        return fate::delivered;
    return status < 0x40 ? fate::pending : fate::failed;
}

const char *text_of_status(uint8_t status)
{
    for (const status_text &row : STATUS_TEXTS)
        if (row.status == status)
            return row.text;
    if (fate_of(status) == fate::delivered)
        return "handed over";
    return fate_of(status) == fate::pending ? "not delivered yet" : "failed";
}

refusal split_text(std::string_view utf8, const text_form &form, std::vector<content> &parts)
{
    parts.clear();
    content part;
    part.message_class = form.message_class;
    std::u16string text;
    if (!utf16_of(utf8, text))
        return "the text is not UTF-8";
    std::u16string units;
    if (!septets_of(text, units)) {
        part.coding = alphabet::ucs2;
        units = text;
    }
    if (units.size() <= capacity_of(part.coding)) {
        part.units = units;
        parts.push_back(part);
        return nullptr;
    }
    part.wide = form.wide;
    part.reference = form.wide ? form.reference : form.reference & 0xFF;
    const size_t capacity = part_capacity(part.coding, form.wide);
    for (std::u16string_view rest = units; !rest.empty(); parts.push_back(part)) {
        if (parts.size() == MAX_PARTS)
            return "the text needs more than 255 parts";
        const size_t count = first_units(part.coding, rest, capacity);
        part.units = rest.substr(0, count);
        rest.remove_prefix(count);
    }
    for (size_t at = 0; at < parts.size(); at++) {
        parts[at].count = static_cast<uint8_t>(parts.size());
        parts[at].number = static_cast<uint8_t>(at + 1);
    }
    return nullptr;
}

std::string text_of(const content &data)
{
    const std::string text = text_of(data.coding, data.units);
    return data.coding == alphabet::octets ? hex_of(text) : text;
}
} // namespace sms

// The codec of short messages: PDUs, answers of the modem, texts of supplementary services, texts to be sent.
// Input: which of them; a number; the text. A PDU is given as octets or, with an odd number, as its digits.
#include <string>
#include <vector>

#include "fuzz.h"
#include "sms/broadcast.h"
#include "sms/joiner.h"
#include "sms_store.h"

namespace
{
bool is_utf8(const std::string &text)
{
    std::u16string units;
    return sms::utf16_of(text, units);
}

/// What was read can be written, and is read the same then.
void require_same_again(const sms::pdu &read)
{
    std::string hex;
    sms::pdu again;
    if (read.data.compressed || sms::encode_pdu(read, hex) != nullptr)
        return;
    require(sms::decode_pdu(hex, -1, again) == nullptr, "what was written can be read");
    if (read.type != sms::pdu_type::status_report) // one without a text is written without its coding
        require(again.data == read.data, "a text that is written again stays the same");
    require(again.time == read.time && again.reference == read.reference, "so do time and reference");
}

void try_pdu(fuzz_input &in, int number)
{
    const std::string_view rest = in.take(4096);
    const std::string hex = number % 2 == 0 ? sms::hex_of(rest) : std::string(rest);
    sms::pdu read;
    const sms::refusal why = sms::decode_pdu(hex, number - 1, read);
    require(why == nullptr || why[0] != '\0', "a refusal has its reason");
    if (why != nullptr)
        return;
    require(read.data.units.size() <= 160 && read.peer.number.size() <= 60, "a message is bounded");
    require(read.data.number >= 1 && read.data.number <= read.data.count, "a part is one of its parts");
    require(is_utf8(sms::text_of(read.data)) && is_utf8(sms::text_of(read.peer)), "texts are UTF-8");
    require_same_again(read);
    sms::joiner joiner;
    const size_t ready = joiner.take(read, 0).size();
    require(ready + joiner.take_rest().size() == 1, "no message is lost");
}

void try_text(fuzz_input &in, int number)
{
    const std::string text(in.take(4096));
    std::vector<sms::content> parts;
    const sms::text_form form = {number % 5 - 1, number % 2 == 0, static_cast<uint16_t>(number)};
    if (sms::split_text(text, form, parts) != nullptr)
        return;
    sms::joiner joiner;
    std::vector<sms::message> ready;
    for (const sms::content &part : parts) {
        sms::pdu made;
        made.peer.number = "1";
        made.data = part;
        std::string hex;
        sms::pdu read;
        require(sms::encode_pdu(made, hex) == nullptr, "a part fits into a message");
        require(sms::decode_pdu(hex, -1, read) == nullptr && read == made, "a part comes back the same");
        ready = joiner.take(read, 0);
    }
    require(ready.size() == 1 && ready[0].text() == text, "a text comes back the same");
}

void try_answer(fuzz_input &in, int number)
{
    std::vector<sms::stored> messages;
    sms::read_stored(in.take(4096), number, messages);
    for (const sms::stored &message : messages)
        require(message.index >= 0 && !message.hex.empty(), "a stored message has a place and a PDU");
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    fuzz_input in(data, size);
    const unsigned which = in.take_byte();
    const int number = in.take_byte();
    sms::broadcast page;
    switch (which & 7) {
    case 0:
        try_text(in, number);
        break;
    case 1:
        try_answer(in, number);
        break;
    case 2:
        require(is_utf8(sms::ussd_text(in.take(4096), number - 1)), "a text of the network's is UTF-8");
        break;
    case 3:
        if (sms::decode_broadcast(in.take(4096), page) == nullptr)
            require(is_utf8(page.text) && page.page <= page.pages, "a page is one of its pages");
        break;
    default:
        try_pdu(in, number);
    }
    return 0;
}

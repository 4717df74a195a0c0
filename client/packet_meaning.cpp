#include "packet_meaning.h"

#include <array>
#include <cstring>

#include "sms/joiner.h"
#include "vlk_reports.h"

using nlohmann::ordered_json;
using std::string;

namespace
{
// docs/reports.md has the numbers and layouts.
constexpr int32_t USSD_MODULE = 2;
constexpr uint32_t EVT_USSD = 2003;
constexpr int32_t RADIO_MODULE = 19;
constexpr uint32_t EVT_REGISTRATION = 19008;
constexpr uint32_t EVT_SIGNAL_QUALITY = 19016; // ^HCSQ: sysmode, five values
constexpr uint32_t EVT_SIGNAL_DETAIL = 19034;  // ^CERSSI: rssi at word 2, then rscp, ecio, rsrp, rsrq, rssnr
constexpr int32_t REGISTRATION_MODULE = 106;
constexpr uint32_t QUALITY_LENGTH = 24;
constexpr uint32_t DETAIL_LENGTH = 84;
constexpr uint32_t USSD_LENGTH = 528;
constexpr uint32_t USSD_TEXT = 4;
constexpr uint32_t USSD_TEXT_SIZE = 512;

bool is_record(const vlk_packet &packet, int32_t module, uint32_t code, uint32_t length)
{
    return packet.kind == VLK_PACKET_EVENT_DATA && packet.module == module && packet.code == code &&
           packet.length == length;
}

int32_t word_at(const vlk_packet &packet, uint32_t offset)
{
    int32_t word = 0;
    std::memcpy(&word, static_cast<const char *>(packet.data) + offset, sizeof word);
    return word;
}

void take_detail(const vlk_packet &packet, signal_reading &reading)
{
    std::array<int32_t, 6> words{};
    for (uint32_t n = 0; n < words.size(); n++)
        words[n] = word_at(packet, 8 + 4 * n);
    const auto known = [](int32_t value) { return value == 0 ? std::optional<double>{} : value; };
    const auto [rssi, rscp, ecio, rsrp, rsrq, rssnr] = words;
    reading.rssi = known(rssi);
    reading.rscp = known(rscp);
    reading.ecio = rscp == 0 ? std::optional<double>{} : ecio;
    reading.rsrp = known(rsrp);
    reading.rsrq = rsrp == 0 ? std::optional<double>{} : rsrq;
    reading.sinr = rsrp == 0 ? std::optional<double>{} : rssnr;
}

string signal_text(const signal_reading &reading)
{
    const std::optional<double> strength = strength_of(reading);
    if (!strength)
        return "no signal";
    return (reading.technology.empty() ? "" : reading.technology + " ") +
           std::to_string(static_cast<int>(*strength)) + " dBm, " + std::to_string(bars_of(reading)) +
           " of " + std::to_string(BARS) + " bars";
}

/// "from +49...: text" of a message as it arrives, "report on message 12" of a delivery report; empty for another packet.
std::string message_meaning(const vlk_packet &packet)
{
    vlk_sms_content content{};
    if (!is_record(packet, VLK_MODULE_SMS, VLK_EVT_SMS_ARRIVED, sizeof content))
        return "";
    std::memcpy(&content, packet.data, sizeof content);
    sms::pdu pdu;
    const std::string_view digits(content.pdu, strnlen(content.pdu, sizeof content.pdu));
    const bool is_pdu = content.report_id == VLK_REPORT_CMT || content.report_id == VLK_REPORT_CDS;
    if (!is_pdu || sms::decode_pdu(digits, content.length, pdu) != nullptr)
        return "";
    if (pdu.type == sms::pdu_type::status_report)
        return "report on message " + std::to_string(pdu.reference) + " to " + text_of(pdu.peer);
    const sms::message whole{pdu, {0}, {pdu.data.units}};
    const std::string part = pdu.data.count > 1 ? " (part " + std::to_string(pdu.data.number) + " of " +
                                                      std::to_string(pdu.data.count) + ")"
                                                : "";
    return "from " + text_of(pdu.peer) + part + ": " + whole.text();
}
} // namespace

bool take_signal(const vlk_packet &packet, signal_reading &reading)
{
    if (is_record(packet, RADIO_MODULE, EVT_SIGNAL_QUALITY, QUALITY_LENGTH)) {
        std::vector<int> values;
        for (uint32_t offset = 4; offset < QUALITY_LENGTH; offset += 4)
            values.push_back(word_at(packet, offset));
        reading = signal_of_hcsq(word_at(packet, 0), values);
        return true;
    }
    if (!is_record(packet, RADIO_MODULE, EVT_SIGNAL_DETAIL, DETAIL_LENGTH))
        return false;
    take_detail(packet, reading);
    return true;
}

bool asks_to_look(const vlk_packet &packet)
{
    return packet.kind == VLK_PACKET_EVENT && packet.module == RADIO_MODULE &&
           packet.code == EVT_REGISTRATION;
}

std::optional<ussd_message> ussd_of(const vlk_packet &packet)
{
    if (!is_record(packet, USSD_MODULE, EVT_USSD, USSD_LENGTH))
        return {};
    const auto length = static_cast<uint32_t>(word_at(packet, USSD_TEXT + USSD_TEXT_SIZE));
    const char *const text = static_cast<const char *>(packet.data) + USSD_TEXT;
    const std::string_view whole(text, length <= USSD_TEXT_SIZE ? length : 0);
    const int32_t scheme = word_at(packet, USSD_TEXT + USSD_TEXT_SIZE + 4);
    return ussd_message{word_at(packet, 0),
                        ussd_text(whole.substr(0, whole.find_last_not_of('\0') + 1), scheme)};
}

void add_meaning(const vlk_packet &packet, ordered_json &object)
{
    signal_reading reading;
    if (const std::optional<ussd_message> message = ussd_of(packet))
        object["meaning"] = message->text;
    else if (take_signal(packet, reading))
        object["meaning"] = signal_text(reading);
    else if (const std::string sms = message_meaning(packet); !sms.empty())
        object["meaning"] = sms;
    else if (packet.kind == VLK_PACKET_EVENT && packet.module == REGISTRATION_MODULE)
        object["meaning"] = registration_text(packet.value1);
}

#include "packet_meaning.h"

#include <cstring>

#include "sms/joiner.h"

using nlohmann::ordered_json;
using std::string;

namespace
{
void take_detail(const vlk_cerssi &told, signal_reading &reading)
{
    const auto known = [](int32_t value) { return value == 0 ? std::optional<double>{} : value; };
    reading.rssi = known(told.rssi);
    reading.rscp = known(told.rscp);
    reading.ecio = told.rscp == 0 ? std::optional<double>{} : told.ecio;
    reading.rsrp = known(told.rsrp);
    reading.rsrq = told.rsrp == 0 ? std::optional<double>{} : told.rsrq;
    reading.sinr = told.rsrp == 0 ? std::optional<double>{} : told.rssnr;
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
    const auto content = record_of<vlk_sms_content>(packet, VLK_MODULE_SMS, VLK_EVT_SMS_ARRIVED);
    if (!content || (content->report_id != VLK_REPORT_CMT && content->report_id != VLK_REPORT_CDS))
        return "";
    sms::pdu pdu;
    const std::string_view digits(content->pdu, strnlen(content->pdu, sizeof content->pdu));
    if (sms::decode_pdu(digits, content->length, pdu) != nullptr)
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
    if (const auto told = record_of<vlk_hcsq>(packet, VLK_MODULE_RADIO, VLK_EVT_SIGNAL_QUALITY)) {
        reading = signal_of_hcsq(told->sysmode,
                                 {told->value1, told->value2, told->value3, told->value4, told->value5});
        return true;
    }
    const auto told = record_of<vlk_cerssi>(packet, VLK_MODULE_RADIO, VLK_EVT_SIGNAL_DETAIL);
    if (told)
        take_detail(*told, reading);
    return told.has_value();
}

bool asks_to_look(const vlk_packet &packet)
{
    return packet.kind == VLK_PACKET_EVENT && packet.module == VLK_MODULE_RADIO &&
           packet.code == VLK_EVT_REGISTRATION;
}

std::optional<ussd_message> ussd_of(const vlk_packet &packet)
{
    const auto told = record_of<vlk_cusd>(packet, VLK_MODULE_USSD, VLK_EVT_USSD);
    if (!told)
        return {};
    const auto length = static_cast<uint32_t>(told->cusdStr_length);
    const std::string_view whole(told->cusdStr, length <= sizeof told->cusdStr ? length : 0);
    return ussd_message{told->rspType,
                        ussd_text(whole.substr(0, whole.find_last_not_of('\0') + 1), told->codeType)};
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
    else if (packet.kind == VLK_PACKET_EVENT && packet.module == VLK_MODULE_REGISTRATION)
        object["meaning"] = registration_text(packet.value1);
}

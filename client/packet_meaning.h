// What a notification means beyond its fields: signal in dBm, messages as text.
#ifndef VLK_PACKET_MEANING_H
#define VLK_PACKET_MEANING_H

#include <cstring>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "modem_answers.h"
#include "vlk_client.h"
#include "vlk_reports.h"

/// The record that the event carries; none when the event or the size of its record differs.
template <typename record>
std::optional<record> record_of(const vlk_packet &packet, int32_t module, uint32_t code)
{
    record told;
    if (packet.kind != VLK_PACKET_EVENT_DATA || packet.module != module || packet.code != code ||
        packet.length != sizeof told)
        return {};
    std::memcpy(&told, packet.data, sizeof told);
    return told;
}

/// Adds what a notification of the radio module says about the signal to the reading. False: it says nothing.
bool take_signal(const vlk_packet &packet, signal_reading &reading);

/// True for the notification after every registration report, which says only that something changed.
bool asks_to_look(const vlk_packet &packet);

struct ussd_message {
    int type; // 0: done, 1: the network waits for an answer, 2: ended by the network, 3..5: failed
    std::string text;
};

/// The message of a +CUSD notification; none for any other packet.
std::optional<ussd_message> ussd_of(const vlk_packet &packet);

/// Adds to the object of packet_json what the packet means to a person ("meaning", one line).
void add_meaning(const vlk_packet &packet, nlohmann::ordered_json &object);

#endif

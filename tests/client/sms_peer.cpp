// The codec as a program, for sms_crosscheck.py: "make SEED COUNT" prints random messages, "read" those whose PDUs come
// on standard input. One JSON object a line.
#include <cstdlib>
#include <iostream>
#include <string>

#include <nlohmann/json.hpp>

#include "random_text.h"
#include "sms/pdu.h"

namespace
{
nlohmann::json seen(const sms::pdu &message)
{
    const sms::content &data = message.data;
    return {{"type", static_cast<int>(message.type)},
            {"peer", sms::text_of(message.peer)},
            {"smsc", sms::text_of(message.smsc)},
            {"time", message.time ? sms::text_of(*message.time) : ""},
            {"alphabet", sms::name_of(data.coding)},
            {"class", data.message_class},
            {"part", {data.reference, data.count, data.number, data.wide && data.count > 1}},
            {"text", sms::text_of(data)}};
}

sms::address random_number(std::mt19937 &random)
{
    sms::address made{random() % 2 == 0 ? sms::number_type::international : sms::number_type::unknown, 1, ""};
    for (size_t length = 3 + random() % 13; length > 0; length--)
        made.number += "0123456789"[random() % 10];
    return made;
}

void make(unsigned seed, int count)
{
    std::mt19937 random(seed);
    while (count > 0) {
        sms::pdu message;
        message.type = random() % 2 == 0 ? sms::pdu_type::submit : sms::pdu_type::deliver;
        message.peer = random_number(random);
        if (message.type == sms::pdu_type::deliver && random() % 4 == 0)
            message.peer = {sms::number_type::alphanumeric, 0, random_text::name(random)};
        if (random() % 2 == 0)
            message.smsc = {sms::number_type::international, 1, "49171" + std::to_string(random() % 100000)};
        if (message.type == sms::pdu_type::deliver)
            message.time = sms::timestamp{2000 + static_cast<int>(random() % 60),
                                          1 + static_cast<int>(random() % 12),
                                          1 + static_cast<int>(random() % 28),
                                          static_cast<int>(random() % 24),
                                          static_cast<int>(random() % 60),
                                          static_cast<int>(random() % 60),
                                          0};
        std::vector<sms::content> parts;
        const sms::text_form form = {static_cast<int>(random() % 5) - 1, random() % 2 == 0,
                                     static_cast<uint16_t>(random())};
        sms::split_text(random_text::of_any_alphabet(random, 10), form, parts);
        message.data = parts[random() % parts.size()];
        std::string hex;
        if (sms::encode_pdu(message, hex) != nullptr)
            std::abort();
        nlohmann::json object = seen(message);
        object["hex"] = hex;
        std::cout << object.dump(-1, ' ', true) << "\n";
        count--;
    }
}

void read()
{
    for (std::string hex; std::getline(std::cin, hex);) {
        sms::pdu message;
        const sms::refusal why = sms::decode_pdu(hex, -1, message);
        std::cout << (why == nullptr ? seen(message) : nlohmann::json{{"error", why}}).dump(-1, ' ', true)
                  << "\n";
    }
}
} // namespace

int main(int argc, char **argv)
{
    if (argc == 4)
        make(static_cast<unsigned>(std::atoi(argv[2])), std::atoi(argv[3]));
    else
        read();
    return 0;
}

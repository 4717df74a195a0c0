// How a notification or bus message looks in vlkctl monitor. packet_layouts.h has names and layouts.
#ifndef VLK_PACKET_TEXT_H
#define VLK_PACKET_TEXT_H

#include <string>

#include <nlohmann/json.hpp>

#include "vlk_client.h"

/// One line: target, number, name, reports that it comes from, fields. What is not known is left out, and values or
/// data that cannot be read as fields are shown as they are. Texts are escaped: the line is plain ASCII.
std::string packet_line(const vlk_packet &packet);

/// The same as an object, always with the values or, in hexadecimal, the data. "missed" is there only after a gap.
/// Texts of the modem are in it as they came: write it with print_json.
nlohmann::ordered_json packet_json(const vlk_packet &packet);

#endif

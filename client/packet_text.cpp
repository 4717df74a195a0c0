#include "packet_text.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "ctl_output.h"
#include "packet_layouts.h"

using nlohmann::ordered_json;
using std::string;
using std::string_view;

namespace
{
constexpr const char *UNKNOWN_LAYOUT = "data of an unknown layout";

/// What the fields of a packet are read from: its data or its two values.
string content_of(const vlk_packet &packet)
{
    if (packet.kind != VLK_PACKET_EVENT)
        return {static_cast<const char *>(packet.data), packet.length};
    const int32_t values[] = {packet.value1, packet.value2};
    static_assert(sizeof values == VALUES);
    return {reinterpret_cast<const char *>(values), sizeof values};
}

template <typename number>
number read(const char *bytes)
{
    number value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

ordered_json number_at(field_kind kind, const char *bytes)
{
    switch (kind) {
    case U16:
        return read<uint16_t>(bytes);
    case U32:
        return read<uint32_t>(bytes);
    case I32:
        return read<int32_t>(bytes);
    case U64:
        return read<uint64_t>(bytes);
    default:
        return read<uint8_t>(bytes);
    }
}

ordered_json value_of(const field_layout &field, string_view content)
{
    if (field.kind == TEXT) {
        const string_view text = content.substr(field.offset, field.count);
        return text.substr(0, text.find_last_not_of('\0') + 1); // NULs may be inside
    }
    const char *at = content.data() + field.offset;
    if (field.count == 1)
        return number_at(field.kind, at);
    ordered_json list;
    for (std::size_t n = 0; n < field.count; n++)
        list.push_back(number_at(field.kind, at + n * size_of(field.kind)));
    return list;
}

struct recognition {
    const packet_layout *row = nullptr; // of the packet's target and number
    bool readable = false;              // the data has the row's layout, too
};

recognition recognise(const vlk_packet &packet, string_view content)
{
    recognition found;
    for (const packet_layout &row : PACKETS) {
        if (row.module != packet.module || row.destination != packet.name || row.code != packet.code)
            continue;
        if (row.record->size == content.size() &&
            (row.id == ANY_ID || row.id == read<uint32_t>(content.data())))
            return {&row, true};
        found.row = &row;
    }
    return found;
}

/// Adds what the packet is called and its fields, as far as they are known.
void describe(const vlk_packet &packet, ordered_json &object)
{
    const string content = content_of(packet);
    const auto [row, readable] = recognise(packet, content);
    if (row == nullptr)
        return;
    object["name"] = row->name;
    if (!readable) {
        object["note"] = UNKNOWN_LAYOUT;
        return;
    }
    if (*row->reports != '\0')
        object["reports"] = row->reports;
    object["fields"] = ordered_json::object();
    for (const field_layout &field : row->record->fields)
        object["fields"][field.name] = value_of(field, content);
}

const char *name_of_module(int32_t module)
{
    const auto *row = std::ranges::find(MODULE_NAMES, module, &module_name::module);
    return row == std::end(MODULE_NAMES) ? nullptr : row->name;
}

/// In quotation marks, every byte but plain ASCII as \xNN.
string escaped(string_view text)
{
    string out = "\"";
    for (const char c : text)
        if (c >= ' ' && c <= '~' && c != '"' && c != '\\')
            out += c;
        else
            out += "\\x" + hex_text(&c, 1);
    return out + '"';
}

string shown(const ordered_json &value)
{
    return value.is_string() ? escaped(value.get_ref<const string &>()) : value.dump();
}

string target_of(const vlk_packet &packet)
{
    if (packet.kind == VLK_PACKET_BUS)
        return string("bus ") + packet.name;
    const string number = std::to_string(packet.module);
    const char *name = name_of_module(packet.module);
    return name == nullptr ? "event module " + number : string("event ") + name + " (" + number + ")";
}
} // namespace

ordered_json packet_json(const vlk_packet &packet)
{
    ordered_json object;
    if (packet.kind == VLK_PACKET_BUS)
        object = {{"kind", "bus"}, {"destination", packet.name}, {"type", packet.code}};
    else
        object = {{"kind", "event"}, {"module", packet.module}, {"event", packet.code}};
    if (const char *name = name_of_module(packet.module))
        object["module_name"] = name;
    describe(packet, object);
    if (packet.kind == VLK_PACKET_EVENT) {
        object["values"] = {packet.value1, packet.value2};
    } else {
        object["length"] = packet.length;
        object["data"] = hex_text(packet.data, packet.length);
    }
    if (packet.missed > 0)
        object["missed"] = packet.missed;
    return object;
}

string packet_line(const vlk_packet &packet)
{
    const ordered_json object = packet_json(packet);
    string line = target_of(packet) + ' ' + std::to_string(packet.code);
    for (const char *key : {"name", "reports"})
        if (object.contains(key))
            line += ' ' + object[key].get<string>();
    if (object.contains("fields")) {
        for (const auto &[name, value] : object["fields"].items())
            line += ' ' + name + '=' + shown(value);
        return line;
    }
    if (packet.kind == VLK_PACKET_EVENT)
        line += " values " + std::to_string(packet.value1) + ' ' + std::to_string(packet.value2);
    else
        line += " data " + std::to_string(packet.length) + (packet.length == 0 ? "" : " ") +
                object["data"].get<string>();
    return object.contains("note") ? line + " (" + UNKNOWN_LAYOUT + ')' : line;
}

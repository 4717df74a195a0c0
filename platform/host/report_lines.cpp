#include "report_lines.h"

#include <algorithm>
#include <array>

#include "at_framing.h"
#include "hub.h"
#include "vlk_report_prefixes.h"

namespace
{
constexpr std::string_view LINE_END = "\r\n";

void tell(std::string_view line)
{
    std::array<char, AT_DELIVERY_MAX * 2> text;
    std::size_t count = 0;
    for (const char c : line) {
        if (c == '\n' && (count == 0 || text[count - 1] != '\r'))
            text[count++] = '\r';
        text[count++] = c;
    }
    host_packet packet{};
    packet.kind = HOST_REPORT_LINE;
    packet.length = static_cast<uint32_t>(count);
    hub_post(packet, text.data());
}
} // namespace

bool is_report_line(std::string_view line)
{
    if (at_is_final_result(line))
        return false;
    const std::string_view name = line.substr(0, line.find_first_of(": ,"));
    return line.starts_with('+') || line.starts_with('^') ||
           std::ranges::find(VLK_REPORT_PREFIXES, name) != std::end(VLK_REPORT_PREFIXES);
}

std::string_view without_report_names(std::string_view answer, char *room)
{
    const auto is_report_name = [](std::string_view line) {
        const bool is_name = (line.starts_with('+') || line.starts_with('^')) && line.find(':') == line.npos;
        return is_name && vlk_holds_report_name(line);
    };
    std::size_t kept = 0;
    while (!answer.empty()) {
        const std::size_t end = std::min(answer.find(LINE_END), answer.size());
        const std::size_t whole = std::min(end + LINE_END.size(), answer.size());
        if (!is_report_name(answer.substr(0, end)))
            kept += answer.copy(room + kept, whole);
        answer.remove_prefix(whole);
    }
    return {room, kept};
}

void report_lines_delivery(std::string_view delivery)
{
    if (!hub_takes_lines())
        return;
    while (!delivery.empty()) {
        std::size_t end = std::min(delivery.find(LINE_END), delivery.size());
        if (delivery.starts_with("+CBM:") && end < delivery.size()) // its PDU is the next line
            end = std::min(delivery.find(LINE_END, end + LINE_END.size()), delivery.size());
        if (end > 0 && end < delivery.size() && is_report_line(delivery.substr(0, end)))
            tell(delivery.substr(0, end));
        delivery.remove_prefix(std::min(end + LINE_END.size(), delivery.size()));
    }
}

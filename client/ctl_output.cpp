#include "ctl_output.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <vector>

#include <langinfo.h>
#include <unistd.h>

using nlohmann::ordered_json;
using std::string;
using std::string_view;

namespace
{
constexpr string_view LINE_END = "\r\n";

string_view response_of(const at_cmd_msg &reply)
{
    return {reply.snd_rcv_msg.rmsg, vlk_response_length(&reply)};
}

/// The lines that are not empty.
std::vector<string> lines_of(string_view text)
{
    std::vector<string> lines;
    while (!text.empty()) {
        const size_t end = std::min(text.find(LINE_END), text.size());
        if (end > 0)
            lines.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + LINE_END.size(), text.size()));
    }
    return lines;
}

/// The final line with its cause when the response ends with it ("+CME ERROR: 10"), else the result code's text.
string final_line(const at_cmd_msg &reply)
{
    const string text = vlk_final_result(reply.snd_rcv_msg.ret_val);
    const std::vector<string> lines = lines_of(response_of(reply));
    return !lines.empty() && lines.back().starts_with(text) ? lines.back() : text;
}

bool has_final_line_only(const at_cmd_msg &reply)
{
    const int32_t code = reply.snd_rcv_msg.ret_val;
    return reply.req_type != AT_RAW_COMMAND && (code == AT_CME_ERROR || code == AT_CMS_ERROR);
}

ordered_json json_of(const at_cmd_msg &reply, string_view what)
{
    const string_view response = response_of(reply);
    return {{"command", what},
            {"result", {{"code", reply.snd_rcv_msg.ret_val}, {"text", final_line(reply)}}},
            {"response", response},
            {"lines", lines_of(response)},
            {"time_left", reply.timeout},
            {"seq", reply.seq}};
}

bool write_out(string text)
{
    if (text.empty() || text.back() != '\n')
        text += '\n';
    if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0)
        return true;
    print_error(string("cannot write to standard output: ") + std::strerror(errno));
    return false;
}

/// Bytes of the UTF-8 character at the beginning of the text that a terminal shows and does not obey; 0: none. Left
/// out are C1 controls and what changes the direction of text.
size_t shown_character(string_view text)
{
    const auto lead = static_cast<unsigned char>(text[0]);
    const size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < size)
        return 0;
    char32_t c = lead & (0x7FU >> size);
    for (size_t at = 1; at < size; at++) {
        const auto byte = static_cast<unsigned char>(text[at]);
        if ((byte & 0xC0) != 0x80)
            return 0;
        c = c << 6 | (byte & 0x3F);
    }
    constexpr char32_t SHORTEST[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool valid = c >= SHORTEST[size] && c <= 0x10FFFF && (c & 0xFFFFF800U) != 0xD800;
    const bool obeyed = c < 0xA0 || c == 0x61C || (c >= 0x200B && c <= 0x200F) ||
                        (c >= 0x2028 && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069) || c == 0xFEFF;
    return valid && !obeyed ? size : 0;
}

/// The exit code of a command that failed with this vlk_result.
ctl_exit exit_code_of(int result)
{
    switch (result) {
    case VLK_NOT_RUNNING:
        return EXIT_NOT_RUNNING;
    case VLK_DENIED:
        return EXIT_DENIED;
    case VLK_TIMEOUT:
        return EXIT_NO_ANSWER;
    case VLK_INVALID:
        return EXIT_USAGE;
    case VLK_NO_MODEM:
        return EXIT_NO_MODEM;
    default:
        return EXIT_OTHER;
    }
}
} // namespace

string printable(string_view text, bool terminal)
{
    string out;
    for (size_t at = 0; at < text.size(); at++) {
        const auto byte = static_cast<unsigned char>(text[at]);
        if (text.substr(at).starts_with(LINE_END))
            continue; // its line feed comes next
        const size_t size = terminal && byte >= 0x80 && speaks_utf8() ? shown_character(text.substr(at)) : 0;
        if (size > 0) {
            out += text.substr(at, size);
            at += size - 1;
        } else if (!terminal || byte == '\n' || byte == '\t' || (byte >= ' ' && byte < 0x7F)) {
            out += text[at];
        } else {
            out += "\\x" + hex_text(&byte, 1);
        }
    }
    return out;
}

bool speaks_utf8()
{
    static const bool utf8 =
        std::setlocale(LC_CTYPE, "") != nullptr && string_view(nl_langinfo(CODESET)) == "UTF-8";
    return utf8;
}

bool on_terminal()
{
    return isatty(STDOUT_FILENO) == 1;
}

string hex_text(const void *data, size_t length)
{
    constexpr string_view DIGITS = "0123456789ABCDEF";
    const auto *bytes = static_cast<const unsigned char *>(data);
    string text;
    for (size_t at = 0; at < length; at++) {
        text += DIGITS[bytes[at] >> 4];
        text += DIGITS[bytes[at] & 15];
    }
    return text;
}

bool print_line(string_view line)
{
    return write_out(printable(line, on_terminal()));
}

void print_error(string_view line)
{
    std::fprintf(stderr, "vlkctl: %s\n", printable(line, true).c_str());
}

bool print_json(const ordered_json &object)
{
    return write_out(object.dump(-1, ' ', false, ordered_json::error_handler_t::replace));
}

ordered_json text_or_null(const string &text)
{
    return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

ordered_json number_or_null(std::optional<int> number)
{
    ordered_json value;
    if (number.has_value())
        value = number.value_or(0);
    return value;
}

int report_failure(int result, bool json, ordered_json object)
{
    print_error(vlk_last_error());
    object["error"] = vlk_last_error();
    if (json)
        print_json(object);
    return exit_code_of(result);
}

int report_refusal(ctl_exit code, const string &text, bool json)
{
    print_error(text);
    if (json)
        print_json({{"error", text}});
    return code;
}

const char *cut_text(int cut)
{
    return cut == VLK_ENDED_BY_TEXT
               ? "the last line looks like the end of the answer and is none: what came behind "
                 "it is missing (messages: vlkctl sms list reads any text)"
               : "the answer was too long for the daemon, lines are missing";
}

outcome outcome_of(int32_t ret_val, const string &final_line, bool empty, uint32_t modem)
{
    const string state = vlk_modem_text(modem);
    switch (ret_val) {
    case AT_OK:
        return {EXIT_DONE, empty ? "OK" : ""};
    case AT_ATE0:
    case AT_CONNECT:
        return {EXIT_DONE, final_line};
    case AT_NONE:
        return {EXIT_NO_ANSWER, "no final result in time (modem: " + state + "): allow more with --timeout"};
    case 0:
        return {EXIT_NO_ANSWER, "the modem gave neither a prompt nor a final result (modem: " + state + ")"};
    case AT_COMMAND_NOT_SUPPORT:
        if (modem != VLK_MODEM_READY)
            return {EXIT_OTHER, "the command could not be written (modem: " + state + ")"};
        return {EXIT_MODEM_ERROR, final_line};
    default:
        return {EXIT_MODEM_ERROR, final_line};
    }
}

int report_reply(const at_cmd_msg &reply, uint32_t modem, string_view what, bool json)
{
    const string_view response = response_of(reply);
    const outcome end = outcome_of(reply.snd_rcv_msg.ret_val, final_line(reply), response.empty(), modem);
    bool printed = true;
    if (json)
        printed = print_json(json_of(reply, what));
    else if (!response.empty() && !has_final_line_only(reply))
        printed = print_line(response);
    if (!end.text.empty() && !json)
        print_error(end.text);
    return printed ? end.code : EXIT_OTHER;
}

#include "ctl_output.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <vector>

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

struct outcome {
    ctl_exit code;
    string text; // for standard error; may be empty
};

outcome outcome_of(const at_cmd_msg &reply, uint32_t modem)
{
    const string state = vlk_modem_text(modem);
    switch (reply.snd_rcv_msg.ret_val) {
    case AT_OK:
        return {EXIT_DONE, response_of(reply).empty() ? "OK" : ""};
    case AT_ATE0:
    case AT_CONNECT:
        return {EXIT_DONE, final_line(reply)};
    case AT_NONE:
        return {EXIT_NO_ANSWER, "no final result in time (modem: " + state + "): allow more with --timeout"};
    case 0:
        return {EXIT_NO_ANSWER, "the modem gave neither a prompt nor a final result (modem: " + state + ")"};
    case AT_COMMAND_NOT_SUPPORT:
        if (modem != VLK_MODEM_READY)
            return {EXIT_OTHER, "the command could not be written (modem: " + state + ")"};
        return {EXIT_MODEM_ERROR, final_line(reply)};
    default:
        return {EXIT_MODEM_ERROR, final_line(reply)};
    }
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
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}

/// How a command ends that failed with this vlk_result.
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
        if (!terminal || byte == '\n' || byte == '\t' || (byte >= ' ' && byte < 0x7F))
            out += text[at];
        else
            out += "\\x" + hex_text(&byte, 1);
    }
    return out;
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
    return write_out(printable(line, isatty(STDOUT_FILENO) == 1));
}

void print_error(string_view line)
{
    std::fprintf(stderr, "vlkctl: %s\n", printable(line, true).c_str());
}

bool print_json(const ordered_json &object)
{
    return write_out(object.dump(-1, ' ', false, ordered_json::error_handler_t::replace));
}

int report_failure(int result, bool json, ordered_json object)
{
    print_error(vlk_last_error());
    object["error"] = vlk_last_error();
    if (json)
        print_json(object);
    return exit_code_of(result);
}

int report_reply(const at_cmd_msg &reply, uint32_t modem, string_view what, bool json)
{
    const outcome end = outcome_of(reply, modem);
    const string_view response = response_of(reply);
    bool printed = true;
    if (json)
        printed = print_json(json_of(reply, what));
    else if (!response.empty() && !has_final_line_only(reply))
        printed = print_line(response);
    if (!end.text.empty() && !json)
        print_error(end.text);
    return printed ? end.code : EXIT_OTHER;
}

// The line side of a port. Input: the program's bytes, with 0xFE in front of each part; the part's first byte says what
// it is: 0 typed, 1 lines of an answer and its final result, 2 a report, 3 another program.
#include <string>
#include <vector>

#include "fuzz.h"
#include "port_line.h"

namespace
{
constexpr std::size_t OUTPUT_FOR_A_BYTE = 4096; // a finished line may let all held reports out

port_reply reply_of(std::string_view text)
{
    port_reply reply;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        reply.lines.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(text.size(), end + 1));
    }
    reply.final_result = reply.lines.empty() ? "OK" : reply.lines.back();
    if (!reply.lines.empty())
        reply.lines.pop_back();
    return reply;
}

/// What goes to the modem is one command line, and a PDU where it announces one.
void check(const port_request &request)
{
    require(request.line.size() >= 2 && request.line.size() < 3500, "a request is a line of a bounded size");
    require((request.line[0] | 0x20) == 'a' && (request.line[1] | 0x20) == 't', "a request begins with AT");
    require(std::ranges::none_of(request.line, [](unsigned char c) { return c < ' '; }),
            "one request is one line");
    require(request.pdu.find_first_not_of("0123456789ABCDEFabcdef") == std::string::npos,
            "a PDU is hexadecimal");
    require(request.pdu.empty() || request.pdu.size() % 2 == 0, "a PDU is whole octets");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    fuzz_input input(data, size);
    port_line line(true);
    line.open();
    std::size_t shown = 0;
    while (!input.empty()) {
        std::string_view part = input.take_part();
        const int what = part.empty() ? 0 : part[0] % 4;
        part.remove_prefix(part.empty() ? 0 : 1);
        if (what == 1) {
            line.reply(reply_of(part));
        } else if (what == 2) {
            line.report(part);
        } else if (what == 3) {
            line.open();
            require(line.request() == nullptr && line.take_output().empty(),
                    "a new program finds nothing of the last");
        } else {
            line.take(part.substr(0, port_line::INPUT_MAX));
        }
        if (line.request() != nullptr)
            check(*line.request());
        shown += line.take_output().size();
        require(line.take_output().empty(), "output is taken once");
    }
    // a line that nothing holds up is answered, whatever came before
    line.open();
    line.take("AT+CSQ\r");
    require(line.request() != nullptr && line.request()->line == "AT+CSQ", "a port goes on");
    line.reply({{"+CSQ: 1,99"}, "OK"});
    require(line.take_output() == "AT+CSQ\r\r\n+CSQ: 1,99\r\n\r\nOK\r\n", "an answer is framed");
    require(shown <= (size + 1) * OUTPUT_FOR_A_BYTE, "output is bounded");
    return 0;
}

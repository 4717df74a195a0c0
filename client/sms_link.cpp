#include "sms_link.h"

#include <cstring>

#include "ctl_output.h"

namespace
{
constexpr int32_t OTHERS_SECONDS = 30; // granted to the requests that are ahead

/// When the daemon takes no response, it leaves the request in the record.
bool holds_request(const at_cmd_msg &reply, const char *request)
{
    return std::strncmp(reply.snd_rcv_msg.rmsg, request, std::strlen(request)) == 0;
}
} // namespace

sms::answer daemon_link::exchange(at_cmd_msg &record, int phases)
{
    if (client_ == nullptr) {
        const vlk_place place = common_.place();
        vlk_client *opened = nullptr;
        if (const int failed = vlk_open(&opened, &place))
            return {failed, AT_NONE, ""};
        client_.reset(opened);
        const auto wait_ms = static_cast<int32_t>(limits_.wait_modem * 1000);
        if (const int failed = wait_ms > 0 ? vlk_wait_modem(opened, wait_ms) : VLK_OK)
            return {failed, AT_NONE, ""};
    }
    const int32_t seconds = limits_.timeout * phases + OTHERS_SECONDS;
    const int32_t limit = limits_.wait ? static_cast<int32_t>(*limits_.wait * 1000) : seconds * 1000;
    if (const int failed = vlk_exchange(client_.get(), &record, &record, limit))
        return {failed, AT_NONE, ""};
    return {VLK_OK, record.snd_rcv_msg.ret_val, {record.snd_rcv_msg.rmsg, vlk_response_length(&record)}};
}

sms::answer daemon_link::ask(const std::string &command, const char *expected)
{
    at_cmd_msg record;
    if (const int failed =
            vlk_fill_command(&record, command.c_str(), expected, VLK_MULTI_LINE, limits_.timeout))
        return {failed, AT_NONE, ""};
    return exchange(record, 1);
}

sms::answer daemon_link::write(vlk_sms action, const std::string &pdu)
{
    at_cmd_msg record;
    if (const int failed = vlk_fill_sms(&record, action, pdu.c_str(), limits_.timeout))
        return {failed, AT_NONE, ""};
    const std::string request = record.snd_rcv_msg.cmd;
    sms::answer got = exchange(record, 2);
    if (got.failed != VLK_OK || !holds_request(record, request.c_str()))
        return got;
    got.text.clear();
    got.unasked = got.result == AT_OK;
    return got;
}

int report_trouble(const sms::trouble &what, bool json)
{
    if (what.kind == sms::trouble::library)
        return report_failure(what.result, json);
    print_error(what.text);
    if (json)
        print_json({{"error", what.text}});
    switch (what.kind) {
    case sms::trouble::refused:
        return EXIT_MODEM_ERROR;
    case sms::trouble::silence:
        return EXIT_NO_ANSWER;
    default:
        return EXIT_OTHER;
    }
}

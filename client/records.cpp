// Filling in requests and reading replies. No daemon is needed here.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <strings.h>

#include "at_words.h"
#include "last_error.h"
#include "vlk_client.h"

using std::string_view;

namespace
{
constexpr size_t TPDU_MAX_OCTETS = 164;  // SMS-SUBMIT with 140 octets of user data
constexpr unsigned SMSC_MAX_OCTETS = 11; // type of number and 20 digits

struct sms_action {
    const char *command;
    const char *expected;
};

constexpr sms_action SMS_ACTIONS[] = {{"AT+CMGS", "+CMGS:"}, {"AT+CMGW", "+CMGW:"}};

bool begins_with(string_view text, string_view head)
{
    return text.size() >= head.size() && strncasecmp(text.data(), head.data(), head.size()) == 0;
}

bool has_control(string_view text)
{
    return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7F; });
}

int check_command(string_view command, string_view expected)
{
    if (!begins_with(command, "AT"))
        return fail(VLK_INVALID, "the command must begin with AT; the daemon ignores any other text");
    if (command.size() >= AT_CMD_STR_SIZE)
        return fail(VLK_INVALID, "the command has %zu bytes, at most %d fit", command.size(),
                    AT_CMD_STR_SIZE - 1);
    if (has_control(command) || has_control(expected))
        return fail(VLK_INVALID,
                    "the command and the expected prefix must not contain control characters; the "
                    "line end is added by itself");
    if (expected.size() >= AT_MATCH_STR_SIZE)
        return fail(VLK_INVALID, "the expected prefix has %zu bytes, at most %d fit", expected.size(),
                    AT_MATCH_STR_SIZE - 1);
    for (const string_view head : AT_PROMPTING_COMMANDS)
        if (begins_with(command, head))
            return fail(VLK_INVALID, "%.*s needs its PDU: use vlk_fill_sms, or vlkctl sms send or sms save",
                        static_cast<int>(head.size()), head.data());
    return VLK_OK;
}

int check_timeout(int32_t timeout)
{
    return timeout >= 0 ? VLK_OK : fail(VLK_INVALID, "the timeout must not be negative");
}

/// The value of a hexadecimal digit, -1 for any other character.
int hex_value(char digit)
{
    constexpr string_view DIGITS = "0123456789ABCDEFabcdef";
    const size_t at = DIGITS.find(digit);
    if (at == string_view::npos)
        return -1;
    return static_cast<int>(at < 16 ? at : at - 6);
}

/// Stores in *octets what AT+CMGS wants: the octets of the PDU behind its SMSC part.
int measure_pdu(string_view pdu, size_t *octets)
{
    if (std::any_of(pdu.begin(), pdu.end(), [](char c) { return hex_value(c) < 0; }))
        return fail(VLK_INVALID, "the PDU must be hexadecimal digits and nothing else");
    if (pdu.size() % 2 != 0)
        return fail(VLK_INVALID, "the PDU has %zu hexadecimal digits, an odd number: one is missing",
                    pdu.size());
    if (pdu.empty())
        return fail(VLK_INVALID, "the PDU is empty");

    const auto smsc = static_cast<unsigned>(hex_value(pdu[0]) * 16 + hex_value(pdu[1]));
    if (smsc == 1 || smsc > SMSC_MAX_OCTETS || pdu.size() / 2 <= size_t{1} + smsc)
        return fail(VLK_INVALID,
                    "the PDU must begin with its SMSC part: a length of 0 or 2 to 11 and as many octets "
                    "(put 00 in front to use the modem's own service centre)");
    *octets = pdu.size() / 2 - 1 - smsc;
    if (*octets > TPDU_MAX_OCTETS)
        return fail(VLK_INVALID, "the PDU has %zu octets behind its SMSC part, at most %zu are allowed",
                    *octets, TPDU_MAX_OCTETS);
    return VLK_OK;
}
} // namespace

int vlk_fill_command(at_cmd_msg *record, const char *command, const char *expected, vlk_mode mode,
                     int32_t timeout)
{
    if (record == nullptr || command == nullptr)
        return fail(VLK_INVALID, "no record or no command");
    *record = at_cmd_msg{};
    const string_view text = command;
    const string_view prefix = expected == nullptr ? "" : expected;
    if (const int failed = check_command(text, prefix))
        return failed;
    if (const int failed = check_timeout(timeout))
        return failed;

    record->req_type = mode == VLK_RAW ? AT_RAW_COMMAND : AT_COMMAND;
    record->multi_line = mode == VLK_MULTI_LINE ? 1 : 0;
    record->timeout = timeout;
    prefix.copy(record->at_match_str, prefix.size());
    text.copy(record->snd_rcv_msg.cmd, text.size());
    return VLK_OK;
}

int vlk_fill_rssi(at_cmd_msg *record)
{
    if (record == nullptr)
        return fail(VLK_INVALID, "no record");
    *record = at_cmd_msg{};
    record->req_type = AT_STORED_REPORT;
    record->rep_type = AT_REPORT_RSSI;
    return VLK_OK;
}

int vlk_fill_sms(at_cmd_msg *record, vlk_sms action, const char *pdu, int32_t timeout)
{
    if (record == nullptr || pdu == nullptr || (action != VLK_SMS_SEND && action != VLK_SMS_SAVE))
        return fail(VLK_INVALID, "no record, no PDU or no such action");
    *record = at_cmd_msg{};
    size_t octets = 0;
    if (const int failed = measure_pdu(pdu, &octets))
        return failed;
    if (const int failed = check_timeout(timeout))
        return failed;

    const sms_action &row = SMS_ACTIONS[action];
    record->req_type = AT_COMMAND;
    record->timeout = timeout;
    std::strcpy(record->at_match_str, row.expected);
    // the longest PDU makes 365 bytes; the daemon wants two NULs behind the Ctrl-Z
    std::snprintf(record->snd_rcv_msg.cmd, sizeof record->snd_rcv_msg.cmd, "%s=%zu\r%s\x1A", row.command,
                  octets, pdu);
    return VLK_OK;
}

size_t vlk_response_length(const at_cmd_msg *reply)
{
    if (reply == nullptr)
        return 0;
    // rsp_len may be the length of a report that came behind the final result; what follows the text is zero.
    const char *text = reply->snd_rcv_msg.rmsg;
    size_t length = MAX_ATCMD_REPORT_SIZE;
    while (length > 0 && text[length - 1] == '\0')
        length--;
    return length;
}

const char *vlk_final_result(int32_t ret_val)
{
    for (const at_final_result &row : AT_FINAL_RESULTS)
        if (row.code == ret_val)
            return row.text;
    return ret_val == AT_NONE || ret_val == 0 ? "NONE" : "unknown result";
}

// vlkctl ussd: a conversation with the network. Its messages come as +CUSD notifications.
#include <algorithm>
#include <chrono>
#include <string>

#include "ctl_clock.h"
#include "ctl_commands.h"
#include "ctl_output.h"
#include "ctl_session.h"
#include "ctl_terminal.h"
#include "packet_meaning.h"

using nlohmann::ordered_json;
using std::optional;
using std::string;

namespace
{
constexpr int32_t USSD_MODULE = 2;
constexpr int32_t SUBSCRIBE_LIMIT_MS = 5000;
constexpr int POLL_MS = 200;
constexpr size_t LONGEST_TEXT = 182; // characters that fit into one message

enum ussd_type {
    USSD_DONE = 0,
    USSD_ANSWER_WANTED = 1,
    USSD_ENDED = 2
};

const char *type_text(int type)
{
    constexpr const char *TEXTS[] = {"done",
                                     "answer wanted",
                                     "ended by the network",
                                     "another client has answered",
                                     "not supported",
                                     "the network does not answer"};
    return type >= 0 && static_cast<size_t>(type) < std::size(TEXTS) ? TEXTS[type] : "unknown";
}

/// Characters that the default alphabet and ASCII share and that cannot end the quoted text.
bool can_be_sent(const string &text)
{
    return !text.empty() && text.size() <= LONGEST_TEXT && std::ranges::all_of(text, [](unsigned char c) {
        return c >= ' ' && c < 0x7F && c != '"' && c != '\\' && c != '`';
    });
}

class conversation
{
public:
    conversation(const common_options &common, int32_t timeout) : common_(common), timeout_(timeout) {}

    /// A vlk_result.
    int open()
    {
        const vlk_place place = common_.place();
        vlk_hub *opened = nullptr;
        if (const int failed = session_.open(common_))
            return failed;
        const int result = vlk_hub_open(&opened, &place);
        hub_.reset(opened);
        return result == VLK_OK ? vlk_hub_take_module(hub_.get(), USSD_MODULE, SUBSCRIBE_LIMIT_MS) : result;
    }

    ctl_session &session() { return session_; }

    /// Sends a text. The exit code.
    int send(const string &text)
    {
        const modem_answer answer = session_.ask_until_interrupt("AT+CUSD=1,\"" + text + "\",15", timeout_);
        if (interrupted()) {
            end_session();
            return EXIT_INTERRUPTED;
        }
        if (answer.result != VLK_OK)
            return report_failure(answer.result, common_.json);
        if (answer.succeeded())
            return EXIT_DONE;
        const outcome end = outcome_of(answer.ret_val, answer.final_result, true, session_.modem());
        return report_refusal(end.code, end.text, common_.json);
    }

    /// Uses a connection of its own, which does not wait for what was asked before.
    void end_session()
    {
        ctl_session last;
        if (last.open(common_) == VLK_OK)
            last.ask("AT+CUSD=2");
    }

    /// Waits for the network's message. VLK_TIMEOUT also when interrupted.
    int receive(optional<ussd_message> &message)
    {
        using clock = std::chrono::steady_clock;
        const auto end = clock::now() + std::chrono::seconds(timeout_);
        while (clock::now() < end && !interrupted()) {
            vlk_packet packet;
            const int result = vlk_hub_receive(hub_.get(), &packet, 0);
            if (result == VLK_TIMEOUT)
                wait_readable(vlk_hub_fd(hub_.get()), POLL_MS);
            else if (result != VLK_OK)
                return result;
            else if ((message = ussd_of(packet)))
                return VLK_OK;
        }
        return VLK_TIMEOUT;
    }

private:
    const common_options &common_;
    int32_t timeout_;
    ctl_session session_;
    hub_handle hub_{nullptr, vlk_hub_close};
};

bool show(const ussd_message &message, bool json)
{
    if (json)
        return print_json({{"time", time_json()},
                           {"type", message.type},
                           {"state", type_text(message.type)},
                           {"text", message.text}});
    if (!message.text.empty() && !print_line(message.text))
        return false;
    if (message.type > USSD_ANSWER_WANTED)
        print_error(type_text(message.type));
    return true;
}
} // namespace

int run_ussd(const common_options &common, const string &code, int32_t timeout)
{
    constexpr const char *REFUSED = "a USSD text is 1 to 182 plain characters without quotation marks";
    if (!can_be_sent(code))
        return report_refusal(EXIT_USAGE, REFUSED, common.json);
    conversation talk(common, timeout);
    if (const int failed = talk.open())
        return report_failure(failed, common.json);
    catch_interrupts();
    string text = code;
    for (;;) {
        if (const int failed = talk.send(text))
            return failed;
        optional<ussd_message> message;
        const int result = talk.receive(message);
        if (interrupted()) {
            talk.end_session();
            return EXIT_INTERRUPTED;
        }
        if (result == VLK_TIMEOUT) {
            talk.end_session();
            return report_refusal(
                EXIT_NO_ANSWER, "the network did not answer in time: allow more with --timeout", common.json);
        }
        if (result != VLK_OK)
            return report_failure(result, common.json);
        if (!show(*message, common.json))
            return EXIT_OTHER;
        if (message->type != USSD_ANSWER_WANTED)
            return message->type <= USSD_ENDED ? EXIT_DONE : EXIT_MODEM_ERROR;
        const optional<string> answer = read_line("answer (empty ends): ");
        if (!answer || answer->empty()) {
            talk.end_session();
            return interrupted() ? EXIT_INTERRUPTED : EXIT_DONE;
        }
        if (!can_be_sent(*answer)) {
            talk.end_session();
            return report_refusal(EXIT_USAGE, REFUSED, common.json);
        }
        text = *answer;
    }
}

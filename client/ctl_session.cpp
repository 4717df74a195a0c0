#include "ctl_session.h"

#include <chrono>
#include <utility>

#include "answer_text.h"
#include "ctl_terminal.h"

using std::string;

int ctl_session::open(const common_options &common, const request_options &limits)
{
    const vlk_place place = common.place();
    vlk_client *opened = nullptr;
    const int result = vlk_open(&opened, &place);
    client_.reset(opened);
    if (result != VLK_OK || limits.wait_modem <= 0)
        return result;
    return vlk_wait_modem(opened, static_cast<int32_t>(limits.wait_modem * 1000));
}

modem_answer ctl_session::ask(const string &command, int32_t timeout)
{
    modem_answer answer;
    vlk_answer end;
    const auto take_line = [](void *context, const char *line) {
        static_cast<modem_answer *>(context)->lines.emplace_back(line);
    };
    answer.result = vlk_ask(client_.get(), command.c_str(), timeout, (timeout + OTHERS_SECONDS) * 1000,
                            take_line, &answer, &end);
    if (answer.result != VLK_OK) {
        failed_ = answer.result;
        return answer;
    }
    answer.ret_val = end.ret_val;
    answer.final_result = end.final_result;
    answer.cut = end.cut != 0;
    return answer;
}

modem_answer ctl_session::ask_until_interrupt(const string &command, int32_t timeout,
                                              const std::function<void()> &look)
{
    using clock = std::chrono::steady_clock;
    constexpr int32_t LOOK_MS = 200;
    const at_question question = question_of(command);
    const auto end = clock::now() + std::chrono::seconds(seconds_for(question, timeout) + OTHERS_SECONDS);
    modem_answer answer;
    at_cmd_msg record;
    answer.result = vlk_fill_query(&record, command.c_str(), timeout);
    if (answer.result == VLK_OK)
        answer.result = begin_answer(client_.get(), record);
    if (answer.result == VLK_OK)
        answer.result = vlk_send(client_.get(), &record, OTHERS_SECONDS * 1000);
    if (answer.result == VLK_OK) {
        const uint32_t seq = record.seq;
        do {
            look();
            answer.result = vlk_wait(client_.get(), seq, &record, LOOK_MS);
        } while (answer.result == VLK_TIMEOUT && !interrupted() && clock::now() < end);
    }
    if (answer.result != VLK_OK) {
        failed_ = answer.result;
        return answer;
    }
    at_answer taken = take_answer(client_.get(), question, record);
    answer.ret_val = taken.code;
    answer.lines = std::move(taken.lines);
    answer.final_result = std::move(taken.final_result);
    answer.cut = taken.cut;
    return answer;
}

string ctl_session::line_of(const string &command)
{
    if (failed_ != VLK_OK)
        return "";
    const modem_answer answer = ask(command);
    return answer.succeeded() && !answer.lines.empty() ? answer.lines[0] : "";
}

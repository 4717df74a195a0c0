// A command line's answer as a terminal shows it: one request for each command, and more where an answer was too
// long for the daemon and came incomplete. at_question.h has the rules.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "answer_text.h"
#include "at_question.h"
#include "futex_word.h"
#include "last_error.h"
#include "vlk_client.h"

using std::string;
using std::string_view;

namespace
{
constexpr size_t HEAD_OF_ENTRY = 32;     // bytes of a phone book line beside number and name
constexpr size_t LONGEST_ANSWER = 30000; // bytes that the daemon certainly keeps together

struct asker {
    vlk_client *client;
    int32_t timeout;
    int64_t deadline;
};

bool succeeded(const at_answer &answer)
{
    return answer.final_result == "OK" || answer.final_result.starts_with("CONNECT");
}

/// Asks one question in one request. A vlk_result.
int ask_once(const asker &how, const at_question &question, const string &command, at_answer &answer)
{
    at_cmd_msg record;
    const bool raw = question.expected.empty();
    if (const int failed =
            vlk_fill_command(&record, command.c_str(), question.expected.c_str(),
                             raw ? VLK_RAW : VLK_MULTI_LINE, seconds_for(question, how.timeout)))
        return failed;
    if (const int failed = begin_answer(how.client, record))
        return failed;
    if (const int failed = vlk_exchange(how.client, &record, &record, poll_time(how.deadline)))
        return failed;
    answer = take_answer(how.client, question, record);
    return VLK_OK;
}

std::optional<int> number_of(string_view text)
{
    int number = 0;
    const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failed != std::errc{} || end != text.data() + text.size())
        return {};
    return number;
}

/// The numbers in the line behind the name; what is none of 1 to 6 digits is skipped.
std::vector<int> numbers_in(string_view line)
{
    std::vector<int> numbers;
    size_t at = std::min(line.find(':'), line.size());
    while ((at = line.find_first_of("0123456789", at)) != string_view::npos) {
        const size_t end = std::min(line.find_first_not_of("0123456789", at), line.size());
        if (const std::optional<int> number =
                end - at <= 6 ? number_of(line.substr(at, end - at)) : std::nullopt)
            numbers.push_back(*number);
        at = end;
    }
    return numbers;
}

// ---- The phone book: a range of entries, as many at a time as certainly fit

/// How many entries fit into one answer: AT+CPBR=? answers "+CPBR: (1-250),40,14", the longest number and name.
int entries_at_once(const asker &how)
{
    constexpr int CAUTIOUS = 4;
    at_answer answer;
    const string command = "AT+CPBR=?";
    if (ask_once(how, question_of(command), command, answer) != VLK_OK || answer.lines.size() != 1)
        return CAUTIOUS;
    const std::vector<int> numbers = numbers_in(answer.lines[0]);
    if (numbers.size() < 4)
        return CAUTIOUS;
    const size_t longest =
        HEAD_OF_ENTRY + static_cast<size_t>(numbers[2]) + 4 * static_cast<size_t>(numbers[3]);
    return static_cast<int>(std::max<size_t>(1, LONGEST_ANSWER / longest));
}

bool is_not_found(const at_answer &answer)
{
    return answer.final_result.starts_with("+CME ERROR: 22") ||
           answer.final_result.starts_with("+CME ERROR: not found");
}

int ask_phone_book(const asker &how, const at_question &question, int first, int last, at_answer &answer)
{
    const int step = entries_at_once(how);
    bool found = false;
    for (int from = first; from <= last; from += step) {
        const string command = "AT" + question.name + "=" + std::to_string(from) + "," +
                               std::to_string(std::min(last, from + step - 1));
        at_answer piece;
        if (const int failed = ask_once(how, question, command, piece))
            return failed;
        if (!succeeded(piece) && !is_not_found(piece)) {
            answer.final_result = piece.final_result;
            answer.code = piece.code;
            return VLK_OK;
        }
        if (succeeded(piece) || !found) { // empty places between full ones are no error
            answer.final_result = piece.final_result;
            answer.code = piece.code;
        }
        found = found || succeeded(piece);
        answer.lines.insert(answer.lines.end(), piece.lines.begin(), piece.lines.end());
    }
    return VLK_OK;
}

// ---- A message list: what came of it, and the rest one message at a time

/// The last place of the current message memory: AT+CPMS? answers "+CPMS: \"SM\",12,50,...".
int last_message_place(const asker &how)
{
    at_answer answer;
    const string command = "AT+CPMS?";
    if (ask_once(how, question_of(command), command, answer) != VLK_OK || answer.lines.empty())
        return -1;
    const size_t used = answer.lines[0].find(',');
    const std::vector<int> numbers =
        used == string::npos ? std::vector<int>{} : numbers_in(":" + answer.lines[0].substr(used));
    return numbers.size() < 2 ? -1 : numbers[1];
}

bool is_list_of_everything(string_view parameters)
{
    return parameters == "4" || parameters == "\"ALL\"";
}

/// Replaces the part of the list that may be incomplete by what is read from the messages' places one by one.
int read_on(const asker &how, at_answer &answer)
{
    constexpr string_view LIST_HEAD = "+CMGL: ";
    constexpr string_view READ_HEAD = "+CMGR: ";
    int place = 0;
    for (size_t at = answer.lines.size(); at-- > 0;) {
        if (!answer.lines[at].starts_with(LIST_HEAD))
            continue;
        place = numbers_in(answer.lines[at]).at(0); // its body may be cut
        answer.lines.resize(at);
        break;
    }
    const int last = last_message_place(how);
    if (last < 0)
        return VLK_OK;
    for (; place <= last; place++) {
        const string command = "AT+CMGR=" + std::to_string(place);
        at_answer message;
        if (const int failed = ask_once(how, question_of(command), command, message))
            return failed;
        if (!succeeded(message) || message.lines.empty() || !message.lines[0].starts_with(READ_HEAD))
            continue;
        if (message.cut)
            return VLK_OK;
        message.lines[0].replace(0, READ_HEAD.size(), string(LIST_HEAD) + std::to_string(place) + ",");
        answer.lines.insert(answer.lines.end(), message.lines.begin(), message.lines.end());
    }
    answer.cut = false;
    return VLK_OK;
}

/// The range of a phone book that is to be read, when it has more than one entry.
std::optional<std::pair<int, int>> range_of(const at_question &question)
{
    const string_view parameters = question.parameters;
    const size_t comma = parameters.find(',');
    if (comma == string_view::npos)
        return {};
    const std::optional<int> first = number_of(parameters.substr(0, comma));
    const std::optional<int> last = number_of(parameters.substr(comma + 1));
    if (!first || !last || *first < 0 || *last <= *first || *last >= 100000)
        return {};
    return std::pair(*first, *last);
}

/// Asks as it is, and again in pieces for what turns out to be too long.
int ask_command(const asker &how, const string &command, at_answer &answer)
{
    const at_question question = question_of(command);
    if (const int failed = ask_once(how, question, command, answer))
        return failed;
    if (!answer.cut || answer.ended_by_text || question.form != AT_SET)
        return VLK_OK;
    if (question.name == "+CPBR")
        if (const auto range = range_of(question)) {
            answer = {};
            return ask_phone_book(how, question, range->first, range->second, answer);
        }
    return question.name == "+CMGL" && is_list_of_everything(question.parameters) ? read_on(how, answer)
                                                                                  : VLK_OK;
}
} // namespace

int vlk_fill_query(at_cmd_msg *record, const char *command, int32_t timeout)
{
    if (record == nullptr || command == nullptr)
        return fail(VLK_INVALID, "no record or no command");
    const at_question question = question_of(command);
    return vlk_fill_command(record, command, question.expected.c_str(),
                            question.expected.empty() ? VLK_RAW : VLK_MULTI_LINE,
                            seconds_for(question, timeout));
}

int vlk_ask(vlk_client *client, const char *command, int32_t timeout, int32_t limit_ms,
            vlk_line_function *take_line, void *context, vlk_answer *answer)
{
    if (client == nullptr || command == nullptr || take_line == nullptr || answer == nullptr)
        return fail(VLK_INVALID, "no client, no command, or no place for the answer");
    *answer = {};
    const asker how = {client, timeout, deadline_after(limit_ms)};
    for (const string &one : split_commands(command)) {
        at_answer part;
        if (const int failed = ask_command(how, one, part))
            return failed;
        for (const string &line : part.lines)
            take_line(context, line.c_str());
        answer->ret_val = part.code;
        if (part.cut && answer->cut == VLK_WHOLE)
            answer->cut = part.ended_by_text ? VLK_ENDED_BY_TEXT : VLK_TOO_LONG;
        const string_view final_result = part.final_result;
        std::memset(answer->final_result, 0, sizeof answer->final_result);
        final_result.copy(answer->final_result, sizeof answer->final_result - 1);
        if (!succeeded(part))
            break;
    }
    return VLK_OK;
}

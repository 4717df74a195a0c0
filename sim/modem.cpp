#include "modem.h"

#include "command_line.h"
#include "pdu.h"
#include "text.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <utility>

namespace modemsim
{

namespace
{

constexpr char ctrl_z = '\x1a';
constexpr char escape_key = '\x1b';
constexpr unsigned max_reference = 255; // a message reference is one octet

bool is_control(char c)
{
    return static_cast<unsigned char>(c) < 0x20 || c == '\x7f';
}

void replace_all(std::string &text, std::string_view what, std::string_view by)
{
    for (std::size_t pos = text.find(what); pos != std::string::npos; pos = text.find(what, pos + by.size()))
        text.replace(pos, what.size(), by);
}

} // namespace

bool is_pdu_of_length(std::string_view text, unsigned length)
{
    constexpr std::string_view hex_digits = "0123456789ABCDEFabcdef";
    if (text.size() < 2 || text.find_first_not_of(hex_digits) != std::string_view::npos)
        return false;
    unsigned smsc_length = 0;
    std::from_chars(text.data(), text.data() + 2, smsc_length, 16);
    return text.size() == std::size_t{2} * (1 + smsc_length + length);
}

modem::modem(dialogue script, std::uint32_t seed) : script_(std::move(script)), random_(seed)
{
    power_up();
}

void modem::power_up()
{
    client_closed();
    values_ = script_.start_values;
    messages_.reset(script_.messages, values_);
    later_.clear();
    due_.assign(script_.schedules.size(), std::nullopt);
    started_ = false;
    silent_ = false;
    commands_ = 0;
}

void modem::client_opened(milliseconds now)
{
    client_ = true;
    now_ = now;
    if (started_)
        return;
    started_ = true;
    for (std::size_t i = 0; i < due_.size(); ++i)
        due_[i] = now + script_.schedules[i].first;
}

void modem::client_closed()
{
    client_ = false;
    garbage_left_ = 0;
    flood_left_ = 0;
    output_.clear();
    leave_data();
    drop_work();
}

void modem::leave_data()
{
    data_ = false;
    values_["online"] = "0";
}

void modem::drop_work()
{
    input_.clear();
    line_.clear();
    running_ = nullptr;
    prompt_ = nullptr;
    chained_.clear();
    entries_.clear();
}

void modem::receive(std::string_view bytes)
{
    if (!silent_)
        input_ += bytes.substr(0, input_room());
}

void modem::silence(bool on)
{
    silent_ = on;
    if (on)
        drop_work();
}

void modem::advance(milliseconds now)
{
    now_ = now;
    bool busy = true;
    while (busy) {
        busy = run_schedules();
        busy |= run_later();
        busy |= run_escape();
        busy |= run_steps();
        busy |= take_input();
        busy |= run_streams();
    }
}

std::optional<milliseconds> modem::next_due() const
{
    std::optional<milliseconds> earliest;
    const bool answering = running_ != nullptr && prompt_ == nullptr;
    const bool input_waits = !answering && !input_.empty();
    const bool stream_waits = client_ && (flood_left_ > 0 || garbage_left_ > 0);
    if (has_room() && (input_waits || stream_waits))
        earliest = now_; // advance() stopped for want of room, and the client has read since
    else if (has_room() && answering)
        earliest = resume_at_;
    const auto consider = [&](std::optional<milliseconds> due) {
        if (due && (!earliest || *due < *earliest))
            earliest = due;
    };
    for (const auto &due : due_)
        consider(due);
    for (const later_step &waiting : later_)
        consider(waiting.due);
    if (data_ && has_room())
        consider(escape_.due(guard_time()));
    return earliest;
}

// Reports that nobody reads are lost, as on a real modem: a schedule never waits.
bool modem::run_schedules()
{
    bool ran = false;
    for (std::size_t i = 0; i < due_.size(); ++i) {
        if (!due_[i] || *due_[i] > now_)
            continue;
        const schedule &what = script_.schedules[i];
        if (what.period == milliseconds(0))
            due_[i].reset();
        else
            *due_[i] += what.period * ((now_ - *due_[i]) / what.period + 1);
        run_block(what.steps);
        ran = true;
    }
    return ran;
}

void modem::run_block(const std::vector<step> &steps)
{
    for (std::size_t next = 0; next < steps.size() && !silent_ && has_room();)
        next += 1 + execute(steps[next]);
}

/// Steps whose time has come, in the order of their times.
bool modem::run_later()
{
    bool ran = false;
    while (true) {
        const auto first = std::ranges::min_element(later_, {}, &later_step::due);
        if (first == later_.end() || first->due > now_)
            return ran;
        const later_step taken = *first;
        later_.erase(first);
        if (!silent_)
            perform(*taken.what, taken.text);
        ran = true;
    }
}

bool modem::run_escape()
{
    const auto due = escape_.due(guard_time());
    if (!data_ || !input_.empty() || !due || *due > now_ || !has_room())
        return false;
    data_ = false;
    send_result("OK");
    return true;
}

bool modem::run_steps()
{
    bool ran = false;
    while (running_ != nullptr && prompt_ == nullptr && now_ >= resume_at_ && has_room()) {
        ran = true;
        if (!entries_.empty()) {
            send_line(entries_.front());
            entries_.pop_front();
        } else if (next_step_ < running_->steps.size()) {
            const step &next = running_->steps[next_step_++];
            next_step_ += execute(next);
        } else {
            running_ = nullptr;
            if (chained_.empty())
                break;
            const std::string next = chained_.front();
            chained_.pop_front();
            begin_command(next);
        }
    }
    return ran;
}

bool modem::take_input()
{
    std::size_t taken = 0;
    while (taken < input_.size() && has_room() && (running_ == nullptr || prompt_ != nullptr)) {
        const char c = input_[taken++];
        if (data_)
            take_data_byte(c);
        else if (prompt_ != nullptr)
            take_prompt_byte(c);
        else
            take_line_byte(c);
    }
    input_.erase(0, taken);
    return taken > 0 || abort_running() || stop_running();
}

bool modem::run_streams()
{
    const bool ran = client_ && has_room() && (garbage_left_ > 0 || flood_left_ > 0);
    for (; client_ && garbage_left_ > 0 && has_room(); --garbage_left_)
        output_ += static_cast<char>(random_() & 0xff);
    for (; client_ && flood_left_ > 0 && has_room(); --flood_left_) {
        std::string text = flood_text_;
        replace_all(text, "{i}", std::to_string(++flood_sent_));
        send_report(text);
    }
    return ran;
}

void modem::flood(unsigned count, std::string_view text)
{
    flood_left_ = count;
    flood_sent_ = 0;
    flood_text_ = text;
}

bool modem::report(std::string_view text)
{
    return raw(settings().report(text));
}

std::string modem::receive_text(std::string_view number, std::string_view text)
{
    return announce(messages_.arrive_text(number, text, values_, listens(), settings().line_end()));
}

std::string modem::receive_pdu(std::string_view pdu)
{
    return announce(messages_.arrive(pdu, values_, listens(), settings().line_end()));
}

std::string modem::receive_report(std::string_view reference, unsigned outcome)
{
    return announce(messages_.arrive_report(reference, outcome, values_, listens(), settings().line_end()));
}

std::string modem::announce(const message_service::arrival &what)
{
    if (!what.report.empty())
        send_report(what.report);
    return what.refusal;
}

bool modem::hang_up()
{
    if (values_["online"] != "1")
        return false;
    leave_data();
    send_result("NO CARRIER");
    return true;
}

bool modem::raw(std::string_view bytes)
{
    if (!client_ || !has_room())
        return false;
    in_lines_ = false;
    send(bytes);
    return true;
}

void modem::send(std::string_view bytes)
{
    if (client_)
        output_ += bytes;
}

unsigned modem::number(std::string_view name, unsigned highest, unsigned otherwise) const
{
    const auto found = values_.find(name);
    return found == values_.end() ? otherwise : parse_number(found->second, highest).value_or(otherwise);
}

milliseconds modem::duration(std::string_view name) const
{
    const auto found = values_.find(name);
    return found == values_.end() ? milliseconds(0) : parse_duration(found->second).value_or(milliseconds(0));
}

void modem::send_line(std::string_view text)
{
    send(settings().line(text, !in_lines_));
    in_lines_ = true;
}

void modem::send_result(std::string_view text)
{
    in_lines_ = false;
    send(settings().result(text));
}

void modem::send_report(std::string_view text)
{
    in_lines_ = false;
    send(settings().report(text));
}

void modem::echo(std::string_view bytes)
{
    if (settings().echo())
        send(bytes);
}

/// Takes the step, now or later. Returns how many of the next steps are to be left out.
std::size_t modem::execute(const step &what)
{
    const std::string text = what.text.expand(values_);
    if (what.kind == step_kind::skip)
        return what.skipped;
    if (what.kind == step_kind::condition)
        return holds(values_[what.name], what.compare, text) ? 0 : what.skipped;
    if (what.later.parts.empty()) {
        perform(what, text);
        return 0;
    }
    const auto wait = parse_duration(what.later.expand(values_));
    if (wait && later_.size() < max_later)
        later_.push_back({now_ + *wait, &what, text});
    return 0;
}

void modem::perform(const step &what, const std::string &text)
{
    switch (what.kind) {
    case step_kind::line:
        send_line(text);
        break;
    case step_kind::final_result:
        if (text != "OK" && !text.empty())
            chained_.clear();
        if (chained_.empty())
            send_result(text);
        break;
    case step_kind::report:
        if (!data_)
            send_report(text);
        break;
    case step_kind::raw:
        in_lines_ = false;
        if (!data_)
            send(text);
        break;
    case step_kind::messages:
        run_messages(what, text);
        break;
    case step_kind::data:
        data_ = true;
        data_echo_ = what.name == "echo";
        values_["online"] = "1";
        escape_.start(now_);
        break;
    case step_kind::hang_up:
        leave_data();
        break;
    case step_kind::condition:
    case step_kind::skip:
        break; // execute() has followed them
    case step_kind::delay:
        resume_at_ = now_ + parse_duration(text).value_or(milliseconds(0));
        break;
    case step_kind::prompt_pdu:
    case step_kind::prompt_text:
        in_lines_ = false;
        send("\r\n> ");
        prompt_ = &what;
        prompt_text_.clear();
        break;
    case step_kind::set:
        values_[what.name] = text;
        break;
    case step_kind::encode:
        values_[what.name] = in_character_set(text, character_set_of(values_["cscs"]));
        break;
    case step_kind::count: {
        const bool down = text.starts_with('-');
        const unsigned by = parse_number(text.substr(down ? 1 : 0), max_reference).value_or(1);
        const unsigned value = number(what.name, max_reference, 0);
        values_[what.name] = std::to_string((down ? value - by : value + by) & max_reference);
        break;
    }
    }
}

void modem::run_messages(const step &what, const std::string &text)
{
    if (message_service::arrives(what.name)) {
        announce(messages_.serve_arrival(what.name, text, values_, listens(), settings().line_end()));
        return;
    }
    message_service::answer answer = messages_.serve(what.name, text, values_, settings().line_end());
    if (answer.error != 0 && running_ != nullptr)
        return end_command("+CMS ERROR: " + std::to_string(answer.error));
    entries_.assign(std::make_move_iterator(answer.lines.begin()),
                    std::make_move_iterator(answer.lines.end()));
}

void modem::end_command(std::string_view result)
{
    running_ = nullptr;
    chained_.clear();
    send_result(result);
}

/// While a command that can be stopped is answered, looks for its stop line, which overtakes the other queued ones, and
/// leaps to the command's final result. After that result nothing is left to stop.
bool modem::stop_running()
{
    if (running_ == nullptr || prompt_ != nullptr || running_->stop_by.empty() || !has_room())
        return false;
    const char line_end = settings().carriage_return();
    for (std::size_t start = 0, end = 0; (end = input_.find(line_end, start)) != std::string::npos;
         start = end + 1) {
        const std::string line = input_.substr(start, end - start);
        variables ignored;
        const std::size_t text = std::min(line.find_first_not_of('\n'), line.size());
        if (!running_->stop_by.match(trim(std::string_view(line).substr(text)), ignored))
            continue;
        if (!leap_to_final())
            return false;
        input_.erase(start, end + 1 - start);
        echo(line + line_end);
        return true;
    }
    return false;
}

/// Leaves out the steps before the running command's next final result. False when there is none.
bool modem::leap_to_final()
{
    const auto &steps = running_->steps;
    const auto final_step = std::find_if(steps.begin() + static_cast<std::ptrdiff_t>(next_step_), steps.end(),
                                         [](const step &s) { return s.kind == step_kind::final_result; });
    if (final_step == steps.end())
        return false;
    in_lines_ = false;
    entries_.clear();
    next_step_ = static_cast<std::size_t>(final_step - steps.begin());
    resume_at_ = now_;
    return true;
}

/// A command that any byte ends: the byte and all that wait with it are dropped. The line feed of a client that ends
/// lines with CR LF does not count.
bool modem::abort_running()
{
    if (running_ == nullptr || prompt_ != nullptr || !running_->abortable || !has_room())
        return false;
    if (input_.find_first_not_of(settings().line_feed()) == std::string::npos || !leap_to_final())
        return false;
    input_.clear();
    return true;
}

void modem::take_line_byte(char c)
{
    constexpr char backspace = '\b';
    constexpr char rubout = '\x7f';
    const line_settings current = settings();
    if (c == current.line_feed() && line_.empty())
        return; // of a client that ends lines with CR LF
    if (current.echo())
        send({&c, 1});
    if (c == current.carriage_return())
        begin_line(std::exchange(line_, {}));
    else if (line_.empty() && is_control(c))
        return; // a break, or an escape from a prompt that was not there
    else if (c != backspace && c != rubout)
        line_.append(line_.size() <= max_line ? 1 : 0, c);
    else if (!line_.empty())
        line_.pop_back();
}

void modem::take_data_byte(char c)
{
    escape_.take(c, now_, guard_time());
    if (data_echo_)
        send({&c, 1});
}

void modem::begin_line(std::string_view line)
{
    in_lines_ = false;
    if (line.size() > max_line)
        return send_result("ERROR");
    line = trim(line);
    if (line.empty())
        return;
    resume_at_ = now_ + duration("latency");
    variables captured;
    const command *const whole = find_command(script_, line, captured);
    if (whole != nullptr && (!holds_separator(line) || whole->pattern.spells(';')))
        return begin_command(line);
    const std::vector<std::string> commands = split_command_line(line);
    chained_.assign(std::next(commands.begin()), commands.end());
    begin_command(commands.front());
}

void modem::begin_command(std::string_view line)
{
    ++commands_;
    in_lines_ = false;
    next_step_ = 0;
    running_ = find_command(script_, line, values_);
    if (running_ == nullptr)
        refuse_unknown(line);
}

void modem::refuse_unknown(std::string_view line)
{
    if (!equal_ignoring_case(line.substr(0, 2), "AT"))
        return; // noise, for example a PDU that nobody asked for
    const unsigned mode = number("cmee", 2, 0);
    const char *const results[] = {"ERROR", "+CME ERROR: 100", "+CME ERROR: unknown"};
    refusal_.steps = {{step_kind::final_result, {}, parse_template(results[mode], {}), {}}};
    running_ = &refusal_;
}

void modem::take_prompt_byte(char c)
{
    echo({&c, 1});
    if (c == ctrl_z)
        return end_prompt();
    if (c == escape_key) {
        prompt_ = nullptr;
        return end_command("OK");
    }
    prompt_text_.append(prompt_text_.size() <= max_prompt ? 1 : 0, c);
}

void modem::end_prompt()
{
    const step &asked = *std::exchange(prompt_, nullptr);
    const std::size_t first = std::min(prompt_text_.find_first_not_of("\r\n "), prompt_text_.size());
    std::string text = prompt_text_.substr(first);
    text.resize(text.find_last_not_of("\r\n ") + 1);
    const auto length = parse_number(asked.text.expand(values_), max_prompt);
    const bool wrong_pdu =
        asked.kind == step_kind::prompt_pdu && !(length && is_pdu_of_length(text, *length));
    if (wrong_pdu || prompt_text_.size() > max_prompt)
        return end_command("+CMS ERROR: 304");
    values_["text"] = std::move(text);
    resume_at_ = now_ + duration("latency");
}

modem::status modem::state() const
{
    return {client_,       silent_,        running_ != nullptr, prompt_ != nullptr, data_,  commands_,
            input_.size(), output_.size(), flood_left_,         garbage_left_,      values_};
}

} // namespace modemsim

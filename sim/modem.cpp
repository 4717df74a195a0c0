#include "modem.h"

#include "text.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace modemsim
{

namespace
{

constexpr char ctrl_z = '\x1a';
constexpr char escape_key = '\x1b';
constexpr unsigned max_reference = 255; // a message reference is one octet

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
    drop_work();
}

void modem::drop_work()
{
    input_.clear();
    line_.clear();
    running_ = nullptr;
    prompt_ = nullptr;
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
    for (const auto &due : due_)
        if (due && (!earliest || *due < *earliest))
            earliest = due;
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
        for (const step &one : what.steps)
            if (!silent_ && has_room())
                execute(one);
        ran = true;
    }
    return ran;
}

bool modem::run_steps()
{
    bool ran = false;
    while (running_ != nullptr && prompt_ == nullptr && now_ >= resume_at_ && has_room()) {
        ran = true;
        if (next_step_ == running_->steps.size())
            running_ = nullptr;
        else
            execute(running_->steps[next_step_++]);
    }
    return ran;
}

bool modem::take_input()
{
    std::size_t taken = 0;
    while (taken < input_.size() && has_room() && (running_ == nullptr || prompt_ != nullptr)) {
        const char c = input_[taken++];
        prompt_ != nullptr ? take_prompt_byte(c) : take_line_byte(c);
    }
    input_.erase(0, taken);
    return taken > 0 || stop_running();
}

bool modem::run_streams()
{
    const bool ran = client_ && has_room() && (garbage_left_ > 0 || flood_left_ > 0);
    for (; client_ && garbage_left_ > 0 && has_room(); --garbage_left_)
        output_ += static_cast<char>(random_() & 0xff);
    for (; client_ && flood_left_ > 0 && has_room(); --flood_left_) {
        std::string text = flood_text_;
        replace_all(text, "{i}", std::to_string(++flood_sent_));
        frame(text);
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
    return raw("\r\n" + std::string(text) + "\r\n");
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

void modem::frame(std::string_view text)
{
    in_lines_ = false;
    send("\r\n");
    send(text);
    send("\r\n");
}

void modem::echo(std::string_view bytes)
{
    const auto found = values_.find("echo");
    if (found != values_.end() && found->second == "1")
        send(bytes);
}

void modem::execute(const step &what)
{
    const std::string text = what.text.expand(values_);
    switch (what.kind) {
    case step_kind::line:
        send(in_lines_ ? text + "\r\n" : "\r\n" + text + "\r\n");
        in_lines_ = true;
        break;
    case step_kind::final_result:
        if (!text.empty())
            frame(text);
        break;
    case step_kind::report:
        frame(text);
        break;
    case step_kind::raw:
        in_lines_ = false;
        send(text);
        break;
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
    case step_kind::count:
        values_[what.name] = std::to_string(
            (parse_number(values_[what.name], max_reference).value_or(0) + 1) % (max_reference + 1));
        break;
    }
}

/// While a command is answered that can be stopped: looks for the stop line among the queued ones, which it
/// overtakes, and leaps to the command's final result. After that result nothing is left to stop.
bool modem::stop_running()
{
    if (running_ == nullptr || prompt_ != nullptr || running_->stop_by.empty() || !has_room())
        return false;
    const auto &steps = running_->steps;
    const auto final_step = std::find_if(steps.begin() + static_cast<std::ptrdiff_t>(next_step_), steps.end(),
                                         [](const step &s) { return s.kind == step_kind::final_result; });
    if (final_step == steps.end())
        return false;
    for (std::size_t start = 0, end = 0; (end = input_.find('\r', start)) != std::string::npos;
         start = end + 1) {
        const std::string line = input_.substr(start, end - start);
        variables ignored;
        const std::size_t text = std::min(line.find_first_not_of('\n'), line.size());
        if (!running_->stop_by.match(trim(std::string_view(line).substr(text)), ignored))
            continue;
        input_.erase(start, end + 1 - start);
        echo(line + "\r");
        in_lines_ = false;
        next_step_ = static_cast<std::size_t>(final_step - steps.begin());
        resume_at_ = now_;
        return true;
    }
    return false;
}

void modem::take_line_byte(char c)
{
    constexpr char backspace = '\b';
    constexpr char rubout = '\x7f';
    if (c == '\n' && line_.empty())
        return; // of a client that ends lines with CR LF
    echo({&c, 1});
    if (c == '\r')
        begin_command(std::exchange(line_, {}));
    else if (c != backspace && c != rubout)
        line_.append(line_.size() <= max_line ? 1 : 0, c);
    else if (!line_.empty())
        line_.pop_back();
}

void modem::begin_command(std::string_view line)
{
    in_lines_ = false;
    if (line.size() > max_line)
        return frame("ERROR");
    line = trim(line);
    if (line.empty())
        return;
    ++commands_;
    running_ = find_command(script_, line, values_);
    next_step_ = 0;
    resume_at_ = now_;
    if (running_ == nullptr)
        refuse_unknown(line);
}

void modem::refuse_unknown(std::string_view line)
{
    if (!equal_ignoring_case(line.substr(0, 2), "AT"))
        return; // noise, for example a PDU that nobody asked for
    const std::string mode = values_.contains("cmee") ? values_["cmee"] : "0";
    if (mode == "1")
        frame("+CME ERROR: 100");
    else if (mode == "2")
        frame("+CME ERROR: unknown");
    else
        frame("ERROR");
}

void modem::take_prompt_byte(char c)
{
    echo({&c, 1});
    if (c == ctrl_z)
        return end_prompt();
    if (c == escape_key) {
        prompt_ = nullptr;
        running_ = nullptr;
        return frame("OK");
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
    if (wrong_pdu || prompt_text_.size() > max_prompt) {
        running_ = nullptr;
        return frame("+CMS ERROR: 304");
    }
    values_["text"] = std::move(text);
    resume_at_ = now_;
}

modem::status modem::state() const
{
    return {client_,       silent_,        running_ != nullptr, prompt_ != nullptr, commands_,
            input_.size(), output_.size(), flood_left_,         garbage_left_,      values_};
}

} // namespace modemsim

#include "dialogue.h"

#include "message_service.h"
#include "pdu.h"
#include "text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

namespace modemsim
{

namespace
{

constexpr int max_include_depth = 8;
constexpr unsigned max_repeat = 10000;
constexpr std::size_t max_steps = 100000; // of one block, repeats written out

struct step_word {
    std::string_view word;
    step_kind kind;
    bool needs_text;
    bool in_schedule;
};

constexpr step_word step_words[] = {
    {"line", step_kind::line, true, false},         {"final", step_kind::final_result, true, false},
    {"report", step_kind::report, true, true},      {"raw", step_kind::raw, true, true},
    {"delay", step_kind::delay, true, false},       {"set", step_kind::set, false, true},
    {"count", step_kind::count, false, true},       {"encode", step_kind::encode, false, false},
    {"messages", step_kind::messages, true, false}, {"data", step_kind::data, true, false},
    {"hang-up", step_kind::hang_up, false, false},
};
constexpr std::string_view all_steps =
    "line, final, report, raw, delay, later, prompt, set, count, encode, messages, data, "
    "hang-up, if ... else ... end, repeat ... end, stop-by, abortable";
constexpr std::string_view scheduled_steps = "report, raw, set, count, if and repeat";

struct operator_word {
    std::string_view word;
    comparison meaning;
};
constexpr operator_word operator_words[] = {
    {"=", comparison::equal},   {"!=", comparison::unequal}, {"<", comparison::less},
    {">", comparison::greater}, {"<=", comparison::at_most}, {">=", comparison::at_least},
};

constexpr std::string_view state_words[] = {"unread", "read", "unsent", "sent"}; // as message_state counts

/// Reads one dialogue file into a dialogue; one more parser for every included file.
class parser
{
public:
    parser(dialogue &out, std::string name, int depth) : out_(out), name_(std::move(name)), depth_(depth) {}

    void read(std::string_view text)
    {
        while (!text.empty()) {
            const std::size_t end = text.find('\n');
            std::string_view line = text.substr(0, end);
            text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
            ++line_number_;
            if (line.ends_with('\r'))
                line.remove_suffix(1);
            read_line(line);
        }
        end_block();
        check_names();
    }

private:
    using directive = void (parser::*)(std::string_view rest);

    [[noreturn]] void fail(const std::string &cause) const { fail_at(line_number_, cause); }

    [[noreturn]] void fail_at(int line, const std::string &cause) const
    {
        throw dialogue_error(name_ + ":" + std::to_string(line) + ": " + cause);
    }

    void read_line(std::string_view line)
    {
        const std::string_view content = trim(line);
        if (content.empty() || content.front() == '#')
            return;
        const bool indented = content.data() != line.data();
        try {
            if (!indented)
                read_directive(content);
            else if (repeat_left_ > 0)
                collect_repeat(content);
            else
                read_step(content);
        } catch (const std::invalid_argument &error) {
            fail(error.what());
        }
    }

    void read_directive(std::string_view content)
    {
        struct row {
            std::string_view word;
            directive serve;
        };
        constexpr row rows[] = {
            {"include", &parser::include}, {"set", &parser::start_value}, {"command", &parser::begin_command},
            {"at", &parser::at_start},     {"after", &parser::once},      {"every", &parser::periodic},
            {"forget", &parser::forget},   {"message", &parser::message},
        };
        end_block();
        std::string_view rest = content;
        const std::string_view word = take_word(rest);
        for (const row &candidate : rows)
            if (candidate.word == word)
                return (this->*candidate.serve)(rest);
        fail("unknown word '" + std::string(word) +
             "' at the start of a line; known are include, set, message, command, at start, after, every, "
             "forget reports, forget messages (steps of a block are indented)");
    }

    void include(std::string_view what)
    {
        if (what.empty())
            fail("include wants a name; write 'include default' or 'include FILE'");
        if (depth_ + 1 > max_include_depth)
            fail("includes nest deeper than " + std::to_string(max_include_depth) +
                 " files; does a file include itself?");
        if (what == "default")
            return parser(out_, "default.dialogue", depth_ + 1).read(default_dialogue);
        const auto path = std::filesystem::path(name_).parent_path() / what;
        std::ifstream file(path, std::ios::binary);
        if (!file || std::filesystem::is_directory(path))
            fail("cannot read " + path.string() + "; included files are looked for beside the including one");
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        parser(out_, path.string(), depth_ + 1).read(text);
    }

    void start_value(std::string_view rest)
    {
        const std::string name = checked_name(take_word(rest));
        out_.start_values[name] = unescape(rest);
    }

    void begin_command(std::string_view pattern)
    {
        if (pattern.empty())
            fail("command wants a pattern; write for example 'command AT+CSQ'");
        command_pattern parsed(pattern);
        out_.commands.push_back({std::move(parsed), {}, false, {}});
        begin_block(out_.commands.back().steps);
        in_command_ = true;
    }

    void at_start(std::string_view rest)
    {
        if (rest != "start")
            fail("after 'at' only 'start' may stand; for a time write 'after 500ms' or 'every 2s'");
        begin_schedule(milliseconds(0), milliseconds(0));
    }

    void once(std::string_view rest) { begin_schedule(duration(rest), milliseconds(0)); }

    void periodic(std::string_view rest)
    {
        const milliseconds period = duration(take_word(rest));
        if (period == milliseconds(0))
            fail("a period of 0 would never end; write at least 'every 1ms'");
        milliseconds first = period;
        if (!rest.empty()) {
            if (take_word(rest) != "after")
                fail("after the period only 'after TIME' may stand, as in 'every 6s after 2s'");
            first = duration(rest);
        }
        begin_schedule(first, period);
    }

    void forget(std::string_view rest)
    {
        if (rest == "messages")
            return out_.messages.clear();
        if (rest != "reports")
            fail("only 'forget reports' and 'forget messages' are known: they drop what is written above");
        out_.schedules.clear();
    }

    void message(std::string_view rest)
    {
        const std::string_view state = take_word(rest);
        const auto *const found = std::ranges::find(state_words, state);
        if (found == std::end(state_words) || !pdu_length(rest))
            fail(
                "message wants unread, read, unsent or sent, and a PDU in hexadecimal form, service centre first");
        out_.messages.push_back({static_cast<message_state>(found - state_words), std::string(rest)});
    }

    void begin_schedule(milliseconds first, milliseconds period)
    {
        out_.schedules.push_back({first, period, {}});
        begin_block(out_.schedules.back().steps);
        in_command_ = false;
    }

    void begin_block(std::vector<step> &steps)
    {
        steps_ = &steps;
        open_ifs_.clear();
        block_line_ = line_number_;
        has_final_ = false;
        has_prompt_ = false;
    }

    void end_block()
    {
        if (repeat_left_ > 0)
            fail_at(repeat_line_, "repeat without end; write an indented 'end' behind the repeated steps");
        if (steps_ == nullptr)
            return;
        if (!open_ifs_.empty())
            fail_at(open_ifs_.back().line, "if without end; write an indented 'end' behind its steps");
        if (in_command_ && !has_final_)
            fail_at(block_line_,
                    "the command has no final result; add 'final OK', or 'final none' for a modem "
                    "that never ends its answer");
        if (!in_command_ && steps_->empty())
            fail_at(block_line_, "nothing is scheduled; add an indented 'report TEXT' below");
        steps_ = nullptr;
    }

    void read_step(std::string_view content)
    {
        if (steps_ == nullptr)
            fail("an indented step outside of a block; begin one with 'command PATTERN' or 'every TIME'");
        if (steps_->size() >= max_steps)
            fail("more than " + std::to_string(max_steps) + " steps in one block; repeat fewer times");
        std::string_view rest = content;
        const std::string_view word = take_word(rest);
        struct special {
            std::string_view word;
            directive serve;
        };
        constexpr special specials[] = {
            {"repeat", &parser::begin_repeat}, {"stop-by", &parser::add_stop},
            {"prompt", &parser::add_prompt},   {"if", &parser::begin_if},
            {"else", &parser::begin_else},     {"end", &parser::end_if},
            {"later", &parser::add_later},     {"abortable", &parser::add_abort},
        };
        for (const special &candidate : specials)
            if (candidate.word == word)
                return (this->*candidate.serve)(rest);
        const auto *const row = std::ranges::find(step_words, word, &step_word::word);
        if (row == std::end(step_words))
            fail("unknown step '" + std::string(word) + "'; a step is one of: " + std::string(all_steps));
        if (!in_command_ && !row->in_schedule)
            fail("'" + std::string(word) + "' belongs to a command; scheduled are " +
                 std::string(scheduled_steps));
        add_step(*row, rest);
    }

    void begin_if(std::string_view rest)
    {
        step added{step_kind::condition, checked_name(take_word(rest)), {}, {}};
        const std::string_view word = take_word(rest);
        const auto *const row = std::ranges::find(operator_words, word, &operator_word::word);
        if (row == std::end(operator_words))
            fail("write 'if NAME = TEXT', or != < > <= >= in place of the = sign");
        use(added.name);
        added.compare = row->meaning;
        added.text = parse_template(rest, repetition_);
        use_all(added.text);
        open_ifs_.push_back({steps_->size(), line_number_, false});
        steps_->push_back(std::move(added));
    }

    void begin_else(std::string_view)
    {
        if (open_ifs_.empty() || open_ifs_.back().in_else)
            fail("'else' without 'if'");
        steps_->push_back({step_kind::skip, {}, {}, {}});
        skip_to_here(open_ifs_.back().step);
        open_ifs_.back() = {steps_->size() - 1, open_ifs_.back().line, true};
    }

    void end_if(std::string_view)
    {
        if (open_ifs_.empty())
            fail("'end' without 'if' or 'repeat'");
        skip_to_here(open_ifs_.back().step);
        open_ifs_.pop_back();
    }

    void skip_to_here(std::size_t index) { (*steps_)[index].skipped = steps_->size() - index - 1; }

    void add_later(std::string_view rest)
    {
        const std::string_view time = take_word(rest);
        const std::size_t before = steps_->size();
        if (time.find('{') == std::string_view::npos)
            duration(time);
        text_template later = parse_template(time, repetition_);
        use_all(later);
        const std::string_view word = rest.substr(0, rest.find(' '));
        const bool simple =
            word == "report" || word == "raw" || word == "set" || word == "count" || word == "messages";
        if (!in_command_ || !simple)
            fail("later wants a time and one step of a command: report, raw, set, count or messages");
        read_step(rest);
        (*steps_)[before].later = std::move(later);
    }

    void add_abort(std::string_view)
    {
        if (!in_command_)
            fail("'abortable' belongs to a command");
        out_.commands.back().abortable = true;
    }

    void add_step(const step_word &row, std::string_view rest)
    {
        step added{row.kind, {}, {}, {}};
        if (row.needs_text && rest.empty())
            fail("'" + std::string(row.word) + "' wants a text behind it");
        if (row.kind == step_kind::set || row.kind == step_kind::count || row.kind == step_kind::encode)
            added.name = checked_name(take_word(rest));
        if (row.kind == step_kind::count)
            use(added.name);
        if (row.kind == step_kind::messages || row.kind == step_kind::data)
            added.name = known_word(row, take_word(rest));
        if (row.kind == step_kind::delay && rest.find('{') == std::string_view::npos)
            duration(rest);
        if (row.kind == step_kind::final_result) {
            has_final_ = true;
            if (rest == "none")
                rest = {};
        }
        added.text = parse_template(rest, repetition_);
        use_all(added.text);
        steps_->push_back(std::move(added));
    }

    void add_stop(std::string_view rest)
    {
        if (!in_command_ || rest.empty())
            fail("stop-by wants a command line, and a command to stand in, as in 'stop-by AT+STOP'");
        out_.commands.back().stop_by = command_pattern(rest);
    }

    std::string known_word(const step_word &row, std::string_view word) const
    {
        if (row.kind == step_kind::messages && !message_service::knows(word))
            fail(
                "unknown action '" + std::string(word) +
                "' of messages; known are list, read, delete, write, compose, load, sent, select, loop, report");
        if (row.kind == step_kind::data && word != "echo" && word != "drop")
            fail("write 'data echo' for a far end that sends everything back, or 'data drop'");
        return std::string(word);
    }

    void add_prompt(std::string_view rest)
    {
        if (!in_command_)
            fail("'prompt' belongs to a command; scheduled are " + std::string(scheduled_steps));
        const std::string_view form = take_word(rest);
        if (form == "text" && rest.empty())
            steps_->push_back({step_kind::prompt_text, {}, {}, {}});
        else if (form == "pdu" && !rest.empty())
            steps_->push_back({step_kind::prompt_pdu, {}, parse_template(rest, repetition_), {}});
        else
            fail(
                "write 'prompt text', or 'prompt pdu {length}' with the number of octets that the command gave");
        use_all(steps_->back().text);
        has_prompt_ = true;
    }

    void begin_repeat(std::string_view rest)
    {
        if (!repetition_.empty())
            fail("repeat inside repeat; write the inner steps out");
        const auto times = parse_number(rest, max_repeat);
        if (!times || *times == 0)
            fail("repeat wants a number from 1 to " + std::to_string(max_repeat));
        repeat_left_ = *times;
        repeat_line_ = line_number_;
        repeated_.clear();
        ifs_in_repeat_ = 0;
    }

    void collect_repeat(std::string_view content)
    {
        ifs_in_repeat_ += content.starts_with("if ") ? 1 : 0;
        if (content != "end" || ifs_in_repeat_-- > 0) {
            repeated_.push_back({std::string(content), line_number_});
            return;
        }
        const unsigned times = std::exchange(repeat_left_, 0U);
        const int end_line = line_number_;
        for (unsigned i = 1; i <= times; ++i) {
            repetition_ = std::to_string(i);
            for (const auto &[text, line] : repeated_) {
                line_number_ = line;
                read_step(text);
            }
        }
        repetition_.clear();
        line_number_ = end_line;
    }

    milliseconds duration(std::string_view text) const
    {
        const auto value = parse_duration(text);
        if (!value)
            fail("'" + std::string(text) + "' is no duration; write for example 250ms or 3s, up to a day");
        return *value;
    }

    void use_all(const text_template &text)
    {
        for (const auto &part : text.parts)
            if (part.is_variable)
                use(part.text);
    }

    /// Notes that a step needs a variable, unless the command itself provides it.
    void use(const std::string &name)
    {
        const bool captured = in_command_ && out_.commands.back().pattern.captures(name);
        const bool prompted = has_prompt_ && name == "text";
        if (!captured && !prompted)
            used_.push_back({name, line_number_});
    }

    void check_names() const
    {
        for (const auto &[name, line] : used_)
            if (!out_.start_values.contains(name))
                fail_at(line, "the variable {" + name + "} has no value at the start; add 'set " + name +
                                  " VALUE' at the start of a line");
    }

    struct source_line {
        std::string text;
        int line;
    };

    dialogue &out_;
    std::string name_;
    int depth_;
    int line_number_ = 0;
    struct open_if {
        std::size_t step; // the condition, or the skip of its else
        int line;
        bool in_else;
    };

    std::vector<step> *steps_ = nullptr; // of the block being read
    std::vector<open_if> open_ifs_;
    int block_line_ = 0;
    bool in_command_ = false;
    bool has_final_ = false;
    bool has_prompt_ = false;
    unsigned repeat_left_ = 0; // nonzero while the lines of a repeat are collected
    int repeat_line_ = 0;
    int ifs_in_repeat_ = 0;
    std::string repetition_; // what {i} is while they are written out
    std::vector<source_line> repeated_;
    std::vector<source_line> used_;
};

} // namespace

bool holds(std::string_view value, comparison compare, std::string_view text)
{
    constexpr unsigned highest = 1'000'000'000;
    const auto left = parse_number(value, highest);
    const auto right = parse_number(text, highest);
    const bool numbers = left && right;
    switch (compare) {
    case comparison::equal:
        return numbers ? *left == *right : value == text;
    case comparison::unequal:
        return numbers ? *left != *right : value != text;
    case comparison::less:
        return numbers && *left < *right;
    case comparison::greater:
        return numbers && *left > *right;
    case comparison::at_most:
        return numbers && *left <= *right;
    case comparison::at_least:
        return numbers && *left >= *right;
    }
    return false;
}

dialogue parse_dialogue(std::string_view text, const std::string &name)
{
    dialogue result;
    parser(result, name, 0).read(text);
    return result;
}

dialogue load_dialogue(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file || std::filesystem::is_directory(path))
        throw dialogue_error(
            path + ": cannot read the dialogue: " + (file ? "it is a folder" : std::strerror(errno)) +
            "; check the path and its permissions");
    return parse_dialogue(std::string{std::istreambuf_iterator<char>(file), {}}, path);
}

const command *find_command(const dialogue &script, std::string_view line, variables &captured)
{
    for (auto candidate = script.commands.rbegin(); candidate != script.commands.rend(); ++candidate)
        if (candidate->pattern.match(line, captured))
            return &*candidate;
    return nullptr;
}

std::optional<milliseconds> parse_duration(std::string_view text)
{
    constexpr unsigned day_ms = 24 * 60 * 60 * 1000;
    if (text.ends_with("ms")) {
        text.remove_suffix(2);
    } else if (text.ends_with('s')) {
        const auto seconds = parse_number(text.substr(0, text.size() - 1), day_ms / 1000);
        return seconds ? std::optional(std::chrono::seconds(*seconds)) : std::nullopt;
    }
    const auto value = parse_number(text, day_ms);
    return value ? std::optional(milliseconds(*value)) : std::nullopt;
}

} // namespace modemsim

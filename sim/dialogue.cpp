#include "dialogue.h"

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
    {"line", step_kind::line, true, false},    {"final", step_kind::final_result, true, false},
    {"report", step_kind::report, true, true}, {"raw", step_kind::raw, true, true},
    {"delay", step_kind::delay, true, false},  {"set", step_kind::set, false, true},
    {"count", step_kind::count, false, true},
};
constexpr std::string_view all_steps =
    "line, final, report, raw, delay, prompt, set, count, repeat ... end, stop-by";

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
            {"forget", &parser::forget},
        };
        end_block();
        std::string_view rest = content;
        const std::string_view word = take_word(rest);
        for (const row &candidate : rows)
            if (candidate.word == word)
                return (this->*candidate.serve)(rest);
        fail("unknown word '" + std::string(word) +
             "' at the start of a line; known are include, set, command, at start, after, every, "
             "forget reports (steps of a block are indented)");
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
        out_.commands.push_back({std::move(parsed), {}, {}});
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
        if (rest != "reports")
            fail("only 'forget reports' is known: it drops the reports scheduled above");
        out_.schedules.clear();
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
        if (word == "repeat")
            return begin_repeat(rest);
        if (word == "stop-by")
            return add_stop(rest);
        if (word == "prompt")
            return add_prompt(rest);
        const auto *const row = std::ranges::find(step_words, word, &step_word::word);
        if (row == std::end(step_words))
            fail("unknown step '" + std::string(word) + "'; a step is one of: " + std::string(all_steps));
        if (!in_command_ && !row->in_schedule)
            fail("'" + std::string(word) +
                 "' belongs to a command; scheduled are report, raw, set and count");
        add_step(*row, rest);
    }

    void add_step(const step_word &row, std::string_view rest)
    {
        step added{row.kind, {}, {}};
        if (row.kind == step_kind::set || row.kind == step_kind::count)
            added.name = checked_name(take_word(rest));
        if (row.kind == step_kind::count)
            use(added.name);
        if (row.needs_text && rest.empty())
            fail("'" + std::string(row.word) + "' wants a text behind it");
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

    void add_prompt(std::string_view rest)
    {
        if (!in_command_)
            fail("'prompt' belongs to a command; scheduled are report, raw, set and count");
        const std::string_view form = take_word(rest);
        if (form == "text" && rest.empty())
            steps_->push_back({step_kind::prompt_text, {}, {}});
        else if (form == "pdu" && !rest.empty())
            steps_->push_back({step_kind::prompt_pdu, {}, parse_template(rest, repetition_)});
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
    }

    void collect_repeat(std::string_view content)
    {
        if (content != "end") {
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
    std::vector<step> *steps_ = nullptr; // of the block being read
    int block_line_ = 0;
    bool in_command_ = false;
    bool has_final_ = false;
    bool has_prompt_ = false;
    unsigned repeat_left_ = 0; // nonzero while the lines of a repeat are collected
    int repeat_line_ = 0;
    std::string repetition_; // {i} while they are written out
    std::vector<source_line> repeated_;
    std::vector<source_line> used_;
};

} // namespace

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

// Tables of reports: a line goes through the report table, what leaves the process is compared with literals.
#ifndef REPORT_CASES_H
#define REPORT_CASES_H

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "fake_platform.h"
#include "vlk_report_callback/report_table.h"

using namespace std::string_literals;

using sent = std::pair<std::string, std::string>; ///< a call without its blanks, and its payload

// ---- Expected calls

// "19,19005,5,4" is a notification, "18,18002 [60 -1]" one with a payload, "lpm,91393 [60 -1]" a message on
// the bus. In brackets stand little-endian words, 8 of 32 bits and 8h of 16, and areas: 'SM'16 is SM and 14
// zero bytes.

/// What the brackets hold, if there are any.
inline std::string read_payload(std::istream &in)
{
    std::string bytes;
    if ((in >> std::ws).peek() != '[')
        return bytes;
    in.ignore();
    while ((in >> std::ws).peek() != ']' && in) {
        std::string piece;
        std::size_t size = 4;
        if (in.peek() == '\'') {
            std::getline(in.ignore(), piece, '\'');
            in >> size;
        } else {
            int32_t word = 0;
            in >> word;
            piece.assign(reinterpret_cast<const char *>(&word), sizeof word);
            if (in.peek() == 'h') {
                in.ignore();
                size = 2;
            }
        }
        piece.resize(size, '\0');
        bytes += piece;
    }
    in.ignore();
    return bytes;
}

inline std::vector<sent> calls_of(const std::string &text)
{
    std::vector<sent> calls;
    std::istringstream in(text);
    for (std::string start; in >> start;) {
        const std::string payload = read_payload(in);
        const std::string size = "," + std::to_string(payload.size());
        if (start[0] >= 'a')
            calls.emplace_back("QEP_MSG_SendMsgData(" + start + size + ")", payload);
        else if (std::ranges::count(start, ',') == 3)
            calls.emplace_back("VLK_post_notify(" + start + ")", payload);
        else
            calls.emplace_back("VLK_post_notify_ex(" + start + size + ",0,0)", payload);
    }
    return calls;
}

// ---- What happened

/// Every call but the maintenance log's.
inline std::vector<sent> all_sent()
{
    std::vector<sent> calls;
    for (const fake::platform_call &call : fake::seen().calls) {
        if (call.what.starts_with("mlog_print"))
            continue;
        calls.emplace_back(call.what, call.data);
        std::erase(calls.back().first, ' ');
    }
    return calls;
}

/// Every trace as its level, a blank and its text, with a '|' in front.
inline std::string all_traces()
{
    std::string texts;
    for (const fake::trace_line &line : fake::seen().traces) {
        EXPECT_EQ(line.file + " " + line.module, "vlk_report_callback vorlink");
        texts += "|" + std::to_string(line.level) + " " + line.text;
    }
    return texts;
}

// ---- Running

/// The first row whose prefix occurs in the line, which must be there.
inline const vlk_report_row &row_of(const std::string &line)
{
    const auto takes = [&](const vlk_report_row &row) { return line.find(row.prefix) != std::string::npos; };
    const auto row = std::find_if(vlk_report_table.begin(), vlk_report_table.end() - 1, takes);
    EXPECT_NE(row->prefix, nullptr) << line;
    return *row;
}

/// Hands the line to the handler of its row, in a block that ends with the line's terminator.
/// Returns the line as the handler left it.
inline std::string report(const std::string &line, int32_t length)
{
    const auto copy = std::make_unique<char[]>(line.size() + 1);
    line.copy(copy.get(), line.size());
    const vlk_report_row &row = row_of(line);
    if (row.callback != nullptr)
        row.callback(copy.get(), length);
    return {copy.get(), line.size()};
}

inline std::string report(const std::string &line)
{
    return report(line, static_cast<int32_t>(line.size()));
}

struct report_case {
    const char *fault;
    std::string line;
    std::string calls{};
};

template <std::size_t count>
void expect_reports(const report_case (&cases)[count])
{
    for (const report_case &c : cases) {
        SCOPED_TRACE(c.fault + (" (" + c.line + ")"));
        fake::reset();
        report(c.line);
        EXPECT_EQ(all_sent(), calls_of(c.calls));
    }
}

#endif

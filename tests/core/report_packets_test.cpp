// What services are told of: everything that the handlers send stands in the table of packets, with its record, and
// docs/reports.md says the same.
#include <cstdio>
#include <fstream>
#include <map>
#include <regex>
#include <set>

#include "packet_layouts.h"
#include "report_cases.h"

namespace
{

using texts = std::vector<std::string>;

texts split(const std::string &text, const std::string &separator)
{
    texts parts;
    std::size_t begin = 0;
    for (std::size_t end = 0; end != std::string::npos; begin = end + separator.size())
        parts.push_back(text.substr(begin, (end = text.find(separator, begin)) - begin));
    return parts;
}

/// Rows of the document's tables as their cells, without blanks and back quotes around them.
const std::vector<texts> &rows_of_document()
{
    static const std::vector<texts> rows = [] {
        std::vector<texts> found;
        std::ifstream in(REPORTS_DOCUMENT);
        for (std::string line; std::getline(in, line);)
            if (line.starts_with("| "))
                found.push_back(split(line.substr(2, line.rfind(" |") - 2), " | "));
        return found;
    }();
    EXPECT_GT(rows.size(), 90U) << REPORTS_DOCUMENT;
    return rows;
}

/// The pieces of a text that stand between back quotes.
texts quoted(const std::string &text)
{
    texts found;
    const texts parts = split(text, "`");
    for (std::size_t n = 1; n < parts.size(); n += 2)
        found.push_back(parts[n]);
    return found;
}

/// One report's examples in the document: what stands first in a row's first cell.
texts examples()
{
    texts lines;
    for (const texts &row : rows_of_document())
        if (row[0].starts_with("`^") || row[0].starts_with("`+"))
            for (const std::string &line : quoted(row[0]))
                lines.push_back(line);
    return lines;
}

bool names(const packet_layout &row, const std::string &report)
{
    const texts reports = split(row.reports, "/");
    return std::ranges::find(reports, report) != reports.end();
}

/// The row that a call belongs to, nullptr for none.
const packet_layout *row_of_call(const fake::platform_call &call, const std::string &report)
{
    int module = 0;
    unsigned code = 0;
    char name[16] = "";
    std::string data = call.data;
    if (std::sscanf(call.what.c_str(), "QEP_MSG_SendMsgData(%15[^,], %u", name, &code) != 2) {
        if (std::sscanf(call.what.c_str(), "VLK_post_notify(%d, %u", &module, &code) == 2)
            data.assign(VALUES, '\0');
        else
            EXPECT_EQ(std::sscanf(call.what.c_str(), "VLK_post_notify_ex(%d, %u", &module, &code), 2)
                << call.what;
    }
    uint32_t id = 0;
    data.copy(reinterpret_cast<char *>(&id), sizeof id);
    for (const packet_layout &row : PACKETS)
        if (row.module == module && row.destination == name && row.code == code &&
            row.record->size == data.size() && (row.id == ANY_ID || row.id == id) && names(row, report))
            return &row;
    return nullptr;
}

TEST(ReportPackets, MustBeRowsOfTheTableWithTheirRecordAndEveryRowIsSent)
{
    texts lines = examples();
    EXPECT_GE(lines.size(), 45U);
    for (const char *more : {"^APROAMRPT: 0", "^SIMST: 0,0", "^DCONN: 1,\"IP\"", "^DEND: 1,\"IPV6\""})
        lines.emplace_back(more);
    for (const char *more : {"1,,,\"IPV4\"", "1,,,\"IPV6\"", "0,,,\"IPV4\"", "0,,,\"IPV6\""}) {
        lines.push_back("^NDISSTAT: "s + more);
        lines.push_back("^NDISSTATEX: 1,"s + more);
    }
    std::set<std::pair<const packet_layout *, std::string>> sent_rows;
    std::set<std::string> reports;
    for (const std::string &line : lines) {
        SCOPED_TRACE(line);
        const std::string prefix = row_of(line).prefix;
        reports.insert(prefix);
        fake::reset();
        for (int nth = 0; nth < 10; nth++) // every tenth report of traffic sends more
            report(line);
        for (const fake::platform_call &call : fake::seen().calls) {
            if (call.what.starts_with("mlog_print"))
                continue;
            const packet_layout *row = row_of_call(call, prefix);
            EXPECT_NE(row, nullptr) << call.what << " is no row of the table";
            sent_rows.emplace(row, prefix);
        }
    }
    for (const packet_layout &row : PACKETS)
        for (const std::string &report : split(row.reports, "/"))
            EXPECT_TRUE(report.empty() || sent_rows.contains({&row, report})) << row.name << " by " << report;
    for (const vlk_report_row &row : vlk_report_table)
        EXPECT_TRUE(row.callback == nullptr || reports.contains(row.prefix))
            << row.prefix << " has no example";
}

/// The number of bytes of "u8", "text[16]" or "vlk_endc".
uint32_t bytes_of(const std::string &kind, const std::map<std::string, const record_layout *> &records)
{
    if (const auto record = records.find(kind); record != records.end())
        return record->second->size;
    const texts parts = split(kind, "[");
    const uint32_t count = parts.size() == 1 ? 1 : static_cast<uint32_t>(std::stoul(parts[1]));
    const std::map<std::string, uint32_t> sizes = {{"u8", 1},  {"u16", 2}, {"u32", 4},
                                                   {"i32", 4}, {"u64", 8}, {"text", 1}};
    EXPECT_TRUE(sizes.contains(parts[0])) << kind;
    return sizes.contains(parts[0]) ? count * sizes.at(parts[0]) : 0;
}

std::string kind_text(const field_layout &field)
{
    const char *const names[] = {"u8", "u16", "u32", "i32", "u64", "text"};
    return field.count == 1 ? names[field.kind]
                            : names[field.kind] + ("[" + std::to_string(field.count) + "]");
}

/// "4 i32 state" for each field of a record, from a byte on.
void add_fields(std::set<std::string> &fields, const record_layout &record, uint32_t base)
{
    for (const field_layout &field : record.fields)
        fields.insert(std::to_string(base + field.offset) + " " + kind_text(field) + " " + field.name);
}

TEST(ReportPackets, TheDocumentMustGiveEachRecordAsItIsWithoutAGap)
{
    std::map<std::string, const record_layout *> records;
    for (const packet_layout &row : PACKETS)
        if (std::string_view(row.record->name).starts_with("vlk_"))
            records[row.record->name] = row.record;
    std::set<std::string> described;
    for (const texts &row : rows_of_document()) {
        if (row.size() != 3 || !row[0].starts_with("`vlk_"))
            continue;
        const std::string name = quoted(row[0])[0];
        SCOPED_TRACE(name);
        described.insert(name);
        ASSERT_TRUE(records.contains(name));
        EXPECT_EQ(row[1], std::to_string(records[name]->size));
        std::set<std::string> expected, written;
        add_fields(expected, *records[name], 0);
        uint32_t offset = 0;
        for (const std::string &item : split(row[2], " · ")) {
            std::smatch parts;
            ASSERT_TRUE(
                std::regex_match(item, parts, std::regex(R"((\d+) ([a-z0-9_]+(\[\d+\])?)( (\w+))?(.*))")))
                << item;
            EXPECT_EQ(parts[1], std::to_string(offset)) << item;
            offset += bytes_of(parts[2], records);
            if (records.contains(parts[2]))
                add_fields(written, *records[parts[2]], static_cast<uint32_t>(std::stoul(parts[1])));
            else if (!std::regex_match(parts[5].str(), std::regex("reserved|padding|report_id|type")))
                written.insert(parts[1].str() + " " + parts[2].str() + " " + parts[5].str());
        }
        EXPECT_EQ(offset, records[name]->size);
        EXPECT_EQ(written, expected);
    }
    for (const auto &[name, record] : records)
        EXPECT_TRUE(described.contains(name)) << name;
}

TEST(ReportPackets, TheDocumentMustNameEachReceiverItsNumbersAndItsReports)
{
    std::map<std::string, std::set<std::string>> expected, written;
    std::string told;
    for (const texts &row : rows_of_document())
        for (const std::string &cell : row)
            told += cell + "\n";
    for (const packet_layout &row : PACKETS) {
        const std::regex number("(event|type)s? ([0-9]+ and )?" + std::to_string(row.code) + "\\b");
        EXPECT_TRUE(std::regex_search(told, number) || *row.reports == '\0') << row.code;
        for (const std::string &report : split(row.reports, "/"))
            if (!report.empty())
                expected[row.module == 0 ? std::string(row.destination) : std::to_string(row.module)].insert(
                    report);
    }
    for (const texts &row : rows_of_document())
        if (expected.contains(row[0]))
            for (const std::string &report : quoted(row.back()))
                written[row[0]].insert(report);
    EXPECT_EQ(written, expected);
}

} // namespace

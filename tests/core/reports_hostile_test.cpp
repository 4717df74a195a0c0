// Every handler with a parser that does whatever it may: unknown fields, no values, failure.
#include <utility>

#include "report_cases.h"

namespace
{

// Counts the lists that a handler holds, looks whether anybody was told before it released one, and plays a parser
// that adds fields of unknown name and none, or leaves out every value, or fails with something that is no list.
int lists_held = 0;
bool parsed = false, told_too_early = false;
enum parser_kind {
    USUAL,
    UNKNOWN_FIELDS,
    NO_VALUES,
    FAILING
} parser = USUAL;
at_field unknown[2] = {{"unknown", "9", 0, &unknown[1]}, {nullptr, nullptr, 0, nullptr}};

} // namespace

extern "C" {
int __real_at_cmd_parse(at_field **head, const char *prefix, const char *line, int reserved, int kind);
void __real_free_at_cmd(at_field *head);

int __wrap_at_cmd_parse(at_field **head, const char *prefix, const char *line, int reserved, int kind);
int __wrap_at_cmd_parse(at_field **head, const char *prefix, const char *line, int reserved, int kind)
{
    parsed = true;
    if (parser == FAILING) {
        *head = reinterpret_cast<at_field *>(8);
        return -1;
    }
    const int status = __real_at_cmd_parse(head, prefix, line, reserved, kind);
    if (status != 0)
        return status;
    for (at_field *field = *head; field != nullptr && parser == NO_VALUES; field = field->next)
        field->AtFieldValue = nullptr;
    if (parser == UNKNOWN_FIELDS)
        unknown[1].next = std::exchange(*head, unknown);
    lists_held += *head != nullptr ? 1 : 0;
    return 0;
}

void __wrap_free_at_cmd(at_field *head);
void __wrap_free_at_cmd(at_field *head)
{
    lists_held -= head != nullptr ? 1 : 0;
    told_too_early = told_too_early || !fake::seen().calls.empty();
    __real_free_at_cmd(head == unknown ? unknown[1].next : head);
}
}

namespace
{

/// Everything that the report leads to but the flow statistics, which every tenth one does.
std::vector<sent> told_by(const std::string &line, parser_kind kind)
{
    fake::reset();
    parsed = false;
    parser = kind;
    report(line);
    parser = USUAL;
    EXPECT_EQ(lists_held, 0);
    std::vector<sent> calls = all_sent();
    std::erase_if(calls, [](const sent &each) { return each.first == "QEP_MSG_SendMsgData(cms,34843,24)"; });
    return calls;
}

TEST(HostileReports, ListsAreReleasedBeforeAnybodyIsToldWhateverTheParserDoes)
{
    const std::pair<std::string, const char *> complaints[] = {
        // of a field's name
        {"^RRCSTAT", "|8 [RrcStateReportCallback] the AtFieldName is error."},
        {"^LENDC", "|8 [LendcReportCallback] the AtFieldName is error."},
        {"^CERSSI", "|8 This node cannot be resolved\n"},
        {"^CSERSSI", "|8 CseRssiReportCallback This node cannot be resolved"},
        {"^REPORTLINERPLMN", "|2 [LineRplmnReportCallback] AtFieldName error\n"},
    };
    for (const vlk_report_row &row : vlk_report_table) {
        if (row.prefix == nullptr || row.callback == nullptr)
            continue;
        SCOPED_TRACE(row.prefix);
        told_too_early = false;
        const std::string full = row.prefix + ": 1,1,1,1,1,1,1,1,1,1"s;
        const std::vector<sent> usual = told_by(full, USUAL);
        // its record, not the list, is what is told
        EXPECT_EQ(told_too_early, row.prefix == "^HFREQINFO"s);
        const bool by_place = row.prefix == "^REPORTLINEINDEX"s;
        const std::vector<sent> more = told_by(full, UNKNOWN_FIELDS);
        EXPECT_EQ(more, by_place ? calls_of("103,103002 ['9'12 0 1 1 1 1 1 1 1 1 1 10 -2]") : usual);
        for (const auto &[prefix, text] : complaints)
            EXPECT_EQ(all_traces().find(text) != std::string::npos, row.prefix == prefix) << text;
        const std::vector<sent> empty = told_by(row.prefix + ":,,,,,,,,,"s, USUAL);
        EXPECT_EQ(told_by(full, NO_VALUES), by_place ? calls_of("") : empty);
        const std::vector<sent> failed = told_by(row.prefix + ": 1"s, FAILING);
        EXPECT_EQ(failed, parsed ? calls_of("") : usual);
        EXPECT_EQ(all_traces().find("|2 execute at_cmd_parse failed\n") != std::string::npos,
                  std::string_view(row.prefix).starts_with("+CSS"));
    }
    EXPECT_EQ(told_by("^SIMREFRESH:", UNKNOWN_FIELDS),
              calls_of("7,7044,0,0 1,1022,0,0 4,4110,0,0 9,9058,0,0 1,1022,0,0"))
        << "no file_type at all";
}

} // namespace

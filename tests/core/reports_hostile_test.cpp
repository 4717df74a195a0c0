// Every row of the report table at its worst: nothing, garbage, too much, no memory.
#include <algorithm>

#include "report_cases.h"

namespace
{

TEST(HostileReports, RowsThatAreTakenAndDoNothing)
{
    constexpr char expected[] =
        "RING CONNECT +CLIP ^CEND ^CONN ^CONF ^ORIG ^ECLSTAT ^EARST +CCWA +COLP ^APDHCP ^APDIALM ^APCURPROF "
        "^APPROFRD ^APWIFIBS ^APWIFISEC ^TIME +CTZV ^CARDLOCKNTY XLEMA ^CCALLSTATE ^IMSIREFRESH IRING ^CCWA "
        "^CSCHANNELINFO ";
    std::string idle;
    for (const vlk_report_row &row : vlk_report_table)
        idle += row.prefix != nullptr && row.callback == nullptr ? row.prefix + " "s : "";
    EXPECT_EQ(idle, expected);
    EXPECT_EQ(row_of("IRING").id, 6);
    EXPECT_EQ(row_of("noise ^NDISSTATEX: 1").id, 55);
    EXPECT_EQ(row_of("+CDSI: 1,+CMT").id, 1);
}

// A list is one allocation; a frequency record has one of its own.
TEST(HostileReports, NoMemory)
{
    const struct {
        const char *line;
        int allocations; // that succeed
        std::size_t calls;
    } rows[] = {
        {"^SIMST: 1", 0, 0},       {"+CUSD: 1,\"A\",15", 0, 0}, {"^REPORTLINEINDEX: a,1", 0, 0},
        {"^LENDC: 1,2,3", 1, 2},   {"+CMT: ,2\n0004", 1, 1},    {"^REPORTLINEINDEX: a,1,2", 1, 1},
        {"^HFREQINFO: 6,3", 1, 0},
    };
    for (const auto &row : rows) {
        fake::reset();
        fake::fail("malloc", 1, row.allocations);
        report(row.line);
        EXPECT_EQ(all_sent().size(), row.calls) << row.line;
    }
}

// Counts the lists that a handler holds, and looks whether anybody was told before it released one.
int lists_held = 0;
bool told_too_early = false;

} // namespace

extern "C" {
int __real_at_cmd_parse(at_field **head, const char *prefix, const char *line, int reserved, int kind);
void __real_free_at_cmd(at_field *head);

int __wrap_at_cmd_parse(at_field **head, const char *prefix, const char *line, int reserved, int kind);
int __wrap_at_cmd_parse(at_field **head, const char *prefix, const char *line, int reserved, int kind)
{
    const int status = __real_at_cmd_parse(head, prefix, line, reserved, kind);
    lists_held += status == 0 && *head != nullptr ? 1 : 0;
    return status;
}

void __wrap_free_at_cmd(at_field *head);
void __wrap_free_at_cmd(at_field *head)
{
    lists_held -= head != nullptr ? 1 : 0;
    told_too_early = told_too_early || !fake::seen().calls.empty();
    __real_free_at_cmd(head);
}
}

namespace
{

TEST(HostileReports, ListsAreReleasedBeforeAnybodyIsTold)
{
    for (const vlk_report_row &row : vlk_report_table) {
        if (row.prefix == nullptr || row.callback == nullptr)
            continue;
        fake::reset();
        told_too_early = false;
        report(row.prefix + ": 1,1,1,1"s);
        EXPECT_EQ(lists_held, 0) << row.prefix;
        // its record, not the list, is what is told
        EXPECT_EQ(told_too_early, row.prefix == "^HFREQINFO"s) << row.prefix;
    }
}

// Receiver, number and size of every record that services know.
constexpr char known_records[] =
    "(1,1001,0,0,0) (1,1008,24,0,0) (1,1008,518,0,0) (1,1010,518,0,0) (1,1010,8,0,0) (2,2003,528,0,0) "
    "(6,6001,8,0,0) (7,7056,12,0,0) (9,4047,52,0,0) (18,18002,40,0,0) (18,18034,32,0,0) (19,19016,24,0,0) "
    "(19,19034,84,0,0) (19,19036,24,0,0) (19,19039,12,0,0) (19,31007,1028,0,0) (106,31007,1028,0,0) "
    "(27,27003,12,0,0) (33,33001,8,0,0) (74,9004,4,0,0) (103,103002,60,0,0) (103,103003,52,0,0) "
    "(dialup,166661,0) (dialup,166661,4) (dialup,166657,8) (dialup,166658,8) (dialup,166659,8) "
    "(dialup,166660,8) (lpm,91393,8) (lpm,91394,16) (lpm,91395,28) (lpm,91396,40) (lpm,91397,20) "
    "(cms,34843,24) (cms,34844,0) (behavior,188943,24) ";

bool is_known(const std::string &call)
{
    return call.starts_with("VLK_post_notify(") ||
           std::string(known_records).find(call.substr(call.find('(')) + " ") != std::string::npos;
}

// Returns, sends records of known sizes only, leaves no block and no byte out of place: a sanitizer watches.
TEST(HostileReports, EveryPrefixWithEveryGarbage)
{
    std::vector<std::string> garbage = {"",      ":",     " ",  ": ",  ":,",       ":\"",
                                        ":\"\"", ": \",", "::", ":\n", ":\r\n\r\n"};
    garbage.insert(garbage.end(), {":\0\0\0"s, "\0:1"s, ":1,\"\0\0\",\0"s, ":5,1,-2147483648,-2147483648"});
    for (const std::string &piece : {"x"s, ","s, "\""s, "\",\""s, "\n"s, "\xFF"s, "9"s, " "s,
                                     "99999999999999999999,"s, "-99999999999999999999,"s, "2147483647,"s,
                                     "-2147483648,"s, "%s%n%999999d,"s, "\0\r,\""s, "^SIMST:"s}) {
        std::string &many = garbage.emplace_back(":");
        while (many.size() < 1480)
            many += piece;
    }
    for (const vlk_report_row &row : vlk_report_table) {
        if (row.prefix == nullptr)
            continue;
        for (const std::string &rest : garbage) {
            fake::reset();
            report(row.prefix + rest);
            report(row.prefix + rest, 1);
            for (const sent &call : all_sent())
                EXPECT_TRUE(is_known(call.first))
                    << row.prefix << rest.substr(0, 30) << " sent " << call.first;
        }
    }
}

} // namespace

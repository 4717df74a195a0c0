// Signal quality, cells, frequencies: what is told to whom.
#include "at_cmd_msg.h"
#include "report_cases.h"
#include "stored_report.h"

namespace
{

TEST(Reports, SignalQuality)
{
    const auto hcsq = [](const std::string &record) {
        return "19,19016 [" + record + "] behavior,188943 [" + record + "]";
    };
    const report_case cases[] = {
        {"another figure than the level", "^ANLEVEL: 3,-80,-9,-70,-95,-11", "19,19011,3,0"},
        {"empty still tells", "^ANLEVEL:", "19,19011,0,0"},

        {"figures in each other's words", "^CERSSI: -1,-2,-3,-4,-5,-6,7,8,9,10,11,12,13,14,15,16,17,18",
         "19,19034 [0 0 -1 -2 -3 -4 -5 -6 7 8 9 10 11 12 13 14 15 16 17 18 0] "
         "lpm,91395 [-1 -2 -3 -4 -5 -6 7]"},
        {"figures saturate, they do not wrap", "^CERSSI: ,4294967297,-4294967297",
         "19,19034 [0 0 0 2147483647 -2147483648 ''64] lpm,91395 [0 2147483647 -2147483648 ''16]"},
        {"empty still tells", "^CERSSI:", "19,19034 [''84] lpm,91395 [''28]"},
        {"5G figures stand behind the others", "^CSERSSI: -90,-11,25", "lpm,91396 [''28 -90 -11 25]"},
        {"empty still tells", "^CSERSSI:", "lpm,91396 [''40]"},

        {"values in each other's words", "^HCSQ: \"LTE\",50,51,52,53,54", hcsq("2 50 51 52 53 54")},
        {"no service is -1", "^HCSQ: \"NOSERVICE\"", hcsq("-1 ''20")},
        {"code of WCDMA", "^HCSQ: \"WCDMA\"", hcsq("1 ''20")},
        {"CDMA taken for TD-SCDMA or CDMA-EVDO", "^HCSQ: \"CDMA\"", hcsq("3 ''20")},
        {"code of EVDO", "^HCSQ: \"EVDO\"", hcsq("4 ''20")},
        {"TD-SCDMA taken for CDMA", "^HCSQ: \"TD-SCDMA\"", hcsq("5 ''20")},
        {"CDMA-EVDO taken for CDMA", "^HCSQ: \"CDMA-EVDO\"", hcsq("6 ''20")},
        {"code of NR", "^HCSQ: \"NR\",1,2,3", hcsq("7 1 2 3 0 0")},
        {"lower case is unknown, GSM's code", "^HCSQ: \"lte\",1", hcsq("0 1 ''16")},
        {"empty still tells", "^HCSQ:", hcsq("''24")},
        {"^LTESIGLEV told", "^LTESIGLEV: 3"},
    };
    expect_reports(cases);

    fake::reset();
    report("^CERSSI: 1", 0);
    report("^HCSQ: \"NR\"", 0);
    report("^CSERSSI: 1", 1);
    EXPECT_EQ(all_sent().size(), 5U) << "the least good length refused";
}

TEST(Reports, StoredRssi)
{
    const auto stored = [] { return std::string(g_rssiReportBuf.rmsg, sizeof g_rssiReportBuf.rmsg); };
    const std::string longest = "^RSSI: " + std::string(1493, '9');
    fake::reset();
    stored_report_reset();
    report(longest);
    EXPECT_EQ(stored(), longest);
    report("^RSSI: 21");
    EXPECT_EQ(stored(), "^RSSI: 21" + std::string(1491, '\0')) << "something of the longer one behind it";
    EXPECT_EQ(g_rssiReportBuf.ret_val, 2);
    fake::reset();
    report(longest + "9");
    char other[] = "^HCSQ: 1";
    row_of("^RSSI").callback(other, 8);
    EXPECT_EQ(all_traces(),
              "|4 MAX_ATCMD_REPORT_SIZE < rssi_length\n|4 Buffer(^HCSQ: 1) do not have ^RSSI\n");
    EXPECT_EQ(stored(), "^RSSI: 21" + std::string(1491, '\0')) << "one of these two stored";
    EXPECT_EQ(all_sent(), calls_of(""));
    stored_report_reset();
}

TEST(Reports, Cells)
{
    const report_case cases[] = {
        {"rat 5 joins the bits", "^HSRCELLINFO: 5,1,345,12", "103,103003 [5 '12345'32 1 0 345 12]"},
        {"others have low bits", "^HSRCELLINFO: 2,0,345,12", "103,103003 [2 '345'32 0 0 345 12]"},
        {"negative bits keep their sign", "^HSRCELLINFO: 5,0,-34,-12",
         "103,103003 [5 '-12-34'32 0 0 -34 -12]"},
        {"missing members are 0", "^HSRCELLINFO: 2", "103,103003 [2 '0'32 0 0 0 0]"},
        {"a flag of 2 drops the report", "^HSRCELLINFO: 5,2,345,12"},
        {"a flag of -1 taken as signed", "^HSRCELLINFO: 5,-1,345,12"},
        {"a flag of 257 cut to 1", "^HSRCELLINFO: 5,257,345,12"},

        {"no index", "^REPORTLINEINDEX: line", "103,103002 ['line'12 ''40 0 -2]"},
        {"a missing index keeps its place", "^REPORTLINEINDEX: line,4,,9",
         "103,103002 ['line'12 4 0 9 ''28 3 -2]"},
        {"ten indexes fill the list", "^REPORTLINEINDEX: line,1,2,3,4,5,6,7,8,9,10",
         "103,103002 ['line'12 1 2 3 4 5 6 7 8 9 10 10 -2]"},
        {"an eleventh in the count", "^REPORTLINEINDEX: line,1,2,3,4,5,6,7,8,9,10,11,12",
         "103,103002 ['line'12 1 2 3 4 5 6 7 8 9 10 10 -2]"},
        {"8 characters fit", "^REPORTLINEINDEX: \"12345678\",1", "103,103002 ['12345678'12 1 ''36 1 -2]"},
        {"9 drop the report", "^REPORTLINEINDEX: \"123456789\",1"},
        {"^LCACELLURC parsed", "^LCACELLURC \"", "19,19005,0,0"},
    };
    expect_reports(cases);
}

TEST(Reports, Frequencies)
{
    const std::string at_bound = "^HFREQINFO:6,3,1,2,200,4,5,150,7," + std::string(92, 'x');
    const report_case cases[] = {
        {"other words, another record", "^HFREQINFO: 6,3,1,2,200,4,5,150,7,8,9", "lpm,91394 [6 3 200 150]"},
        {"words that the report lacks are 0", "^HFREQINFO:7", "lpm,91394 [7 0 0 0]"},
        {"a message without a word", "^HFREQINFO:"},
        {"125 bytes and the switch fit", at_bound, "lpm,91394 [6 3 200 150]"},
        {"126 bytes do not", at_bound + "x"},
    };
    expect_reports(cases);
}

} // namespace

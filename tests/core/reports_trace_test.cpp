// What reports trace, word for word: every handler's errors, and all of those that tell nobody anything.
#include "report_cases.h"

namespace
{

/// The last trace is this one, it was traced once, and nobody was told.
void expect_refused(const std::string &trace)
{
    const std::string traces = all_traces();
    EXPECT_TRUE(traces.ends_with("|" + trace)) << traces;
    EXPECT_EQ(traces.find(trace) + trace.size(), traces.size());
    EXPECT_EQ(all_sent(), calls_of(""));
}

// # stands for the parser's result: 2 of a report without ':', 0 of an empty one, 5 of no line at all. +CREG
// and +CGREG share a handler: the second attempt's result is the one to show, 1 where the line has no +CGREG.
TEST(ReportTraces, ParseErrors)
{
    const struct {
        std::string prefix;
        const char *results; // those that this handler takes for errors and traces so
        const char *trace;
    } rows[] = {
        {"^MODE", "2", "2 mode_report_callback at_cmd_parse  error,and the ret = #"},
        {"^SRVST", "2", "2 redirect_noservice_report_callback at_cmd_parse  error,and the ret = #"},
        {"+CREG", "1", "2 creg_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"+CGREG", "2", "2 creg_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"+C5GREG", "2", "2 [NrNetworkReportCallback] at_cmd_parse  error,and the ret = #"},
        {"^APROAMRPT", "25", "8 aproaming_report_callback, error,and the ret = #"},
        {"^RRCSTAT", "20", "2 [RrcStateReportCallback] at_cmd_parse err id = #."},
        {"^LENDC", "20", "2 [LendcReportCallback] at_cmd_parse err id = #.\n"},
        {"^PLMN", "2", "2 plmn_report_callback at_cmd_parse error,and the ret = #\n"},
        {"^REPORTLINERPLMN", "20", "2 [LineRplmnReportCallback] at_cmd_parse error id = #\n"},
        {"^REJINFO", "2", "2 rejinfo_report_callback at_cmd_parse error,and the ret = #\n"},
        {"^NETSCAN", "20", "2 [NetScanReportCallback] at_cmd_parse err ret = #."},
        {"^SIMST", "20", "2 simst_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"^SIMREFRESH", "20", "2 [sim_refresh_report_callback] at_cmd_parse  error,and the ret = #\n"},
        {"^WAKEUPIN", "25", "8 wakeupin_report_callback at_cmd_parse error,and the ret = #\n"},
        {"^TEMPPRT", "25", "8 tempprt_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"^NWTIME", "25", "8 net_time_report_callback at_cmd_parse error,and the ret = #\n"},
        {"^ANLEVEL", "25", "8 anelvel_report_callback, error,and the ret = #"},
        {"^CERSSI", "2", "2 cerssi_report_callback  at_cmd_parse  error,and the ret = #.\n"},
        {"^CSERSSI", "2", "2 CseRssiReportCallback at_cmd_parse error, ret = #"},
        {"^HCSQ", "2", "2 hcsq_report_callback  at_cmd_parse  error,and the ret = #.\n"},
        {"^LTESIGLEV", "2", "2 ltesiglev_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"^HSRCELLINFO", "20", "2 [LineCellInfoCallback] at_cmd_parse error id = #\n"},
        {"^REPORTLINEINDEX", "20", "2 [LineIndexReportCallback] at_cmd_parse error id = #\n"},
        {"^DSFLOWRPT", "2", "2 dsflow_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"^DCONN", "25", "2 dconn_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"^DEND", "25", "8 dend_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"^NDISSTAT", "25", "2 ndisstat_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"^NDISSTATEX", "25", "2 ndisstatex_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"^APDIALUPRPT", "25", "8 apdialup_report_callback, error,and the ret = #"},
        {"+CDSI", "2", "2 sms_index_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"+CBM", "2", "2 sms_content_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"^HCMGSS", "2", "2 sms_hcmgss_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"^HCMGSF", "2", "2 sms_hcmgf_callback at_cmd_parse  error,and the ret = #\n"},
        {"^SMMEMFULL", "2", "2 sms_mem_full_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"+CUSD", "2", "2 ussd_report_callback at_cmd_parse  error,and the ret = #\n"},
        {"^STIN", "2", "2 [stk]stin_report_callback: at_cmd_parse return error ret = #\n"},

        {"^RRCSTAT", "5", "2 [RrcStateReportCallback] the reportBuf is NULL."},
        {"^LENDC", "5", "2 [LendcReportCallback] the reportBuf is NULL.\n"},
        {"^PLMN", "5", "2 plmn_report_callback report_buf is null.\n"},
        {"^REPORTLINERPLMN", "5", "2 [LineRplmnReportCallback] reportBuf is NULL\n"},
        {"^REJINFO", "5", "2 rejinfo_report_callback report_buf is null.\n"},
        {"^NETSCAN", "5", "16 [NetScanReportCallback] reportBuf is NULL."},
        {"^EXSIMST", "5", "2 [exsimst_report_callback]: NULL == rptbuf \n"},
        {"^MMIENTER", "5", "2 [mmi_enter_report_callback]: NULL == rptbuf \n"},
        {"^CERSSI", "5", "2 cerssi_report_callback invalid parameter, return!\n"},
        {"^CSERSSI", "5", "2 CseRssiReportCallback invalid parameter, return"},
        {"^HCSQ", "5", "2 hcsq_report_callback invalid parameter, return!\n"},
        {"^LTESIGLEV", "5", "4 ltesiglev is empty.\n"},
        {"^RSSI", "5", "4 rssi_buf is empty.\n"},
        {"^HSRCELLINFO", "5", "2 [LineCellInfoCallback] reportBuf is NULL\n"},
        {"^REPORTLINEINDEX", "5", "2 [LineIndexReportCallback] reportBuf is NULL\n"},
        {"^HCMGSS", "5", "2 sms_hcmgss_report_callback parameter  error, return. \n"},
        {"^HCMGSF", "5", "2 sms_hcmgsf_report_callback parameter  error, return. \n"},
        {"^SMMEMFULL", "5", "2 sms_mem_full_report_callback parameter  error, return. \n"},
        {"+CSSU", "5", "2 passing param is invalid\n"},
        {"+CSSI", "5", "2 passing param is invalid\n"},
    };
    for (const auto &row : rows) {
        for (const char result : std::string(row.results)) {
            SCOPED_TRACE(row.prefix + " " + result);
            fake::reset();
            if (result == '5')
                row_of(row.prefix).callback(nullptr, 1);
            else
                report(row.prefix + (result == '0' ? ":" : " 1"));
            std::string trace = row.trace;
            std::ranges::replace(trace, '#', result);
            expect_refused(trace);
        }
    }
}

TEST(ReportTraces, OtherErrors)
{
    // Too much for 128 bytes: the prefix, two characters less the switch behind it, one less the rest.
    const std::string hfreq = std::string(117, 'x') + "^HFREQINFO:6";
    const struct {
        const char *prefix; // of the handler
        const char *trace;
        const char *line;
        int32_t length = 1;
    } rows[] = {
        {"^HFREQINFO", "2 [HfreqInfoReportCallback] invalid report content.\n", "^HFREQINFO 6"},
        {"^HFREQINFO", "2 [HfreqInfoReportCallback] copy report content fail.\n", &hfreq[0]},
        {"^HFREQINFO", "2 [HfreqInfoReportCallback] cat active report filed fail.\n", &hfreq[2]},
        {"^HFREQINFO", "2 [HfreqInfoReportCallback] cat last part of report content fail.\n", &hfreq[3]},
        {"^HFREQINFO", "2 [HfreqInfoReportCallback] at_cmd_parse err id = 2.\n", "^HFREQINFOS:6"},
        {"^CERSSI", "2 cerssi_report_callback invalid parameter, return!\n", "^CERSSI: 1", -1},
        {"^CSERSSI", "2 CseRssiReportCallback invalid parameter, return", "^CSERSSI: 1", 0},
        {"^HCSQ", "2 hcsq_report_callback invalid parameter, return!\n", "^HCSQ: 1", -1},
        {"^PLMN", "2 plmn_report_callback do not find flag.\n", "+CSQ: 1"},
        {"^REJINFO", "2 rejinfo_report_callback do not find report_buf flag.\n", "+CSQ: 1"},
        {"+CMTI", "8 [sms_index_report_callback] enter!\n", "+CSQ: 1"},
        {"+CMT", "8 [sms_content_report_callback] enter!\n", "+CSQ: 1"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.trace);
        fake::reset();
        row_of(row.prefix).callback(std::string(row.line).data(), row.length);
        expect_refused(row.trace);
    }
}

TEST(ReportTraces, NoLine)
{
    fake::reset();
    for (const char *silent : {"^MODE", "^SRVST", "+CREG", "+C5GREG", "^SIMST", "^SIMREFRESH", "^HFREQINFO",
                               "^DSFLOWRPT", "+CMTI", "+CMT", "+CUSD", "^STIN"})
        row_of(silent).callback(nullptr, 1);
    EXPECT_EQ(all_traces(), "");
    EXPECT_EQ(all_sent(), calls_of(""));
    for (const char *unread : {"^EONS", "^CPBREADY", "^FACTORY", "^NORSTFACT", "^LCACELLURC"})
        row_of(unread).callback(nullptr, 1);
    EXPECT_EQ(all_sent().size(), 5U);
}

// All traces of reports that have no other effect, and of those that trace at the level of errors.
TEST(ReportTraces, GoodRoad)
{
    const std::pair<std::string, const char *> rows[] = {
        {"^MODE: 5", "|2 mode_report_callback .\n"},
        {"+CGREG: 5", "|2 creg_report_callback .\n|8 vorlink: +CGREG: state=5\n|"
                      "8 [network_report_callback] the cgregReportFlag = [1]\n"},
        {"+C5GREG: 12345678901234567890123456789012,,01234567890123456789012345678901",
         "|2 [NrNetworkReportCallback] start.\n|2 [NrNetworkReportCallback] stat is failed|"
         "2 [NrNetworkReportCallback] ci is failed|8 [NrNetworkReportCallback] the state = [2147483647].\n"},
        {"^PLMN: 001,1234567", "|2 plmn_report_callback start.\n|2 plmn_report_callback find flag.\n|"
                               "8 plmn_report_callback mcc=001.\n|8 plmn_report_callback mnc=123456.\n|"
                               "2 plmn_report_callback end.\n"},
        {"^REJINFO: 46001",
         "|2 rejinfo_report_callback start.\n|2 rejinfo_report_callback find report_buf flag.\n|"
         "2 rejinfo_report_callback plmnid=46001.\n|2 [RegInfoParseParam] in\n|"
         "2 [RegInfoParseParam] end\n|2 rejinfo_report_callback end.\n"},
        {"^EXSIMST", "|2 [exsimst_report_callback]: enter \n|2 [exsimst_report_callback]: leave \n"},
        {"^MMIENTER", "|2 [mmi_enter_report_callback]: enter \n|2 [mmi_enter_report_callback]: leave \n"},
        {"^HCSQ:", "|2 Enter hcsq_report_callback().\n|8 Leave hcsq_report_callback() \n"},
        {"^LTESIGLEV: 3", "|8 LTESIGLEV ltesiglev_report_callback=[^LTESIGLEV: 3]\n|"
                          "8 LTESIGLEV send to WiMAX level =[4]\n"},
        {"^NDISSTATEX: 1,-1", "|8 [ndisstatex_report_callback] enter!\n|"
                              "8 ndisstatex_report_callback rptbuf_stat_dec =[-1]\n"},
        {"^APDIALUPRPT: 1", ""},
        {"+CSSU: 1", "|8 enter cssu_report_callback\n|8 finish cssu_report_callback\n"},
        {"+CSSI 1", "|8 enter cssi_report_callback\n|8 finish cssi_report_callback\n"},
    };
    for (const auto &[line, traces] : rows) {
        SCOPED_TRACE(line);
        fake::reset();
        report(line);
        EXPECT_EQ(all_traces(), traces);
    }
    report("^REJINFO: ,,,,,,12345678");
    EXPECT_TRUE(all_traces().find("|2 [RegInfoParseParam] strncpy_s return failed, secureRet = ") !=
                std::string::npos);
}

} // namespace

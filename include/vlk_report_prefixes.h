/* The names of the modem's reports, in the order in which the daemon looks for them. A line that begins with '^' or
 * '+', or holds RING or CONNECT, belongs to the first report whose name occurs anywhere in it. C++. */
#ifndef VLK_REPORT_PREFIXES_H
#define VLK_REPORT_PREFIXES_H

#include <string_view>

/// REPORT(id, name, handler) for each row of the daemon's table. id: the number that the services know, neither sorted
/// nor unique; handler: a function of src/vlk_report_callback, nullptr for a report that is only consumed.
/// The second ^SIMREFRESH row is never chosen: the first row's handler calls the second's at its end.
// clang-format off
#define VLK_REPORT_ROWS_IN_ORDER(REPORT) \
    REPORT(VLK_REPORT_CMTI, "+CMTI", sms_index_report_callback) \
    REPORT(VLK_REPORT_CMT, "+CMT", sms_content_report_callback) \
    REPORT(VLK_REPORT_CDSI, "+CDSI", sms_index_report_callback) \
    REPORT(VLK_REPORT_CDS, "+CDS", sms_content_report_callback) \
    REPORT(VLK_REPORT_CBM, "+CBM", sms_content_report_callback) \
    REPORT(5, "^SMMEMFULL", sms_mem_full_report_callback) \
    REPORT(6, "RING", nullptr) \
    REPORT(7, "CONNECT", nullptr) \
    REPORT(8, "+CLIP", nullptr) \
    REPORT(9, "^SRVST", redirect_noservice_report_callback) \
    REPORT(VLK_REPORT_SIMST, "^SIMST", simst_report_callback) \
    REPORT(11, "^MODE", mode_report_callback) \
    REPORT(12, "^RSSI", rssi_report_callback) \
    REPORT(13, "^DSFLOWRPT", dsflow_report_callback) \
    REPORT(14, "+CREG", network_report_callback) \
    REPORT(15, "^CEND", nullptr) \
    REPORT(16, "^CONN", nullptr) \
    REPORT(17, "^CONF", nullptr) \
    REPORT(18, "^ORIG", nullptr) \
    REPORT(19, "^ECLSTAT", nullptr) \
    REPORT(20, "^EARST", nullptr) \
    REPORT(21, "+CCWA", nullptr) \
    REPORT(22, "+CSSI", cssi_report_callback) \
    REPORT(23, "+CSSU", cssu_report_callback) \
    REPORT(24, "+COLP", nullptr) \
    REPORT(25, "+CUSD", cusd_report_callback) \
    REPORT(26, "^DCONN", dconn_report_callback) \
    REPORT(27, "^DEND", dend_report_callback) \
    REPORT(28, "^APDIALUPRPT", apdialup_report_callback) \
    REPORT(29, "^APDHCP", nullptr) \
    REPORT(30, "^APDIALM", nullptr) \
    REPORT(31, "^APCURPROF", nullptr) \
    REPORT(32, "^APPROFRD", nullptr) \
    REPORT(33, "^APWIFIBS", nullptr) \
    REPORT(34, "^APWIFISEC", nullptr) \
    REPORT(35, "+CGREG", network_report_callback) \
    REPORT(108, "+C5GREG", NrNetworkReportCallback) \
    REPORT(36, "^TIME", nullptr) \
    REPORT(37, "^NWTIME", net_time_report_callback) \
    REPORT(38, "+CTZV", nullptr) \
    REPORT(39, "^FACTORY", factory_report_callback) \
    REPORT(40, "^APROAMRPT", aproaming_report_callback) \
    REPORT(41, "^CARDLOCKNTY", nullptr) \
    REPORT(VLK_REPORT_HCMGSS, "^HCMGSS", sms_hcmgss_report_callback) \
    REPORT(VLK_REPORT_HCMGSF, "^HCMGSF", sms_hcmgsf_report_callback) \
    REPORT(44, "^ANLEVEL", anelvel_report_callback) \
    REPORT(45, "^NORSTFACT", norstfact_report_callback) \
    REPORT(46, "^TEMPPRT", tempprt_report_callback) \
    REPORT(47, "^STIN", stin_report_callback) \
    REPORT(50, "^HCSQ", hcsq_report_callback) \
    REPORT(101, "^CERSSI", cerssi_report_callback) \
    REPORT(51, "^EONS", net_eons_report_callback) \
    REPORT(52, "^LTESIGLEV", ltesiglev_report_callback) \
    REPORT(53, "^HFREQINFO", HfreqInfoReportCallback) \
    REPORT(54, "^WAKEUPIN", wakeupin_report_callback) \
    REPORT(55, "^NDISSTATEX", ndisstatex_report_callback) \
    REPORT(56, "XLEMA", nullptr) \
    REPORT(77, "^NDISSTAT", ndisstat_report_callback) \
    REPORT(VLK_REPORT_REJINFO, "^REJINFO", rejinfo_report_callback) \
    REPORT(57, "^PLMN", plmn_report_callback) \
    REPORT(78, "^MMIENTER", mmi_enter_report_callback) \
    REPORT(79, "^CCALLSTATE", nullptr) \
    REPORT(80, "^EXSIMST", exsimst_report_callback) \
    REPORT(94, "^IMSIREFRESH", nullptr) \
    REPORT(87, "IRING", nullptr) \
    REPORT(88, "^CCWA", nullptr) \
    REPORT(91, "^CSCHANNELINFO", nullptr) \
    REPORT(92, "^LCACELLURC", ltecacell_report_callback) \
    REPORT(76, "^SIMREFRESH", sim_refresh_report_callback) \
    REPORT(76, "^SIMREFRESH", ovel_hook_vlk_report_sim_refresh) \
    REPORT(104, "^CPBREADY", CpbReadyReportCallback) \
    REPORT(106, "^LENDC", LendcReportCallback) \
    REPORT(109, "^NETSCAN", NetScanReportCallback) \
    REPORT(110, "^RRCSTAT", RrcStateReportCallback) \
    REPORT(111, "^REPORTLINERPLMN", LineRplmnReportCallback) \
    REPORT(112, "^REPORTLINEINDEX", LineIndexReportCallback) \
    REPORT(113, "^HSRCELLINFO", LineCellInfoCallback) \
    REPORT(115, "^CSERSSI", CseRssiReportCallback)
// clang-format on

#define VLK_REPORT_NAME(id, name, handler) name,
inline constexpr std::string_view VLK_REPORT_PREFIXES[] = {VLK_REPORT_ROWS_IN_ORDER(VLK_REPORT_NAME)};
#undef VLK_REPORT_NAME

/// Whether the name of any report occurs anywhere in the text.
constexpr bool vlk_holds_report_name(std::string_view text)
{
    for (const std::string_view name : VLK_REPORT_PREFIXES)
        if (text.find(name) != text.npos)
            return true;
    return false;
}

#endif

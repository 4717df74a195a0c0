// The table of unsolicited result codes. Here, and not in a source file, for what is built from it at compile time.
#ifndef REPORT_TABLE_H
#define REPORT_TABLE_H

#include <algorithm>
#include <array>
#include <string_view>

#include "custom/ovel/ovel_common_vlk_report_callback.h"
#include "report_callbacks.h"
#include "report_targets.h"
#include "vlk_report_table.h"

/// The rows in the order in which they are searched, and the row that ends them.
inline constexpr std::array<vlk_report_row, VLK_REPORT_ROWS + 1> vlk_report_table = {{
    {REPORT_CMTI, "+CMTI", sms_index_report_callback},
    {REPORT_CMT, "+CMT", sms_content_report_callback},
    {REPORT_CDSI, "+CDSI", sms_index_report_callback},
    {REPORT_CDS, "+CDS", sms_content_report_callback},
    {REPORT_CBM, "+CBM", sms_content_report_callback},
    {5, "^SMMEMFULL", sms_mem_full_report_callback},
    {6, "RING", nullptr},
    {7, "CONNECT", nullptr},
    {8, "+CLIP", nullptr},
    {9, "^SRVST", redirect_noservice_report_callback},
    {REPORT_SIMST, "^SIMST", simst_report_callback},
    {11, "^MODE", mode_report_callback},
    {12, "^RSSI", rssi_report_callback},
    {13, "^DSFLOWRPT", dsflow_report_callback},
    {14, "+CREG", network_report_callback},
    {15, "^CEND", nullptr},
    {16, "^CONN", nullptr},
    {17, "^CONF", nullptr},
    {18, "^ORIG", nullptr},
    {19, "^ECLSTAT", nullptr},
    {20, "^EARST", nullptr},
    {21, "+CCWA", nullptr},
    {22, "+CSSI", cssi_report_callback},
    {23, "+CSSU", cssu_report_callback},
    {24, "+COLP", nullptr},
    {25, "+CUSD", cusd_report_callback},
    {26, "^DCONN", dconn_report_callback},
    {27, "^DEND", dend_report_callback},
    {28, "^APDIALUPRPT", apdialup_report_callback},
    {29, "^APDHCP", nullptr},
    {30, "^APDIALM", nullptr},
    {31, "^APCURPROF", nullptr},
    {32, "^APPROFRD", nullptr},
    {33, "^APWIFIBS", nullptr},
    {34, "^APWIFISEC", nullptr},
    {35, "+CGREG", network_report_callback},
    {108, "+C5GREG", NrNetworkReportCallback},
    {36, "^TIME", nullptr},
    {37, "^NWTIME", net_time_report_callback},
    {38, "+CTZV", nullptr},
    {39, "^FACTORY", factory_report_callback},
    {40, "^APROAMRPT", aproaming_report_callback},
    {41, "^CARDLOCKNTY", nullptr},
    {REPORT_HCMGSS, "^HCMGSS", sms_hcmgss_report_callback},
    {REPORT_HCMGSF, "^HCMGSF", sms_hcmgsf_report_callback},
    {44, "^ANLEVEL", anelvel_report_callback},
    {45, "^NORSTFACT", norstfact_report_callback},
    {46, "^TEMPPRT", tempprt_report_callback},
    {47, "^STIN", stin_report_callback},
    {50, "^HCSQ", hcsq_report_callback},
    {101, "^CERSSI", cerssi_report_callback},
    {51, "^EONS", net_eons_report_callback},
    {52, "^LTESIGLEV", ltesiglev_report_callback},
    {53, "^HFREQINFO", HfreqInfoReportCallback},
    {54, "^WAKEUPIN", wakeupin_report_callback},
    {55, "^NDISSTATEX", ndisstatex_report_callback},
    {56, "XLEMA", nullptr},
    {77, "^NDISSTAT", ndisstat_report_callback},
    {REPORT_REJINFO, "^REJINFO", rejinfo_report_callback},
    {57, "^PLMN", plmn_report_callback},
    {78, "^MMIENTER", mmi_enter_report_callback},
    {79, "^CCALLSTATE", nullptr},
    {80, "^EXSIMST", exsimst_report_callback},
    {94, "^IMSIREFRESH", nullptr},
    {87, "IRING", nullptr},
    {88, "^CCWA", nullptr},
    {91, "^CSCHANNELINFO", nullptr},
    {92, "^LCACELLURC", ltecacell_report_callback},
    {76, "^SIMREFRESH", sim_refresh_report_callback},
    {76, "^SIMREFRESH", ovel_hook_vlk_report_sim_refresh}, // never chosen: the row above runs the hook last
    {104, "^CPBREADY", CpbReadyReportCallback},
    {106, "^LENDC", LendcReportCallback},
    {109, "^NETSCAN", NetScanReportCallback},
    {110, "^RRCSTAT", RrcStateReportCallback},
    {111, "^REPORTLINERPLMN", LineRplmnReportCallback},
    {112, "^REPORTLINEINDEX", LineIndexReportCallback},
    {113, "^HSRCELLINFO", LineCellInfoCallback},
    {115, "^CSERSSI", CseRssiReportCallback},
    {123, nullptr, nullptr},
}};

namespace report_table_check
{

/// The pairs of an earlier and a later row that may have a hidden prefix, because nothing is lost by it.
constexpr bool may_hide(std::string_view earlier, std::string_view later)
{
    return (earlier == "RING" && later == "IRING") || (earlier == "^SIMREFRESH" && later == "^SIMREFRESH");
}

/// A row whose prefix occurs in a later row's prefix takes every line of the later row.
constexpr bool later_rows_are_reached()
{
    for (std::size_t later = 1; later < VLK_REPORT_ROWS; ++later) {
        const std::string_view prefix = vlk_report_table[later].prefix;
        for (std::size_t earlier = 0; earlier < later; ++earlier) {
            const std::string_view hiding = vlk_report_table[earlier].prefix;
            if (prefix.find(hiding) != std::string_view::npos && !may_hide(hiding, prefix))
                return false;
        }
    }
    return true;
}

constexpr bool ends_the_table(const vlk_report_row &row)
{
    return row.prefix == nullptr;
}

static_assert(VLK_REPORT_ROWS == 78);
static_assert(std::none_of(vlk_report_table.begin(), vlk_report_table.end() - 1, ends_the_table));
static_assert(ends_the_table(vlk_report_table.back()) && vlk_report_table.back().id == 123 &&
              vlk_report_table.back().callback == nullptr);
static_assert(later_rows_are_reached());

} // namespace report_table_check

#endif

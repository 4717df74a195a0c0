// Every record that leaves the process for another service: plain, little-endian as the processor is, no header. A
// record is zeroed before it is filled, so what no field of the report sets travels as 0. Texts are terminated.
#ifndef PAYLOADS_H
#define PAYLOADS_H

#include <cstddef>
#include <cstdint>

// ---- registration.cpp

/// ^MODE: the system mode; ^SRVST: the service status. To bus "dialup", MSG_NETWORK_STATE.
struct dialup_state_word {
    int32_t state;
};
static_assert(sizeof(dialup_state_word) == 4);

/// +CREG, +CGREG, +C5GREG: field ci as the report carried it. To module 18, EVT_CELL_IDENTITY.
struct cell_identity_text {
    char ci[32];
};
static_assert(sizeof(cell_identity_text) == 32);

/// ^RRCSTAT. To module 19, EVT_RRC_STATE.
struct rrcstat_record {
    uint32_t type; ///< 1
    int32_t state;
    int32_t reserved;
};
static_assert(sizeof(rrcstat_record) == 12);
static_assert(offsetof(rrcstat_record, type) == 0);
static_assert(offsetof(rrcstat_record, state) == 4);
static_assert(offsetof(rrcstat_record, reserved) == 8);

/// ^LENDC. To bus "lpm", MSG_ENDC, and as the head of lendc_record.
struct endc_message {
    uint32_t type; ///< 1
    int32_t endc_available;
    int32_t endc_plmn_available;
    int32_t endc_restricted;
    int32_t nr_pscell;
};
static_assert(sizeof(endc_message) == 20);
static_assert(offsetof(endc_message, type) == 0);
static_assert(offsetof(endc_message, endc_available) == 4);
static_assert(offsetof(endc_message, endc_plmn_available) == 8);
static_assert(offsetof(endc_message, endc_restricted) == 12);
static_assert(offsetof(endc_message, nr_pscell) == 16);

/// ^LENDC. To module 19, EVT_ENDC.
struct lendc_record {
    endc_message endc;
    int32_t reserved;
};
static_assert(sizeof(lendc_record) == 24);
static_assert(offsetof(lendc_record, endc) == 0);
static_assert(offsetof(lendc_record, reserved) == 20);

// ---- operator_identity.cpp

/// ^REJINFO. To modules 19 and 106, EVT_REJECT.
struct rejinfo_record {
    uint32_t report_id; ///< REPORT_REJINFO
    char plmnid[64];
    int32_t srvdomain;
    int32_t rejectcause;
    int32_t rattype;
    int32_t rejectType;
    int32_t rejectOriginalCause;
    char rejectLac[8];
    char rejectRac[4];
    char rejectCellId[32];
    int32_t rejectEsmCause;
    uint8_t reserved[892];
};
static_assert(sizeof(rejinfo_record) == 1028);
static_assert(offsetof(rejinfo_record, report_id) == 0);
static_assert(offsetof(rejinfo_record, plmnid) == 4);
static_assert(offsetof(rejinfo_record, srvdomain) == 68);
static_assert(offsetof(rejinfo_record, rejectcause) == 72);
static_assert(offsetof(rejinfo_record, rattype) == 76);
static_assert(offsetof(rejinfo_record, rejectType) == 80);
static_assert(offsetof(rejinfo_record, rejectOriginalCause) == 84);
static_assert(offsetof(rejinfo_record, rejectLac) == 88);
static_assert(offsetof(rejinfo_record, rejectRac) == 96);
static_assert(offsetof(rejinfo_record, rejectCellId) == 100);
static_assert(offsetof(rejinfo_record, rejectEsmCause) == 132);
static_assert(offsetof(rejinfo_record, reserved) == 136);

/// ^NETSCAN. To module 7, EVT_NET_SCAN.
struct netscan_record {
    int32_t nr_rsrp; ///< field 5grsrp
    int32_t nr_snr;  ///< field 5grssnr
    int32_t reserved;
};
static_assert(sizeof(netscan_record) == 12);
static_assert(offsetof(netscan_record, nr_rsrp) == 0);
static_assert(offsetof(netscan_record, nr_snr) == 4);
static_assert(offsetof(netscan_record, reserved) == 8);

// ---- sim.cpp

/// ^SIMST. To module 6, EVT_SIM_STATE_PAIR, and as the tail of simst_record.
struct sim_state_pair {
    int32_t sim_state;
    int32_t lock_state;
};
static_assert(sizeof(sim_state_pair) == 8);
static_assert(offsetof(sim_state_pair, sim_state) == 0);
static_assert(offsetof(sim_state_pair, lock_state) == 4);

/// ^SIMST. To module 27, EVT_SIM_STATE.
struct simst_record {
    uint32_t report_id; ///< REPORT_SIMST
    sim_state_pair states;
};
static_assert(sizeof(simst_record) == 12);
static_assert(offsetof(simst_record, report_id) == 0);
static_assert(offsetof(simst_record, states) == 4);

// ---- device_events.cpp

/// The broken-down time of a 32-bit platform; its last five words stay 0.
struct nwtime_tm {
    int32_t tm_sec;
    int32_t tm_min;
    int32_t tm_hour;
    int32_t tm_mday;
    int32_t tm_mon;  ///< 1 to 12
    int32_t tm_year; ///< the full year
    int32_t tm_wday;
    int32_t tm_yday;
    int32_t tm_isdst;
    int32_t tm_gmtoff;
    int32_t tm_zone;
};
static_assert(sizeof(nwtime_tm) == 44);
static_assert(offsetof(nwtime_tm, tm_sec) == 0);
static_assert(offsetof(nwtime_tm, tm_min) == 4);
static_assert(offsetof(nwtime_tm, tm_hour) == 8);
static_assert(offsetof(nwtime_tm, tm_mday) == 12);
static_assert(offsetof(nwtime_tm, tm_mon) == 16);
static_assert(offsetof(nwtime_tm, tm_year) == 20);
static_assert(offsetof(nwtime_tm, tm_wday) == 24);
static_assert(offsetof(nwtime_tm, tm_yday) == 28);
static_assert(offsetof(nwtime_tm, tm_isdst) == 32);
static_assert(offsetof(nwtime_tm, tm_gmtoff) == 36);
static_assert(offsetof(nwtime_tm, tm_zone) == 40);

/// ^NWTIME. To module 9, EVT_NETWORK_TIME.
struct at_nwtime_info {
    nwtime_tm time_val;
    int32_t time_zone; ///< as the report gives it, usually quarters of an hour
    int32_t reserved;
};
static_assert(sizeof(at_nwtime_info) == 52);
static_assert(offsetof(at_nwtime_info, time_val) == 0);
static_assert(offsetof(at_nwtime_info, time_zone) == 44);
static_assert(offsetof(at_nwtime_info, reserved) == 48);

/// ^NORSTFACT. To module 74, EVT_FACTORY.
struct factory_reset_word {
    int32_t value; ///< 5
};
static_assert(sizeof(factory_reset_word) == 4);

// ---- signal_quality.cpp

/// ^CERSSI. To module 19, EVT_SIGNAL_DETAIL.
struct cerssi_record {
    int32_t reserved1[2];
    int32_t rssi;
    int32_t rscp;
    int32_t ecio;
    int32_t rsrp;
    int32_t rsrq;
    int32_t rssnr;
    int32_t ri;
    int32_t cqi0;
    int32_t cqi1;
    int32_t rfnum;
    int32_t rsrp1;
    int32_t rsrp2;
    int32_t rsrp3;
    int32_t rsrp4;
    int32_t sinr1;
    int32_t sinr2;
    int32_t sinr3;
    int32_t sinr4;
    int32_t reserved2;
};
static_assert(sizeof(cerssi_record) == 84);
static_assert(offsetof(cerssi_record, reserved1) == 0);
static_assert(offsetof(cerssi_record, rssi) == 8);
static_assert(offsetof(cerssi_record, rscp) == 12);
static_assert(offsetof(cerssi_record, ecio) == 16);
static_assert(offsetof(cerssi_record, rsrp) == 20);
static_assert(offsetof(cerssi_record, rsrq) == 24);
static_assert(offsetof(cerssi_record, rssnr) == 28);
static_assert(offsetof(cerssi_record, ri) == 32);
static_assert(offsetof(cerssi_record, cqi0) == 36);
static_assert(offsetof(cerssi_record, cqi1) == 40);
static_assert(offsetof(cerssi_record, rfnum) == 44);
static_assert(offsetof(cerssi_record, rsrp1) == 48);
static_assert(offsetof(cerssi_record, rsrp2) == 52);
static_assert(offsetof(cerssi_record, rsrp3) == 56);
static_assert(offsetof(cerssi_record, rsrp4) == 60);
static_assert(offsetof(cerssi_record, sinr1) == 64);
static_assert(offsetof(cerssi_record, sinr2) == 68);
static_assert(offsetof(cerssi_record, sinr3) == 72);
static_assert(offsetof(cerssi_record, sinr4) == 76);
static_assert(offsetof(cerssi_record, reserved2) == 80);

/// ^CERSSI. To bus "lpm", MSG_SIGNAL_LEVELS, and as the head of lpm_signal_record.
struct lpm_signal_levels {
    int32_t rssi;
    int32_t rscp;
    int32_t ecio;
    int32_t rsrp;
    int32_t rsrq;
    int32_t rssnr;
    int32_t ri;
};
static_assert(sizeof(lpm_signal_levels) == 28);
static_assert(offsetof(lpm_signal_levels, rssi) == 0);
static_assert(offsetof(lpm_signal_levels, rscp) == 4);
static_assert(offsetof(lpm_signal_levels, ecio) == 8);
static_assert(offsetof(lpm_signal_levels, rsrp) == 12);
static_assert(offsetof(lpm_signal_levels, rsrq) == 16);
static_assert(offsetof(lpm_signal_levels, rssnr) == 20);
static_assert(offsetof(lpm_signal_levels, ri) == 24);

/// ^CSERSSI. To bus "lpm", MSG_5G_SIGNAL_LEVELS.
struct lpm_signal_record {
    lpm_signal_levels levels; ///< all 0
    int32_t nr_rsrp;          ///< field 5grsrp
    int32_t nr_rsrq;          ///< field 5grsrq
    int32_t nr_snr;           ///< field 5grssnr
};
static_assert(sizeof(lpm_signal_record) == 40);
static_assert(offsetof(lpm_signal_record, levels) == 0);
static_assert(offsetof(lpm_signal_record, nr_rsrp) == 28);
static_assert(offsetof(lpm_signal_record, nr_rsrq) == 32);
static_assert(offsetof(lpm_signal_record, nr_snr) == 36);

/// ^HCSQ. To module 19, EVT_SIGNAL_QUALITY, and to bus "behavior", MSG_SIGNAL_QUALITY.
struct hcsq_record {
    int32_t sysmode; ///< code of the radio access technology, -1: no service
    int32_t value1;
    int32_t value2;
    int32_t value3;
    int32_t value4;
    int32_t value5;
};
static_assert(sizeof(hcsq_record) == 24);
static_assert(offsetof(hcsq_record, sysmode) == 0);
static_assert(offsetof(hcsq_record, value1) == 4);
static_assert(offsetof(hcsq_record, value2) == 8);
static_assert(offsetof(hcsq_record, value3) == 12);
static_assert(offsetof(hcsq_record, value4) == 16);
static_assert(offsetof(hcsq_record, value5) == 20);

// ---- cells.cpp

/// ^HSRCELLINFO. To module 103, EVT_SERVING_CELL.
struct cell_info_record {
    int32_t Rat;
    char cell_id[32];     ///< decimal text
    uint8_t HighSpeedFlg; ///< 0 or 1
    uint8_t padding[3];
    int32_t reserved;
    int32_t CellIdLowBit;
    int32_t CellIdHighBit;
};
static_assert(sizeof(cell_info_record) == 52);
static_assert(offsetof(cell_info_record, Rat) == 0);
static_assert(offsetof(cell_info_record, cell_id) == 4);
static_assert(offsetof(cell_info_record, HighSpeedFlg) == 36);
static_assert(offsetof(cell_info_record, padding) == 37);
static_assert(offsetof(cell_info_record, reserved) == 40);
static_assert(offsetof(cell_info_record, CellIdLowBit) == 44);
static_assert(offsetof(cell_info_record, CellIdHighBit) == 48);

/// Indexes that a line_index_record holds.
inline constexpr int32_t LINE_INDEX_LIMIT = 10;

/// ^REPORTLINEINDEX. To module 103, EVT_LINE_INDEX.
struct line_index_record {
    char first_field[9];
    uint8_t padding[3];
    int32_t indexList[LINE_INDEX_LIMIT];
    int32_t loop;     ///< entries of indexList that are set
    int32_t reserved; ///< -2
};
static_assert(sizeof(line_index_record) == 60);
static_assert(offsetof(line_index_record, first_field) == 0);
static_assert(offsetof(line_index_record, padding) == 9);
static_assert(offsetof(line_index_record, indexList) == 12);
static_assert(offsetof(line_index_record, loop) == 52);
static_assert(offsetof(line_index_record, reserved) == 56);

/// ^HFREQINFO. To bus "lpm", MSG_FREQUENCY.
struct hfreq_message {
    int32_t sysmode;
    int32_t band_class;
    int32_t dl_bw;
    int32_t ul_bw;
};
static_assert(sizeof(hfreq_message) == 16);
static_assert(offsetof(hfreq_message, sysmode) == 0);
static_assert(offsetof(hfreq_message, band_class) == 4);
static_assert(offsetof(hfreq_message, dl_bw) == 8);
static_assert(offsetof(hfreq_message, ul_bw) == 12);

// ---- data_connection.cpp

/// ^DSFLOWRPT. To module 18, EVT_FLOW.
struct dsflow_record {
    uint32_t curr_ds_time;
    uint32_t tx_rate;
    uint32_t rx_rate;
    uint32_t padding;
    uint64_t curr_tx_flow;
    uint64_t curr_rx_flow;
    uint32_t qos_tx_rate;
    uint32_t qos_rx_rate;
};
static_assert(sizeof(dsflow_record) == 40);
static_assert(offsetof(dsflow_record, curr_ds_time) == 0);
static_assert(offsetof(dsflow_record, tx_rate) == 4);
static_assert(offsetof(dsflow_record, rx_rate) == 8);
static_assert(offsetof(dsflow_record, padding) == 12);
static_assert(offsetof(dsflow_record, curr_tx_flow) == 16);
static_assert(offsetof(dsflow_record, curr_rx_flow) == 24);
static_assert(offsetof(dsflow_record, qos_tx_rate) == 32);
static_assert(offsetof(dsflow_record, qos_rx_rate) == 36);

/// ^DSFLOWRPT: the rates of this report. To bus "lpm", MSG_FLOW_RATES.
struct dsflow_rates {
    uint32_t tx_rate;
    uint32_t rx_rate;
};
static_assert(sizeof(dsflow_rates) == 8);
static_assert(offsetof(dsflow_rates, tx_rate) == 0);
static_assert(offsetof(dsflow_rates, rx_rate) == 4);

/// ^DSFLOWRPT: what the reports since the last such message came to. To bus "cms", MSG_FLOW_STATISTICS.
struct dsflow_stats {
    uint32_t peak_tx_rate;
    uint32_t peak_rx_rate;
    uint64_t curr_tx_flow; ///< of the latest report
    uint64_t curr_rx_flow; ///< of the latest report
};
static_assert(sizeof(dsflow_stats) == 24);
static_assert(offsetof(dsflow_stats, peak_tx_rate) == 0);
static_assert(offsetof(dsflow_stats, peak_rx_rate) == 4);
static_assert(offsetof(dsflow_stats, curr_tx_flow) == 8);
static_assert(offsetof(dsflow_stats, curr_rx_flow) == 16);

/// ^DCONN, ^DEND, ^NDISSTAT, ^NDISSTATEX. To bus "dialup", MSG_CONNECTED to MSG_DISCONNECTED_IPV6.
struct connection_message {
    int32_t cid;
    int32_t cause; ///< -1, or the modem's error code of a disconnection
};
static_assert(sizeof(connection_message) == 8);
static_assert(offsetof(connection_message, cid) == 0);
static_assert(offsetof(connection_message, cause) == 4);

// ---- sms.cpp

/// +CMTI, +CDSI. To module 1, EVT_SMS_ARRIVED.
struct sms_index_record {
    uint32_t report_id; ///< REPORT_CMTI or REPORT_CDSI
    char mem[16];
    int32_t index;
};
static_assert(sizeof(sms_index_record) == 24);
static_assert(offsetof(sms_index_record, report_id) == 0);
static_assert(offsetof(sms_index_record, mem) == 4);
static_assert(offsetof(sms_index_record, index) == 20);

/// +CMT, +CDS, +CBM. To module 1, EVT_SMS_ARRIVED. Packed: it ends in the middle of a word.
struct [[gnu::packed]] sms_content_record {
    uint32_t report_id; ///< REPORT_CMT, REPORT_CDS or REPORT_CBM
    uint16_t length;
    char pdu[512];
};
static_assert(sizeof(sms_content_record) == 518);
static_assert(offsetof(sms_content_record, report_id) == 0);
static_assert(offsetof(sms_content_record, length) == 4);
static_assert(offsetof(sms_content_record, pdu) == 6);

/// ^HCMGSS. To module 1, EVT_SMS_SEND_RESULT. As long as a message, and packed as one.
struct [[gnu::packed]] hcmgss_record {
    uint32_t report_id; ///< REPORT_HCMGSS
    int32_t mr;
    uint8_t reserved[510];
};
static_assert(sizeof(hcmgss_record) == 518);
static_assert(offsetof(hcmgss_record, report_id) == 0);
static_assert(offsetof(hcmgss_record, mr) == 4);
static_assert(offsetof(hcmgss_record, reserved) == 8);

/// ^HCMGSF. To module 1, EVT_SMS_SEND_RESULT.
struct hcmgsf_record {
    uint32_t report_id; ///< REPORT_HCMGSF
    int32_t errCode;
};
static_assert(sizeof(hcmgsf_record) == 8);
static_assert(offsetof(hcmgsf_record, report_id) == 0);
static_assert(offsetof(hcmgsf_record, errCode) == 4);

// ---- supplementary_services.cpp

/// +CUSD. To module 2, EVT_USSD.
struct cusd_record {
    int32_t rspType;
    char cusdStr[512];      ///< may hold NUL bytes
    int32_t cusdStr_length; ///< bytes of the field's value, more than cusdStr holds when it was too long
    int32_t codeType;
    int32_t reserved;
};
static_assert(sizeof(cusd_record) == 528);
static_assert(offsetof(cusd_record, rspType) == 0);
static_assert(offsetof(cusd_record, cusdStr) == 4);
static_assert(offsetof(cusd_record, cusdStr_length) == 516);
static_assert(offsetof(cusd_record, codeType) == 520);
static_assert(offsetof(cusd_record, reserved) == 524);

/// ^STIN. To module 33, EVT_TOOLKIT.
struct stin_record {
    uint8_t cmdTpye;
    uint8_t cmdIndex;
    uint8_t isTimeOut;
    uint8_t reserved[5];
};
static_assert(sizeof(stin_record) == 8);
static_assert(offsetof(stin_record, cmdTpye) == 0);
static_assert(offsetof(stin_record, cmdIndex) == 1);
static_assert(offsetof(stin_record, isTimeOut) == 2);
static_assert(offsetof(stin_record, reserved) == 3);

#endif

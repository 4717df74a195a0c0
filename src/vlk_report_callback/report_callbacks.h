// The handlers of unsolicited result codes, one for a report or a few of one kind. Each is a report_callback: it gets
// the terminated line and its length in bytes, parses it, notifies the services concerned and keeps nothing of it. A line
// that cannot be parsed is traced and nobody is notified. Main thread only.
#ifndef REPORT_CALLBACKS_H
#define REPORT_CALLBACKS_H

#include <cstdint>

// ---- registration.cpp

/// ^MODE: the system mode of the serving network changed.
/// Sends "dialup" the mode, and module 19 the mode and the sub-mode.
void mode_report_callback(char *line, int32_t length);

/// ^SRVST: the service status changed.
/// Sends "dialup" the status and notifies module 9 when service is back in full (2).
void redirect_noservice_report_callback(char *line, int32_t length);

/// +CREG, +CGREG: the circuit-switched or packet-switched registration changed.
/// Notifies module 106 (+CGREG only), "dialup", modules 19 and 9, and sends module 18 the cell identity.
void network_report_callback(char *line, int32_t length);

/// +C5GREG: the 5G registration changed.
/// Notifies the same services as +CGREG does, module 106 last.
void NrNetworkReportCallback(char *line, int32_t length);

/// ^APROAMRPT: the roaming status changed.
/// Notifies module 7 of home or roaming; nobody for any other status.
void aproaming_report_callback(char *line, int32_t length);

/// ^RRCSTAT: the radio resource control connection changed state.
/// Notifies module 19.
void RrcStateReportCallback(char *line, int32_t length);

/// ^LENDC: the availability of E-UTRA-NR dual connectivity changed.
/// Notifies module 19 and "lpm".
void LendcReportCallback(char *line, int32_t length);

// ---- operator_identity.cpp

/// ^PLMN: country code and network code of the serving network.
/// Only traced.
void plmn_report_callback(char *line, int32_t length);

/// ^REPORTLINERPLMN: the registered network as one decimal number.
/// Notifies module 103.
void LineRplmnReportCallback(char *line, int32_t length);

/// ^EONS: an operator name; its content is not read.
/// Notifies module 7.
void net_eons_report_callback(char *line, int32_t length);

/// ^REJINFO: the network rejected a registration.
/// Sends modules 19 and 106 every detail that the report has.
void rejinfo_report_callback(char *line, int32_t length);

/// ^NETSCAN: the signal figures of a 5G network scan.
/// Notifies module 7.
void NetScanReportCallback(char *line, int32_t length);

// ---- sim.cpp

/// ^SIMST: the SIM state or the SIM lock changed.
/// Notifies modules 27, 75 (unusable SIM), 1 (by the customer's hook), 19, 9, 6 and 4; writes to the maintenance log.
void simst_report_callback(char *line, int32_t length);

/// ^SIMREFRESH: the SIM asked for a refresh of its files.
/// Notifies modules 7, 1, 4 and 9, then runs the customer's hook with the same arguments.
void sim_refresh_report_callback(char *line, int32_t length);

/// ^EXSIMST: extended SIM state; not read.
/// Only traced.
void exsimst_report_callback(char *line, int32_t length);

/// ^CPBREADY: the phone book of the SIM is ready; not read.
/// Notifies module 9.
void CpbReadyReportCallback(char *line, int32_t length);

// ---- device_events.cpp

/// ^WAKEUPIN: the level of the modem's wake-up input.
/// Notifies module 55.
void wakeupin_report_callback(char *line, int32_t length);

/// ^TEMPPRT: a temperature protection event.
/// Sends module 9 the event and its parameter.
void tempprt_report_callback(char *line, int32_t length);

/// ^FACTORY: the modem asks for the factory settings; not read.
/// Writes to the maintenance log and notifies module 9.
void factory_report_callback(char *line, int32_t length);

/// ^NORSTFACT: the modem asks for the factory settings without a reboot; not read.
/// Writes to standard output and the maintenance log, and notifies module 74.
void norstfact_report_callback(char *line, int32_t length);

/// ^MMIENTER: not read.
/// Passed on to "cms".
void mmi_enter_report_callback(char *line, int32_t length);

/// ^NWTIME: date, time and time zone of the network.
/// Notifies module 9.
void net_time_report_callback(char *line, int32_t length);

// ---- signal_quality.cpp

/// ^ANLEVEL: the signal level as bars.
/// Notifies module 19.
void anelvel_report_callback(char *line, int32_t length);

/// ^CERSSI: signal figures in detail. Refuses a negative length.
/// Sends module 19 everything and "lpm" the first seven.
void cerssi_report_callback(char *line, int32_t length);

/// ^CSERSSI: signal figures of the 5G cell. Refuses a length of 0 or less.
/// Notifies "lpm".
void CseRssiReportCallback(char *line, int32_t length);

/// ^HCSQ: radio access technology and signal quality. Refuses a negative length.
/// Notifies module 19 and "behavior".
void hcsq_report_callback(char *line, int32_t length);

/// ^LTESIGLEV: the signal level of LTE.
/// Only traced.
void ltesiglev_report_callback(char *line, int32_t length);

/// ^RSSI: the signal strength.
/// Stores the line in g_rssiReportBuf for clients that ask; notifies nobody.
void rssi_report_callback(char *line, int32_t length);

// ---- cells.cpp

/// ^HSRCELLINFO: identity of the serving cell and a high-speed flag.
/// Notifies module 103, nobody when the flag is neither 0 nor 1.
void LineCellInfoCallback(char *line, int32_t length);

/// ^REPORTLINEINDEX: a text and up to ten line indexes.
/// Notifies module 103, nobody when the text has 9 characters or more.
void LineIndexReportCallback(char *line, int32_t length);

/// ^HFREQINFO: band, channels and bandwidths of the serving cell.
/// Notifies "lpm".
void HfreqInfoReportCallback(char *line, int32_t length);

/// ^LCACELLURC: LTE carrier aggregation changed; not read.
/// Notifies module 19.
void ltecacell_report_callback(char *line, int32_t length);

// ---- data_connection.cpp

/// ^DSFLOWRPT: traffic of the data connection.
/// Notifies module 18 and "lpm"; every tenth call also sends "cms" peak rates and totals, kept from call to call.
void dsflow_report_callback(char *line, int32_t length);

/// ^DCONN: a PDP context came up.
/// Notifies "dialup".
void dconn_report_callback(char *line, int32_t length);

/// ^DEND: a PDP context went down.
/// Notifies "dialup".
void dend_report_callback(char *line, int32_t length);

/// ^NDISSTAT: the context of the network interface, number 1, came up or went down.
/// Notifies "dialup", nobody for any other state.
void ndisstat_report_callback(char *line, int32_t length);

/// ^NDISSTATEX: as ^NDISSTAT, for the context that the report names.
/// Notifies "dialup", nobody for any other state.
void ndisstatex_report_callback(char *line, int32_t length);

/// ^APDIALUPRPT: parsed only to trace what is wrong with it.
/// Notifies nobody.
void apdialup_report_callback(char *line, int32_t length);

// ---- sms.cpp

/// +CMTI, +CDSI: a message or a status report was stored.
/// Sends module 1 the memory and the index.
void sms_index_report_callback(char *line, int32_t length);

/// +CMT, +CDS, +CBM: a message, a status report or a cell broadcast itself.
/// Sends module 1 the length and the PDU.
void sms_content_report_callback(char *line, int32_t length);

/// ^HCMGSS: a message was sent.
/// Sends module 1 its reference.
void sms_hcmgss_report_callback(char *line, int32_t length);

/// ^HCMGSF: a message could not be sent.
/// Sends module 1 the error code.
void sms_hcmgsf_report_callback(char *line, int32_t length);

/// ^SMMEMFULL: a message memory is full.
/// Notifies module 1 when it is the SIM's.
void sms_mem_full_report_callback(char *line, int32_t length);

// ---- supplementary_services.cpp

/// +CUSD: a USSD text, which may hold NUL bytes. The line has length + 1 bytes at least; NULs in it become CR.
/// Notifies module 2.
void cusd_report_callback(char *line, int32_t length);

/// ^STIN: a SIM toolkit command.
/// Notifies module 33.
void stin_report_callback(char *line, int32_t length);

/// +CSSU: a supplementary service notification, received side.
/// Notifies nobody.
void cssu_report_callback(char *line, int32_t length);

/// +CSSI: a supplementary service notification, originating side.
/// Notifies nobody.
void cssi_report_callback(char *line, int32_t length);

#endif

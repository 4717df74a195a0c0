// Whom reports are told to, and under which number: modules and events of the notify service, names and message
// types of the message bus, report ids that travel in a payload. vlk_report_callback/payloads.h has the payloads.
#ifndef REPORT_TARGETS_H
#define REPORT_TARGETS_H

#include <cstdint>

/// Ids of the table's rows that travel as the first word of a payload.
enum report_id : uint32_t {
    REPORT_CMTI = 0,
    REPORT_CMT = 1,
    REPORT_CDSI = 2,
    REPORT_CDS = 3,
    REPORT_CBM = 4,
    REPORT_SIMST = 10,
    REPORT_HCMGSS = 42,
    REPORT_HCMGSF = 43,
    REPORT_REJINFO = 59
};

/// Modules of the notify service. Those that have no name here are called by their number.
enum module_id : int32_t {
    RUT_MDL_SMS = 1,
    RUT_MDL_USSD = 2,
    RUT_MDL_DIALUP = 4,
    RUT_MDL_6 = 6,
    RUT_MDL_NET = 7,
    RUT_MDL_DEVICE = 9,
    RUT_MDL_STATISTICS = 18,
    RUT_MDL_RADIO = 19,
    RUT_MDL_27 = 27,
    RUT_MDL_TOOLKIT = 33,
    RUT_MDL_M2MAPI = 55,
    RUT_MDL_FACTORY_RESET = 74,
    RUT_MDL_75 = 75,
    RUT_MDL_CELL = 103,
    RUT_MDL_REGISTRATION = 106
};

/// Events of the notify service: the receiver, then the two values or the payload. Most are numbered from the
/// module's id times 1000; those that are not are meant so.
enum event_id : int32_t {
    EVT_SMS_MEMORY_FULL = 1001,  ///< sms: no data
    EVT_SMS_ARRIVED = 1008,      ///< sms: sms_index_record or sms_content_record, told apart by the report id
    EVT_SMS_SEND_RESULT = 1010,  ///< sms: hcmgss_record or hcmgsf_record, told apart by the report id
    EVT_SMS_SIM_REFRESH = 1022,  ///< sms: 0, 0
    EVT_SMS_IMSI_CHANGE = 1023,  ///< sms: 0, 0
    EVT_USSD = 2003,             ///< module 2: cusd_record
    EVT_NETWORK_TIME = 4047,     ///< device: at_nwtime_info
    EVT_DIALUP_SIM_STATE = 4082, ///< dialup: sim_state, lock_state
    EVT_DIALUP_SIM_REFRESH = 4110,      ///< dialup: 0, 0
    EVT_SIM_STATE_PAIR = 6001,          ///< module 6: sim_state_pair
    EVT_NET_HOME = 7012,                ///< net: 0, 0
    EVT_NET_ROAMING = 7013,             ///< net: 0, 0
    EVT_NET_EONS = 7022,                ///< net: 0, 0
    EVT_NET_SIM_REFRESH = 7044,         ///< net: file_type, 0
    EVT_NET_SCAN = 7056,                ///< net: netscan_record
    EVT_FACTORY = 9004,                 ///< device: 1, 0; module 74: factory_reset_word
    EVT_DEVICE_SIM_STATE = 9010,        ///< device: sim_state, lock_state
    EVT_DEVICE_SERVICE = 9040,          ///< device: 0, 0
    EVT_DEVICE_REGISTRATION = 9055,     ///< device: 0, 0
    EVT_DEVICE_SIM_REFRESH = 9058,      ///< device: 0, 0
    EVT_DEVICE_PHONE_BOOK_READY = 9059, ///< device: 0, 0
    EVT_SIM_UNUSABLE = 16052,           ///< module 75: 0, 0
    EVT_FLOW = 18002,                   ///< module 18: dsflow_record
    EVT_CELL_IDENTITY = 18034,          ///< module 18: cell_identity_text
    EVT_SYSTEM_MODE = 19005,       ///< module 19: sys_mode, sys_submode; 0, 0 for a cell aggregation report
    EVT_RADIO_SIM_STATE = 19007,   ///< module 19: sim_state, lock_state
    EVT_REGISTRATION = 19008,      ///< module 19: 0, 0
    EVT_SIGNAL_LEVEL = 19011,      ///< module 19: level, 0
    EVT_SIGNAL_QUALITY = 19016,    ///< module 19: hcsq_record
    EVT_SIGNAL_DETAIL = 19034,     ///< module 19: cerssi_record
    EVT_REGISTRATION_CELL = 19035, ///< module 19: 0, 0
    EVT_ENDC = 19036,              ///< module 19: lendc_record
    EVT_RRC_STATE = 19039,         ///< module 19: rrcstat_record
    EVT_SIM_STATE = 27003,         ///< module 27: simst_record
    EVT_AT_MACHINE_TEMP = 31000,   ///< device: tempprotect_event, tempprotect_param
    EVT_REJECT = 31007,            ///< modules 19 and 106: rejinfo_record
    EVT_TOOLKIT = 33001,           ///< module 33: stin_record
    EVT_WAKEUP_INPUT = 55013,      ///< module 55: value, -1
    EVT_RPLMN = 103001,            ///< module 103: plmn, 0
    EVT_LINE_INDEX = 103002,       ///< module 103: line_index_record
    EVT_SERVING_CELL = 103003,     ///< module 103: cell_info_record
    EVT_PS_REGISTRATION_STATE = 106000, ///< module 106: stat, 0
    EVT_5GS_REGISTRATION_STATE = 106001 ///< module 106: stat, 0
};

/// Services of the message bus.
inline constexpr char BUS_DIALUP[] = "dialup";
inline constexpr char BUS_LPM[] = "lpm";
inline constexpr char BUS_CMS[] = "cms";
inline constexpr char BUS_BEHAVIOR[] = "behavior";

/// Message types of the bus: the receiver, then the payload.
enum bus_message : uint32_t {
    MSG_FLOW_STATISTICS = 34843,    ///< cms: dsflow_stats
    MSG_MMI_ENTER = 34844,          ///< cms: no data
    MSG_FLOW_RATES = 91393,         ///< lpm: dsflow_rates
    MSG_FREQUENCY = 91394,          ///< lpm: hfreq_message
    MSG_SIGNAL_LEVELS = 91395,      ///< lpm: lpm_signal_levels
    MSG_5G_SIGNAL_LEVELS = 91396,   ///< lpm: lpm_signal_record
    MSG_ENDC = 91397,               ///< lpm: endc_message
    MSG_CONNECTED = 166657,         ///< dialup: connection_message, not IPv6
    MSG_DISCONNECTED = 166658,      ///< dialup: connection_message, not IPv6
    MSG_CONNECTED_IPV6 = 166659,    ///< dialup: connection_message
    MSG_DISCONNECTED_IPV6 = 166660, ///< dialup: connection_message
    MSG_NETWORK_STATE = 166661,     ///< dialup: dialup_state_word, or no data for a registration report
    MSG_SIGNAL_QUALITY = 188943     ///< behavior: hcsq_record
};

#endif

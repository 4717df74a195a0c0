/* What the daemon sends to other services when the modem reports something by itself: to whom, under which number and
 * with which record. docs/reports.md says which report leads to what. C and C++.
 *
 * A record is plain, in the processor's byte order (little-endian), without a header. Texts are terminated. What the
 * report does not carry is 0, and so is everything reserved, unless noted. A service reads the data of a packet as
 * the record that stands beside its event or message type:
 *
 *     if (packet.module == VLK_MODULE_RADIO && packet.code == VLK_EVT_SIGNAL_QUALITY &&
 *         packet.length == sizeof(struct vlk_hcsq)) {
 *         const struct vlk_hcsq *quality = packet.data;
 */
#ifndef VLK_REPORTS_H
#define VLK_REPORTS_H

#include <stdint.h>

/* ---- Numbers */

/* Ids of reports that travel in a record, as its first word. */
enum vlk_report_id {
    VLK_REPORT_CMTI = 0,
    VLK_REPORT_CMT = 1,
    VLK_REPORT_CDSI = 2,
    VLK_REPORT_CDS = 3,
    VLK_REPORT_CBM = 4,
    VLK_REPORT_SIMST = 10,
    VLK_REPORT_HCMGSS = 42,
    VLK_REPORT_HCMGSF = 43,
    VLK_REPORT_REJINFO = 59
};

/* Modules: the receivers of events. Those without a name are called by their number. */
enum vlk_module {
    VLK_MODULE_SMS = 1,
    VLK_MODULE_USSD = 2,
    VLK_MODULE_DIALUP = 4,
    VLK_MODULE_6 = 6,
    VLK_MODULE_NET = 7,
    VLK_MODULE_DEVICE = 9,
    VLK_MODULE_STATISTICS = 18,
    VLK_MODULE_RADIO = 19,
    VLK_MODULE_27 = 27,
    VLK_MODULE_TOOLKIT = 33,
    VLK_MODULE_M2MAPI = 55,
    VLK_MODULE_FACTORY_RESET = 74,
    VLK_MODULE_75 = 75,
    VLK_MODULE_CELL = 103,
    VLK_MODULE_REGISTRATION = 106
};

/* Events: the receiver, then the record or the two values. Most numbers begin at a thousand times the
 * receiver's number; the exceptions are intended. */
enum vlk_event {
    VLK_EVT_SMS_MEMORY_FULL = 1001,     /* sms: no data */
    VLK_EVT_SMS_ARRIVED = 1008,         /* sms: vlk_sms_index or vlk_sms_content, told apart by report_id */
    VLK_EVT_SMS_SEND_RESULT = 1010,     /* sms: vlk_hcmgss or vlk_hcmgsf, told apart by report_id */
    VLK_EVT_SMS_SIM_REFRESH = 1022,     /* sms: 0, 0 */
    VLK_EVT_SMS_IMSI_CHANGE = 1023,     /* sms: 0, 0 */
    VLK_EVT_USSD = 2003,                /* USSD: vlk_cusd */
    VLK_EVT_NETWORK_TIME = 4047,        /* device: vlk_nwtime */
    VLK_EVT_DIALUP_SIM_STATE = 4082,    /* dialup: sim_state, lock_state */
    VLK_EVT_DIALUP_SIM_REFRESH = 4110,  /* dialup: 0, 0 */
    VLK_EVT_SIM_STATE_PAIR = 6001,      /* module 6: vlk_sim_states */
    VLK_EVT_NET_HOME = 7012,            /* net: 0, 0 */
    VLK_EVT_NET_ROAMING = 7013,         /* net: 0, 0 */
    VLK_EVT_NET_EONS = 7022,            /* net: 0, 0 */
    VLK_EVT_NET_SIM_REFRESH = 7044,     /* net: file_type, 0 */
    VLK_EVT_NET_SCAN = 7056,            /* net: vlk_netscan */
    VLK_EVT_FACTORY = 9004,             /* device: 1, 0; factory reset: vlk_factory_reset */
    VLK_EVT_DEVICE_SIM_STATE = 9010,    /* device: sim_state, lock_state */
    VLK_EVT_DEVICE_SERVICE = 9040,      /* device: 0, 0 */
    VLK_EVT_DEVICE_REGISTRATION = 9055, /* device: 0, 0 */
    VLK_EVT_DEVICE_SIM_REFRESH = 9058,  /* device: 0, 0 */
    VLK_EVT_DEVICE_PHONE_BOOK_READY = 9059, /* device: 0, 0 */
    VLK_EVT_SIM_UNUSABLE = 16052,           /* module 75: 0, 0 */
    VLK_EVT_FLOW = 18002,                   /* statistics: vlk_dsflow */
    VLK_EVT_CELL_IDENTITY = 18034,          /* statistics: vlk_cell_identity */
    VLK_EVT_SYSTEM_MODE = 19005,            /* radio: sys_mode, sys_submode; 0, 0 for carrier aggregation */
    VLK_EVT_RADIO_SIM_STATE = 19007,        /* radio: sim_state, lock_state */
    VLK_EVT_REGISTRATION = 19008,           /* radio: 0, 0 */
    VLK_EVT_SIGNAL_LEVEL = 19011,           /* radio: level, 0 */
    VLK_EVT_SIGNAL_QUALITY = 19016,         /* radio: vlk_hcsq */
    VLK_EVT_SIGNAL_DETAIL = 19034,          /* radio: vlk_cerssi */
    VLK_EVT_REGISTRATION_CELL = 19035,      /* radio: 0, 0 */
    VLK_EVT_ENDC = 19036,                   /* radio: vlk_lendc */
    VLK_EVT_RRC_STATE = 19039,              /* radio: vlk_rrcstat */
    VLK_EVT_SIM_STATE = 27003,              /* module 27: vlk_simst */
    VLK_EVT_AT_MACHINE_TEMP = 31000,        /* device: tempprotect_event, tempprotect_param */
    VLK_EVT_REJECT = 31007,                 /* radio, registration: vlk_rejinfo */
    VLK_EVT_TOOLKIT = 33001,                /* SIM toolkit: vlk_stin */
    VLK_EVT_WAKEUP_INPUT = 55013,           /* M2MAPI: value, -1 */
    VLK_EVT_RPLMN = 103001,                 /* cell: plmn, 0 */
    VLK_EVT_LINE_INDEX = 103002,            /* cell: vlk_line_index */
    VLK_EVT_SERVING_CELL = 103003,          /* cell: vlk_hsrcellinfo */
    VLK_EVT_PS_REGISTRATION_STATE = 106000, /* registration: stat, 0 */
    VLK_EVT_5GS_REGISTRATION_STATE = 106001 /* registration: stat, 0 */
};

/* Names of the message bus: the receivers of messages. */
#define VLK_BUS_DIALUP   "dialup"
#define VLK_BUS_LPM      "lpm"
#define VLK_BUS_CMS      "cms"
#define VLK_BUS_BEHAVIOR "behavior"

/* Message types of the bus: the receiver, then the record. */
enum vlk_message {
    VLK_MSG_DATACARD_INSERTED = 34820,  /* cms: vlk_parameter 0; the daemon's own, once the modem is ready */
    VLK_MSG_FLOW_STATISTICS = 34843,    /* cms: vlk_dsflow_stats */
    VLK_MSG_MMI_ENTER = 34844,          /* cms: no data */
    VLK_MSG_FLOW_RATES = 91393,         /* lpm: vlk_dsflow_rates */
    VLK_MSG_FREQUENCY = 91394,          /* lpm: vlk_hfreqinfo */
    VLK_MSG_SIGNAL_LEVELS = 91395,      /* lpm: vlk_signal_levels */
    VLK_MSG_5G_SIGNAL_LEVELS = 91396,   /* lpm: vlk_cserssi */
    VLK_MSG_ENDC = 91397,               /* lpm: vlk_endc */
    VLK_MSG_CONNECTED = 166657,         /* dialup: vlk_connection, not IPv6 */
    VLK_MSG_DISCONNECTED = 166658,      /* dialup: vlk_connection, not IPv6 */
    VLK_MSG_CONNECTED_IPV6 = 166659,    /* dialup: vlk_connection */
    VLK_MSG_DISCONNECTED_IPV6 = 166660, /* dialup: vlk_connection */
    VLK_MSG_NETWORK_STATE = 166661,     /* dialup: vlk_network_state, or no data for a registration report */
    VLK_MSG_SIGNAL_QUALITY = 188943     /* behavior: vlk_hcsq */
};

/* ---- Records */

#ifdef __cplusplus
/* No gaps either: a member's offset follows from the members in front of it. */
#define VLK_RECORD_SIZE(record, bytes)                                                                       \
    static_assert(sizeof(record) == (bytes) && __has_unique_object_representations(record), #record)
#else
#define VLK_RECORD_SIZE(record, bytes) _Static_assert(sizeof(struct record) == (bytes), #record)
#endif

/* The daemon is ready. */
struct vlk_parameter {
    int32_t parameter; /* 0 */
};
VLK_RECORD_SIZE(vlk_parameter, 4);

/* ^MODE: the system mode; ^SRVST: the service status. */
struct vlk_network_state {
    int32_t state;
};
VLK_RECORD_SIZE(vlk_network_state, 4);

/* +CREG, +CGREG, +C5GREG: field ci as the report carried it. */
struct vlk_cell_identity {
    char ci[32];
};
VLK_RECORD_SIZE(vlk_cell_identity, 32);

/* ^RRCSTAT */
struct vlk_rrcstat {
    uint32_t type; /* 1 */
    int32_t state;
    int32_t reserved;
};
VLK_RECORD_SIZE(vlk_rrcstat, 12);

/* ^LENDC, and the head of vlk_lendc. */
struct vlk_endc {
    uint32_t type; /* 1 */
    int32_t endc_available;
    int32_t endc_plmn_available;
    int32_t endc_restricted;
    int32_t nr_pscell;
};
VLK_RECORD_SIZE(vlk_endc, 20);

/* ^LENDC */
struct vlk_lendc {
    struct vlk_endc endc;
    int32_t reserved;
};
VLK_RECORD_SIZE(vlk_lendc, 24);

/* ^REJINFO */
struct vlk_rejinfo {
    uint32_t report_id; /* VLK_REPORT_REJINFO */
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
VLK_RECORD_SIZE(vlk_rejinfo, 1028);

/* ^NETSCAN */
struct vlk_netscan {
    int32_t nr_rsrp; /* field 5grsrp */
    int32_t nr_snr;  /* field 5grssnr */
    int32_t reserved;
};
VLK_RECORD_SIZE(vlk_netscan, 12);

/* ^SIMST, and the tail of vlk_simst. */
struct vlk_sim_states {
    int32_t sim_state;
    int32_t lock_state;
};
VLK_RECORD_SIZE(vlk_sim_states, 8);

/* ^SIMST */
struct vlk_simst {
    uint32_t report_id; /* VLK_REPORT_SIMST */
    struct vlk_sim_states states;
};
VLK_RECORD_SIZE(vlk_simst, 12);

/* ^NWTIME */
struct vlk_nwtime {
    int32_t second;
    int32_t minute;
    int32_t hour;
    int32_t day;
    int32_t month;     /* 1 to 12 */
    int32_t year;      /* in full */
    int32_t unused[5]; /* 0: the rest of a 32-bit struct tm */
    int32_t time_zone; /* as the report gives it, usually quarters of an hour */
    int32_t reserved;
};
VLK_RECORD_SIZE(vlk_nwtime, 52);

/* ^NORSTFACT */
struct vlk_factory_reset {
    int32_t value; /* 5 */
};
VLK_RECORD_SIZE(vlk_factory_reset, 4);

/* ^CERSSI */
struct vlk_cerssi {
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
VLK_RECORD_SIZE(vlk_cerssi, 84);

/* ^CERSSI, and the head of vlk_cserssi. */
struct vlk_signal_levels {
    int32_t rssi, rscp, ecio, rsrp, rsrq, rssnr, ri; /* as in vlk_cerssi */
};
VLK_RECORD_SIZE(vlk_signal_levels, 28);

/* ^CSERSSI */
struct vlk_cserssi {
    struct vlk_signal_levels levels; /* all 0 */
    int32_t nr_rsrp;                 /* field 5grsrp */
    int32_t nr_rsrq;                 /* field 5grsrq */
    int32_t nr_snr;                  /* field 5grssnr */
};
VLK_RECORD_SIZE(vlk_cserssi, 40);

/* ^HCSQ */
struct vlk_hcsq {
    int32_t sysmode; /* GSM 0, WCDMA 1, LTE 2, CDMA 3, EVDO 4, TD-SCDMA 5, CDMA-EVDO 6, NR 7, no service -1 */
    int32_t value1;
    int32_t value2;
    int32_t value3;
    int32_t value4;
    int32_t value5;
};
VLK_RECORD_SIZE(vlk_hcsq, 24);

/* ^HSRCELLINFO */
struct vlk_hsrcellinfo {
    int32_t Rat;
    char cell_id[32];     /* decimal text */
    uint8_t HighSpeedFlg; /* 0 or 1 */
    uint8_t padding[3];
    int32_t reserved;
    int32_t CellIdLowBit;
    int32_t CellIdHighBit;
};
VLK_RECORD_SIZE(vlk_hsrcellinfo, 52);

#define VLK_LINE_INDEX_LIMIT 10 /* indexes that a vlk_line_index holds */

/* ^REPORTLINEINDEX */
struct vlk_line_index {
    char first_field[9];
    uint8_t padding[3];
    int32_t indexList[VLK_LINE_INDEX_LIMIT];
    int32_t loop;     /* entries of indexList that are set */
    int32_t reserved; /* -2 */
};
VLK_RECORD_SIZE(vlk_line_index, 60);

/* ^HFREQINFO */
struct vlk_hfreqinfo {
    int32_t sysmode;
    int32_t band_class;
    int32_t dl_bw1;
    int32_t ul_bw1;
};
VLK_RECORD_SIZE(vlk_hfreqinfo, 16);

/* ^DSFLOWRPT */
struct vlk_dsflow {
    uint32_t curr_ds_time;
    uint32_t tx_rate;
    uint32_t rx_rate;
    uint32_t padding;
    uint64_t curr_tx_flow;
    uint64_t curr_rx_flow;
    uint32_t qos_tx_rate;
    uint32_t qos_rx_rate;
};
VLK_RECORD_SIZE(vlk_dsflow, 40);

/* ^DSFLOWRPT: the rates of this report. */
struct vlk_dsflow_rates {
    uint32_t tx_rate;
    uint32_t rx_rate;
};
VLK_RECORD_SIZE(vlk_dsflow_rates, 8);

/* ^DSFLOWRPT: a summary of the reports since the last such message. */
struct vlk_dsflow_stats {
    uint32_t peak_tx_rate;
    uint32_t peak_rx_rate;
    uint64_t curr_tx_flow; /* of the latest report */
    uint64_t curr_rx_flow; /* of the latest report */
};
VLK_RECORD_SIZE(vlk_dsflow_stats, 24);

/* ^DCONN, ^DEND, ^NDISSTAT, ^NDISSTATEX */
struct vlk_connection {
    int32_t cid;
    int32_t cause; /* -1, or the modem's error code of a disconnection */
};
VLK_RECORD_SIZE(vlk_connection, 8);

/* +CMTI, +CDSI */
struct vlk_sms_index {
    uint32_t report_id; /* VLK_REPORT_CMTI or VLK_REPORT_CDSI */
    char mem[16];
    int32_t index;
};
VLK_RECORD_SIZE(vlk_sms_index, 24);

/* +CMT, +CDS, +CBM. Packed: it ends in the middle of a word. */
struct __attribute__((packed)) vlk_sms_content {
    uint32_t report_id; /* VLK_REPORT_CMT, VLK_REPORT_CDS or VLK_REPORT_CBM */
    uint16_t length;
    char pdu[512];
};
VLK_RECORD_SIZE(vlk_sms_content, 518);

/* ^HCMGSS. As long as a vlk_sms_content, and packed like it. */
struct __attribute__((packed)) vlk_hcmgss {
    uint32_t report_id; /* VLK_REPORT_HCMGSS */
    int32_t mr;
    uint8_t reserved[510];
};
VLK_RECORD_SIZE(vlk_hcmgss, 518);

/* ^HCMGSF */
struct vlk_hcmgsf {
    uint32_t report_id; /* VLK_REPORT_HCMGSF */
    int32_t errCode;
};
VLK_RECORD_SIZE(vlk_hcmgsf, 8);

/* +CUSD */
struct vlk_cusd {
    int32_t rspType;
    char cusdStr[512];      /* may hold NUL bytes: go by cusdStr_length */
    int32_t cusdStr_length; /* bytes of the report's text; cusdStr is empty when the text did not fit */
    int32_t codeType;
    int32_t reserved;
};
VLK_RECORD_SIZE(vlk_cusd, 528);

/* ^STIN */
struct vlk_stin {
    uint8_t cmdTpye;
    uint8_t cmdIndex;
    uint8_t isTimeOut;
    uint8_t reserved[5];
};
VLK_RECORD_SIZE(vlk_stin, 8);

#undef VLK_RECORD_SIZE

#endif

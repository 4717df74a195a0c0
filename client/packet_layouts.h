// What the daemon's notifications and bus messages are called, which reports of the modem they come from and how
// their data is laid out, as tables. docs/reports.md tells what they mean.
#ifndef VLK_PACKET_LAYOUTS_H
#define VLK_PACKET_LAYOUTS_H

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

enum field_kind : uint8_t {
    U8,
    U16,
    U32,
    I32,
    U64,
    TEXT
};

/// Bytes of one number, or of one character of a text.
constexpr uint32_t size_of(field_kind kind)
{
    constexpr uint32_t SIZES[] = {1, 2, 4, 4, 8, 1};
    return SIZES[kind];
}

/// A field at its offset in bytes; count: how many numbers stand there, or characters of the text with its terminator.
struct field_layout {
    const char *name;
    uint32_t offset;
    field_kind kind;
    uint32_t count = 1;
};

inline constexpr int64_t ANY_ID = -1;
/// Length of the two values of a notification: an i32 at 0, another one at 4.
inline constexpr uint32_t VALUES = 8;

/// A packet is of a row when target and number are the row's, length and first word say whether its data is. Words
/// that never change are no fields.
struct packet_layout {
    int32_t module;               // 0: a bus message
    std::string_view destination; // of a bus message
    uint32_t code;
    const char *name;
    const char *reports; // empty: the daemon's own
    uint32_t length;     // bytes of data
    std::span<const field_layout> fields;
    int64_t id = ANY_ID; // of the report, first word of the data, where it tells layouts apart
};

struct module_name {
    int32_t module;
    const char *name;
};

inline constexpr module_name MODULE_NAMES[] = {
    {1, "sms"},     {2, "USSD"},           {4, "dialup"}, {7, "net"},
    {9, "device"},  {18, "statistics"},    {19, "radio"}, {33, "SIM toolkit"},
    {55, "M2MAPI"}, {74, "factory reset"}, {103, "cell"}, {106, "registration"},
};

// ---- Fields of values

inline constexpr std::span<const field_layout> NO_FIELDS;
inline constexpr field_layout SYSTEM_MODE[] = {{"sys_mode", 0, I32}, {"sys_submode", 4, I32}};
inline constexpr field_layout SIM_STATES[] = {{"sim_state", 0, I32}, {"lock_state", 4, I32}};
inline constexpr field_layout TEMPERATURE[] = {{"tempprotect_event", 0, I32}, {"tempprotect_param", 4, I32}};
inline constexpr field_layout FILE_TYPE[] = {{"file_type", 0, I32}};
inline constexpr field_layout LEVEL[] = {{"level", 0, I32}};
inline constexpr field_layout VALUE[] = {{"value", 0, I32}};
inline constexpr field_layout PLMN[] = {{"plmn", 0, I32}};
inline constexpr field_layout STAT[] = {{"stat", 0, I32}};

// ---- Fields of records

inline constexpr field_layout PARAMETER[] = {{"parameter", 0, I32}};
inline constexpr field_layout STATE[] = {{"state", 0, I32}};
inline constexpr field_layout CELL_IDENTITY[] = {{"ci", 0, TEXT, 32}};
inline constexpr field_layout RRC_STATE[] = {{"state", 4, I32}};
inline constexpr field_layout ENDC[] = {
    {"endc_available", 4, I32},
    {"endc_plmn_available", 8, I32},
    {"endc_restricted", 12, I32},
    {"nr_pscell", 16, I32},
};
inline constexpr field_layout REJECT[] = {
    {"plmnid", 4, TEXT, 64},      {"srvdomain", 68, I32},     {"rejectcause", 72, I32},
    {"rattype", 76, I32},         {"rejectType", 80, I32},    {"rejectOriginalCause", 84, I32},
    {"rejectLac", 88, TEXT, 8},   {"rejectRac", 96, TEXT, 4}, {"rejectCellId", 100, TEXT, 32},
    {"rejectEsmCause", 132, I32},
};
inline constexpr field_layout NETWORK_SCAN[] = {{"5grsrp", 0, I32}, {"5grssnr", 4, I32}};
inline constexpr field_layout SIM_RECORD[] = {{"sim_state", 4, I32}, {"lock_state", 8, I32}};
inline constexpr field_layout NETWORK_TIME[] = {
    {"year", 20, I32},  {"month", 16, I32}, {"day", 12, I32},       {"hour", 8, I32},
    {"minute", 4, I32}, {"second", 0, I32}, {"time_zone", 44, I32},
};
inline constexpr field_layout SIGNAL_DETAIL[] = {
    {"rssi", 8, I32},   {"rscp", 12, I32},  {"ecio", 16, I32},  {"rsrp", 20, I32},  {"rsrq", 24, I32},
    {"rssnr", 28, I32}, {"ri", 32, I32},    {"cqi0", 36, I32},  {"cqi1", 40, I32},  {"rfnum", 44, I32},
    {"rsrp1", 48, I32}, {"rsrp2", 52, I32}, {"rsrp3", 56, I32}, {"rsrp4", 60, I32}, {"sinr1", 64, I32},
    {"sinr2", 68, I32}, {"sinr3", 72, I32}, {"sinr4", 76, I32},
};
inline constexpr field_layout SIGNAL_LEVELS[] = {
    {"rssi", 0, I32},  {"rscp", 4, I32},   {"ecio", 8, I32}, {"rsrp", 12, I32},
    {"rsrq", 16, I32}, {"rssnr", 20, I32}, {"ri", 24, I32},
};
inline constexpr field_layout SIGNAL_5G[] = {{"5grsrp", 28, I32}, {"5grsrq", 32, I32}, {"5grssnr", 36, I32}};
inline constexpr field_layout SIGNAL_QUALITY[] = {
    {"sysmode", 0, I32}, {"value1", 4, I32},  {"value2", 8, I32},
    {"value3", 12, I32}, {"value4", 16, I32}, {"value5", 20, I32},
};
inline constexpr field_layout SERVING_CELL[] = {
    {"Rat", 0, I32},           {"cell_id", 4, TEXT, 32},   {"HighSpeedFlg", 36, U8},
    {"CellIdLowBit", 44, I32}, {"CellIdHighBit", 48, I32},
};
inline constexpr field_layout LINE_INDEX[] = {
    {"first_field", 0, TEXT, 9},
    {"indexList", 12, I32, 10},
    {"loop", 52, I32},
};
inline constexpr field_layout FREQUENCY[] = {
    {"sysmode", 0, I32},
    {"band_class", 4, I32},
    {"dl_bw1", 8, I32},
    {"ul_bw1", 12, I32},
};
inline constexpr field_layout FLOW[] = {
    {"curr_ds_time", 0, U32},  {"tx_rate", 4, U32},      {"rx_rate", 8, U32},      {"curr_tx_flow", 16, U64},
    {"curr_rx_flow", 24, U64}, {"qos_tx_rate", 32, U32}, {"qos_rx_rate", 36, U32},
};
inline constexpr field_layout FLOW_RATES[] = {{"tx_rate", 0, U32}, {"rx_rate", 4, U32}};
inline constexpr field_layout FLOW_STATISTICS[] = {
    {"peak_tx_rate", 0, U32},
    {"peak_rx_rate", 4, U32},
    {"curr_tx_flow", 8, U64},
    {"curr_rx_flow", 16, U64},
};
inline constexpr field_layout CONNECTION[] = {{"cid", 0, I32}, {"cause", 4, I32}};
inline constexpr field_layout SMS_INDEX[] = {{"mem", 4, TEXT, 16}, {"index", 20, I32}};
inline constexpr field_layout SMS_CONTENT[] = {{"length", 4, U16}, {"pdu", 6, TEXT, 512}};
inline constexpr field_layout SMS_SENT[] = {{"mr", 4, I32}};
inline constexpr field_layout SMS_NOT_SENT[] = {{"errCode", 4, I32}};
inline constexpr field_layout USSD[] = {
    {"rspType", 0, I32},
    {"cusdStr", 4, TEXT, 512},
    {"cusdStr_length", 516, I32},
    {"codeType", 520, I32},
};
inline constexpr field_layout TOOLKIT[] = {{"cmdTpye", 0, U8}, {"cmdIndex", 1, U8}, {"isTimeOut", 2, U8}};

// ---- The packets

inline constexpr const char *REGISTRATION = "+CREG/+CGREG/+C5GREG";

inline constexpr packet_layout PACKETS[] = {
    {1, "", 1001, "EVT_SMS_MEMORY_FULL", "^SMMEMFULL", 0, NO_FIELDS},
    {1, "", 1008, "EVT_SMS_ARRIVED", "+CMTI", 24, SMS_INDEX, 0},
    {1, "", 1008, "EVT_SMS_ARRIVED", "+CMT", 518, SMS_CONTENT, 1},
    {1, "", 1008, "EVT_SMS_ARRIVED", "+CDSI", 24, SMS_INDEX, 2},
    {1, "", 1008, "EVT_SMS_ARRIVED", "+CDS", 518, SMS_CONTENT, 3},
    {1, "", 1008, "EVT_SMS_ARRIVED", "+CBM", 518, SMS_CONTENT, 4},
    {1, "", 1010, "EVT_SMS_SEND_RESULT", "^HCMGSS", 518, SMS_SENT, 42},
    {1, "", 1010, "EVT_SMS_SEND_RESULT", "^HCMGSF", 8, SMS_NOT_SENT, 43},
    {1, "", 1022, "EVT_SMS_SIM_REFRESH", "^SIMREFRESH", VALUES, NO_FIELDS},
    {1, "", 1023, "EVT_SMS_IMSI_CHANGE", "^SIMST", VALUES, NO_FIELDS},
    {2, "", 2003, "EVT_USSD", "+CUSD", 528, USSD},
    {4, "", 4082, "EVT_DIALUP_SIM_STATE", "^SIMST", VALUES, SIM_STATES},
    {4, "", 4110, "EVT_DIALUP_SIM_REFRESH", "^SIMREFRESH", VALUES, NO_FIELDS},
    {6, "", 6001, "EVT_SIM_STATE_PAIR", "^SIMST", 8, SIM_STATES},
    {7, "", 7012, "EVT_NET_HOME", "^APROAMRPT", VALUES, NO_FIELDS},
    {7, "", 7013, "EVT_NET_ROAMING", "^APROAMRPT", VALUES, NO_FIELDS},
    {7, "", 7022, "EVT_NET_EONS", "^EONS", VALUES, NO_FIELDS},
    {7, "", 7044, "EVT_NET_SIM_REFRESH", "^SIMREFRESH", VALUES, FILE_TYPE},
    {7, "", 7056, "EVT_NET_SCAN", "^NETSCAN", 12, NETWORK_SCAN},
    {9, "", 4047, "EVT_NETWORK_TIME", "^NWTIME", 52, NETWORK_TIME},
    {9, "", 9004, "EVT_FACTORY", "^FACTORY", VALUES, NO_FIELDS},
    {9, "", 9010, "EVT_DEVICE_SIM_STATE", "^SIMST", VALUES, SIM_STATES},
    {9, "", 9040, "EVT_DEVICE_SERVICE", "^SRVST", VALUES, NO_FIELDS},
    {9, "", 9055, "EVT_DEVICE_REGISTRATION", REGISTRATION, VALUES, NO_FIELDS},
    {9, "", 9058, "EVT_DEVICE_SIM_REFRESH", "^SIMREFRESH", VALUES, NO_FIELDS},
    {9, "", 9059, "EVT_DEVICE_PHONE_BOOK_READY", "^CPBREADY", VALUES, NO_FIELDS},
    {9, "", 31000, "EVT_AT_MACHINE_TEMP", "^TEMPPRT", VALUES, TEMPERATURE},
    {18, "", 18002, "EVT_FLOW", "^DSFLOWRPT", 40, FLOW},
    {18, "", 18034, "EVT_CELL_IDENTITY", REGISTRATION, 32, CELL_IDENTITY},
    {19, "", 19005, "EVT_SYSTEM_MODE", "^MODE/^LCACELLURC", VALUES, SYSTEM_MODE},
    {19, "", 19007, "EVT_RADIO_SIM_STATE", "^SIMST", VALUES, SIM_STATES},
    {19, "", 19008, "EVT_REGISTRATION", REGISTRATION, VALUES, NO_FIELDS},
    {19, "", 19011, "EVT_SIGNAL_LEVEL", "^ANLEVEL", VALUES, LEVEL},
    {19, "", 19016, "EVT_SIGNAL_QUALITY", "^HCSQ", 24, SIGNAL_QUALITY},
    {19, "", 19034, "EVT_SIGNAL_DETAIL", "^CERSSI", 84, SIGNAL_DETAIL},
    {19, "", 19035, "EVT_REGISTRATION_CELL", REGISTRATION, VALUES, NO_FIELDS},
    {19, "", 19036, "EVT_ENDC", "^LENDC", 24, ENDC},
    {19, "", 19039, "EVT_RRC_STATE", "^RRCSTAT", 12, RRC_STATE},
    {19, "", 31007, "EVT_REJECT", "^REJINFO", 1028, REJECT},
    {27, "", 27003, "EVT_SIM_STATE", "^SIMST", 12, SIM_RECORD},
    {33, "", 33001, "EVT_TOOLKIT", "^STIN", 8, TOOLKIT},
    {55, "", 55013, "EVT_WAKEUP_INPUT", "^WAKEUPIN", VALUES, VALUE},
    {74, "", 9004, "EVT_FACTORY", "^NORSTFACT", 4, VALUE},
    {75, "", 16052, "EVT_SIM_UNUSABLE", "^SIMST", VALUES, NO_FIELDS},
    {103, "", 103001, "EVT_RPLMN", "^REPORTLINERPLMN", VALUES, PLMN},
    {103, "", 103002, "EVT_LINE_INDEX", "^REPORTLINEINDEX", 60, LINE_INDEX},
    {103, "", 103003, "EVT_SERVING_CELL", "^HSRCELLINFO", 52, SERVING_CELL},
    {106, "", 31007, "EVT_REJECT", "^REJINFO", 1028, REJECT},
    {106, "", 106000, "EVT_PS_REGISTRATION_STATE", "+CGREG", VALUES, STAT},
    {106, "", 106001, "EVT_5GS_REGISTRATION_STATE", "+C5GREG", VALUES, STAT},

    {0, "behavior", 188943, "MSG_SIGNAL_QUALITY", "^HCSQ", 24, SIGNAL_QUALITY},
    {0, "cms", 34820, "MSG_DATACARD_INSERTED", "", 4, PARAMETER},
    {0, "cms", 34843, "MSG_FLOW_STATISTICS", "^DSFLOWRPT", 24, FLOW_STATISTICS},
    {0, "cms", 34844, "MSG_MMI_ENTER", "^MMIENTER", 0, NO_FIELDS},
    {0, "dialup", 166657, "MSG_CONNECTED", "^DCONN/^NDISSTAT/^NDISSTATEX", 8, CONNECTION},
    {0, "dialup", 166658, "MSG_DISCONNECTED", "^DEND/^NDISSTAT/^NDISSTATEX", 8, CONNECTION},
    {0, "dialup", 166659, "MSG_CONNECTED_IPV6", "^DCONN/^NDISSTAT/^NDISSTATEX", 8, CONNECTION},
    {0, "dialup", 166660, "MSG_DISCONNECTED_IPV6", "^DEND/^NDISSTAT/^NDISSTATEX", 8, CONNECTION},
    {0, "dialup", 166661, "MSG_NETWORK_STATE", "^MODE/^SRVST", 4, STATE},
    {0, "dialup", 166661, "MSG_NETWORK_STATE", REGISTRATION, 0, NO_FIELDS},
    {0, "lpm", 91393, "MSG_FLOW_RATES", "^DSFLOWRPT", 8, FLOW_RATES},
    {0, "lpm", 91394, "MSG_FREQUENCY", "^HFREQINFO", 16, FREQUENCY},
    {0, "lpm", 91395, "MSG_SIGNAL_LEVELS", "^CERSSI", 28, SIGNAL_LEVELS},
    {0, "lpm", 91396, "MSG_5G_SIGNAL_LEVELS", "^CSERSSI", 40, SIGNAL_5G},
    {0, "lpm", 91397, "MSG_ENDC", "^LENDC", 20, ENDC},
};

/// No field ends behind its data.
static_assert(std::ranges::all_of(PACKETS, [](const packet_layout &row) {
    return (row.id == ANY_ID || row.length >= size_of(U32)) &&
           std::ranges::all_of(row.fields, [&row](const field_layout &field) {
               return field.offset + field.count * size_of(field.kind) <= row.length;
           });
}));

#endif

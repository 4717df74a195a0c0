// What the daemon's notifications and bus messages are called, which reports of the modem they come from and how
// their data is laid out, as tables: one line a field, one line a packet. Sizes, offsets and kinds are those of
// vlk_reports.h; docs/reports.md explains what they mean.
#ifndef VLK_PACKET_LAYOUTS_H
#define VLK_PACKET_LAYOUTS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <type_traits>

#include "vlk_reports.h"

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
    uint32_t count;
};

/// The fields of a record. Words that never change are no fields.
struct record_layout {
    const char *name;
    uint32_t size; // bytes
    std::initializer_list<field_layout> fields;
};

inline constexpr int64_t ANY_ID = -1;

/// A packet belongs to the row with its target and number; size and first word say whether its data has that layout.
struct packet_layout {
    int32_t module;               // 0: a bus message
    std::string_view destination; // of a bus message
    uint32_t code;
    const char *name;
    const char *reports; // empty: the daemon's own
    const record_layout *record;
    int64_t id = ANY_ID; // of the report, first word of the data, where it tells layouts apart
};

struct module_name {
    int32_t module;
    const char *name;
};

inline constexpr module_name MODULE_NAMES[] = {
    {VLK_MODULE_SMS, "sms"},       {VLK_MODULE_USSD, "USSD"},
    {VLK_MODULE_DIALUP, "dialup"}, {VLK_MODULE_NET, "net"},
    {VLK_MODULE_DEVICE, "device"}, {VLK_MODULE_STATISTICS, "statistics"},
    {VLK_MODULE_RADIO, "radio"},   {VLK_MODULE_TOOLKIT, "SIM toolkit"},
    {VLK_MODULE_M2MAPI, "M2MAPI"}, {VLK_MODULE_FACTORY_RESET, "factory reset"},
    {VLK_MODULE_CELL, "cell"},     {VLK_MODULE_REGISTRATION, "registration"},
};

template <typename number>
constexpr field_kind kind_of()
{
    if constexpr (std::is_same_v<number, char>)
        return TEXT;
    else if constexpr (std::is_same_v<number, int32_t>)
        return I32;
    else
        return sizeof(number) == 1 ? U8 : sizeof(number) == 2 ? U16 : sizeof(number) == 4 ? U32 : U64;
}

template <typename member>
constexpr field_layout field_at(const char *name, std::size_t offset)
{
    using element = std::remove_extent_t<member>;
    constexpr field_kind kind = kind_of<element>();
    static_assert(sizeof(element) == size_of(kind));
    return {name, static_cast<uint32_t>(offset), kind, std::is_array_v<member> ? std::extent_v<member> : 1};
}

#define NAMED_FIELD(name, record, member) field_at<decltype(record::member)>(name, offsetof(record, member))
#define FIELD(record, member)             NAMED_FIELD(#member, record, member)
#define RECORD(record)                    #record, sizeof(record)

// ---- The two values of a notification

inline constexpr uint32_t VALUES = 8; // bytes: an i32 at 0, another one at 4
inline constexpr record_layout NO_DATA = {"no data", 0, {}};
inline constexpr record_layout NO_VALUES = {"(0, 0)", VALUES, {}};
inline constexpr record_layout SYSTEM_MODE = {
    "values", VALUES, {{"sys_mode", 0, I32, 1}, {"sys_submode", 4, I32, 1}}};
inline constexpr record_layout SIM_VALUES = {
    "values", VALUES, {{"sim_state", 0, I32, 1}, {"lock_state", 4, I32, 1}}};
inline constexpr record_layout TEMPERATURE = {
    "values", VALUES, {{"tempprotect_event", 0, I32, 1}, {"tempprotect_param", 4, I32, 1}}};
inline constexpr record_layout FILE_TYPE = {"values", VALUES, {{"file_type", 0, I32, 1}}};
inline constexpr record_layout LEVEL = {"values", VALUES, {{"level", 0, I32, 1}}};
inline constexpr record_layout VALUE = {"values", VALUES, {{"value", 0, I32, 1}}};
inline constexpr record_layout PLMN = {"values", VALUES, {{"plmn", 0, I32, 1}}};
inline constexpr record_layout STAT = {"values", VALUES, {{"stat", 0, I32, 1}}};

// ---- Records

inline constexpr record_layout PARAMETER = {RECORD(vlk_parameter), {FIELD(vlk_parameter, parameter)}};
inline constexpr record_layout STATE = {RECORD(vlk_network_state), {FIELD(vlk_network_state, state)}};
inline constexpr record_layout CELL_IDENTITY = {RECORD(vlk_cell_identity), {FIELD(vlk_cell_identity, ci)}};
inline constexpr record_layout RRC_STATE = {RECORD(vlk_rrcstat), {FIELD(vlk_rrcstat, state)}};
inline constexpr record_layout ENDC = {RECORD(vlk_endc),
                                       {FIELD(vlk_endc, endc_available), FIELD(vlk_endc, endc_plmn_available),
                                        FIELD(vlk_endc, endc_restricted), FIELD(vlk_endc, nr_pscell)}};
inline constexpr record_layout LENDC = {
    RECORD(vlk_lendc),
    {NAMED_FIELD("endc_available", vlk_lendc, endc.endc_available),
     NAMED_FIELD("endc_plmn_available", vlk_lendc, endc.endc_plmn_available),
     NAMED_FIELD("endc_restricted", vlk_lendc, endc.endc_restricted),
     NAMED_FIELD("nr_pscell", vlk_lendc, endc.nr_pscell)}};
inline constexpr record_layout REJECT = {
    RECORD(vlk_rejinfo),
    {FIELD(vlk_rejinfo, plmnid), FIELD(vlk_rejinfo, srvdomain), FIELD(vlk_rejinfo, rejectcause),
     FIELD(vlk_rejinfo, rattype), FIELD(vlk_rejinfo, rejectType), FIELD(vlk_rejinfo, rejectOriginalCause),
     FIELD(vlk_rejinfo, rejectLac), FIELD(vlk_rejinfo, rejectRac), FIELD(vlk_rejinfo, rejectCellId),
     FIELD(vlk_rejinfo, rejectEsmCause)}};
inline constexpr record_layout NETWORK_SCAN = {
    RECORD(vlk_netscan),
    {NAMED_FIELD("5grsrp", vlk_netscan, nr_rsrp), NAMED_FIELD("5grssnr", vlk_netscan, nr_snr)}};
inline constexpr record_layout SIM_STATES = {
    RECORD(vlk_sim_states), {FIELD(vlk_sim_states, sim_state), FIELD(vlk_sim_states, lock_state)}};
inline constexpr record_layout SIM_RECORD = {RECORD(vlk_simst),
                                             {NAMED_FIELD("sim_state", vlk_simst, states.sim_state),
                                              NAMED_FIELD("lock_state", vlk_simst, states.lock_state)}};
inline constexpr record_layout NETWORK_TIME = {
    RECORD(vlk_nwtime),
    {FIELD(vlk_nwtime, year), FIELD(vlk_nwtime, month), FIELD(vlk_nwtime, day), FIELD(vlk_nwtime, hour),
     FIELD(vlk_nwtime, minute), FIELD(vlk_nwtime, second), FIELD(vlk_nwtime, time_zone)}};
inline constexpr record_layout FACTORY_RESET = {RECORD(vlk_factory_reset), {FIELD(vlk_factory_reset, value)}};
inline constexpr record_layout SIGNAL_DETAIL = {
    RECORD(vlk_cerssi),
    {FIELD(vlk_cerssi, rssi), FIELD(vlk_cerssi, rscp), FIELD(vlk_cerssi, ecio), FIELD(vlk_cerssi, rsrp),
     FIELD(vlk_cerssi, rsrq), FIELD(vlk_cerssi, rssnr), FIELD(vlk_cerssi, ri), FIELD(vlk_cerssi, cqi0),
     FIELD(vlk_cerssi, cqi1), FIELD(vlk_cerssi, rfnum), FIELD(vlk_cerssi, rsrp1), FIELD(vlk_cerssi, rsrp2),
     FIELD(vlk_cerssi, rsrp3), FIELD(vlk_cerssi, rsrp4), FIELD(vlk_cerssi, sinr1), FIELD(vlk_cerssi, sinr2),
     FIELD(vlk_cerssi, sinr3), FIELD(vlk_cerssi, sinr4)}};
inline constexpr record_layout SIGNAL_LEVELS = {
    RECORD(vlk_signal_levels),
    {FIELD(vlk_signal_levels, rssi), FIELD(vlk_signal_levels, rscp), FIELD(vlk_signal_levels, ecio),
     FIELD(vlk_signal_levels, rsrp), FIELD(vlk_signal_levels, rsrq), FIELD(vlk_signal_levels, rssnr),
     FIELD(vlk_signal_levels, ri)}};
inline constexpr record_layout SIGNAL_5G = {RECORD(vlk_cserssi),
                                            {NAMED_FIELD("5grsrp", vlk_cserssi, nr_rsrp),
                                             NAMED_FIELD("5grsrq", vlk_cserssi, nr_rsrq),
                                             NAMED_FIELD("5grssnr", vlk_cserssi, nr_snr)}};
inline constexpr record_layout SIGNAL_QUALITY = {RECORD(vlk_hcsq),
                                                 {FIELD(vlk_hcsq, sysmode), FIELD(vlk_hcsq, value1),
                                                  FIELD(vlk_hcsq, value2), FIELD(vlk_hcsq, value3),
                                                  FIELD(vlk_hcsq, value4), FIELD(vlk_hcsq, value5)}};
inline constexpr record_layout SERVING_CELL = {
    RECORD(vlk_hsrcellinfo),
    {FIELD(vlk_hsrcellinfo, Rat), FIELD(vlk_hsrcellinfo, cell_id), FIELD(vlk_hsrcellinfo, HighSpeedFlg),
     FIELD(vlk_hsrcellinfo, CellIdLowBit), FIELD(vlk_hsrcellinfo, CellIdHighBit)}};
inline constexpr record_layout LINE_INDEX = {
    RECORD(vlk_line_index),
    {FIELD(vlk_line_index, first_field), FIELD(vlk_line_index, indexList), FIELD(vlk_line_index, loop)}};
inline constexpr record_layout FREQUENCY = {RECORD(vlk_hfreqinfo),
                                            {FIELD(vlk_hfreqinfo, sysmode), FIELD(vlk_hfreqinfo, band_class),
                                             FIELD(vlk_hfreqinfo, dl_bw1), FIELD(vlk_hfreqinfo, ul_bw1)}};
inline constexpr record_layout FLOW = {RECORD(vlk_dsflow),
                                       {FIELD(vlk_dsflow, curr_ds_time), FIELD(vlk_dsflow, tx_rate),
                                        FIELD(vlk_dsflow, rx_rate), FIELD(vlk_dsflow, curr_tx_flow),
                                        FIELD(vlk_dsflow, curr_rx_flow), FIELD(vlk_dsflow, qos_tx_rate),
                                        FIELD(vlk_dsflow, qos_rx_rate)}};
inline constexpr record_layout FLOW_RATES = {
    RECORD(vlk_dsflow_rates), {FIELD(vlk_dsflow_rates, tx_rate), FIELD(vlk_dsflow_rates, rx_rate)}};
inline constexpr record_layout FLOW_STATISTICS = {
    RECORD(vlk_dsflow_stats),
    {FIELD(vlk_dsflow_stats, peak_tx_rate), FIELD(vlk_dsflow_stats, peak_rx_rate),
     FIELD(vlk_dsflow_stats, curr_tx_flow), FIELD(vlk_dsflow_stats, curr_rx_flow)}};
inline constexpr record_layout CONNECTION = {RECORD(vlk_connection),
                                             {FIELD(vlk_connection, cid), FIELD(vlk_connection, cause)}};
inline constexpr record_layout SMS_INDEX = {RECORD(vlk_sms_index),
                                            {FIELD(vlk_sms_index, mem), FIELD(vlk_sms_index, index)}};
inline constexpr record_layout SMS_CONTENT = {RECORD(vlk_sms_content),
                                              {FIELD(vlk_sms_content, length), FIELD(vlk_sms_content, pdu)}};
inline constexpr record_layout SMS_SENT = {RECORD(vlk_hcmgss), {FIELD(vlk_hcmgss, mr)}};
inline constexpr record_layout SMS_NOT_SENT = {RECORD(vlk_hcmgsf), {FIELD(vlk_hcmgsf, errCode)}};
inline constexpr record_layout USSD = {RECORD(vlk_cusd),
                                       {FIELD(vlk_cusd, rspType), FIELD(vlk_cusd, cusdStr),
                                        FIELD(vlk_cusd, cusdStr_length), FIELD(vlk_cusd, codeType)}};
inline constexpr record_layout TOOLKIT = {
    RECORD(vlk_stin), {FIELD(vlk_stin, cmdTpye), FIELD(vlk_stin, cmdIndex), FIELD(vlk_stin, isTimeOut)}};

// ---- The packets

/// The name of a constant of vlk_reports.h as it is shown: without VLK_.
constexpr const char *shown_name(const char *constant)
{
    return constant + std::string_view("VLK_").size();
}

#define EVENT(module, event) module, "", event, shown_name(#event)
#define MESSAGE(name, type)  0, name, type, shown_name(#type)

inline constexpr char REGISTRATION[] = "+CREG/+CGREG/+C5GREG";

inline constexpr packet_layout PACKETS[] = {
    {EVENT(VLK_MODULE_SMS, VLK_EVT_SMS_MEMORY_FULL), "^SMMEMFULL", &NO_DATA},
    {EVENT(VLK_MODULE_SMS, VLK_EVT_SMS_ARRIVED), "+CMTI", &SMS_INDEX, VLK_REPORT_CMTI},
    {EVENT(VLK_MODULE_SMS, VLK_EVT_SMS_ARRIVED), "+CMT", &SMS_CONTENT, VLK_REPORT_CMT},
    {EVENT(VLK_MODULE_SMS, VLK_EVT_SMS_ARRIVED), "+CDSI", &SMS_INDEX, VLK_REPORT_CDSI},
    {EVENT(VLK_MODULE_SMS, VLK_EVT_SMS_ARRIVED), "+CDS", &SMS_CONTENT, VLK_REPORT_CDS},
    {EVENT(VLK_MODULE_SMS, VLK_EVT_SMS_ARRIVED), "+CBM", &SMS_CONTENT, VLK_REPORT_CBM},
    {EVENT(VLK_MODULE_SMS, VLK_EVT_SMS_SEND_RESULT), "^HCMGSS", &SMS_SENT, VLK_REPORT_HCMGSS},
    {EVENT(VLK_MODULE_SMS, VLK_EVT_SMS_SEND_RESULT), "^HCMGSF", &SMS_NOT_SENT, VLK_REPORT_HCMGSF},
    {EVENT(VLK_MODULE_SMS, VLK_EVT_SMS_SIM_REFRESH), "^SIMREFRESH", &NO_VALUES},
    {EVENT(VLK_MODULE_SMS, VLK_EVT_SMS_IMSI_CHANGE), "^SIMST", &NO_VALUES},
    {EVENT(VLK_MODULE_USSD, VLK_EVT_USSD), "+CUSD", &USSD},
    {EVENT(VLK_MODULE_DIALUP, VLK_EVT_DIALUP_SIM_STATE), "^SIMST", &SIM_VALUES},
    {EVENT(VLK_MODULE_DIALUP, VLK_EVT_DIALUP_SIM_REFRESH), "^SIMREFRESH", &NO_VALUES},
    {EVENT(VLK_MODULE_6, VLK_EVT_SIM_STATE_PAIR), "^SIMST", &SIM_STATES},
    {EVENT(VLK_MODULE_NET, VLK_EVT_NET_HOME), "^APROAMRPT", &NO_VALUES},
    {EVENT(VLK_MODULE_NET, VLK_EVT_NET_ROAMING), "^APROAMRPT", &NO_VALUES},
    {EVENT(VLK_MODULE_NET, VLK_EVT_NET_EONS), "^EONS", &NO_VALUES},
    {EVENT(VLK_MODULE_NET, VLK_EVT_NET_SIM_REFRESH), "^SIMREFRESH", &FILE_TYPE},
    {EVENT(VLK_MODULE_NET, VLK_EVT_NET_SCAN), "^NETSCAN", &NETWORK_SCAN},
    {EVENT(VLK_MODULE_DEVICE, VLK_EVT_NETWORK_TIME), "^NWTIME", &NETWORK_TIME},
    {EVENT(VLK_MODULE_DEVICE, VLK_EVT_FACTORY), "^FACTORY", &NO_VALUES},
    {EVENT(VLK_MODULE_DEVICE, VLK_EVT_DEVICE_SIM_STATE), "^SIMST", &SIM_VALUES},
    {EVENT(VLK_MODULE_DEVICE, VLK_EVT_DEVICE_SERVICE), "^SRVST", &NO_VALUES},
    {EVENT(VLK_MODULE_DEVICE, VLK_EVT_DEVICE_REGISTRATION), REGISTRATION, &NO_VALUES},
    {EVENT(VLK_MODULE_DEVICE, VLK_EVT_DEVICE_SIM_REFRESH), "^SIMREFRESH", &NO_VALUES},
    {EVENT(VLK_MODULE_DEVICE, VLK_EVT_DEVICE_PHONE_BOOK_READY), "^CPBREADY", &NO_VALUES},
    {EVENT(VLK_MODULE_DEVICE, VLK_EVT_AT_MACHINE_TEMP), "^TEMPPRT", &TEMPERATURE},
    {EVENT(VLK_MODULE_STATISTICS, VLK_EVT_FLOW), "^DSFLOWRPT", &FLOW},
    {EVENT(VLK_MODULE_STATISTICS, VLK_EVT_CELL_IDENTITY), REGISTRATION, &CELL_IDENTITY},
    {EVENT(VLK_MODULE_RADIO, VLK_EVT_SYSTEM_MODE), "^MODE/^LCACELLURC", &SYSTEM_MODE},
    {EVENT(VLK_MODULE_RADIO, VLK_EVT_RADIO_SIM_STATE), "^SIMST", &SIM_VALUES},
    {EVENT(VLK_MODULE_RADIO, VLK_EVT_REGISTRATION), REGISTRATION, &NO_VALUES},
    {EVENT(VLK_MODULE_RADIO, VLK_EVT_SIGNAL_LEVEL), "^ANLEVEL", &LEVEL},
    {EVENT(VLK_MODULE_RADIO, VLK_EVT_SIGNAL_QUALITY), "^HCSQ", &SIGNAL_QUALITY},
    {EVENT(VLK_MODULE_RADIO, VLK_EVT_SIGNAL_DETAIL), "^CERSSI", &SIGNAL_DETAIL},
    {EVENT(VLK_MODULE_RADIO, VLK_EVT_REGISTRATION_CELL), REGISTRATION, &NO_VALUES},
    {EVENT(VLK_MODULE_RADIO, VLK_EVT_ENDC), "^LENDC", &LENDC},
    {EVENT(VLK_MODULE_RADIO, VLK_EVT_RRC_STATE), "^RRCSTAT", &RRC_STATE},
    {EVENT(VLK_MODULE_RADIO, VLK_EVT_REJECT), "^REJINFO", &REJECT},
    {EVENT(VLK_MODULE_27, VLK_EVT_SIM_STATE), "^SIMST", &SIM_RECORD},
    {EVENT(VLK_MODULE_TOOLKIT, VLK_EVT_TOOLKIT), "^STIN", &TOOLKIT},
    {EVENT(VLK_MODULE_M2MAPI, VLK_EVT_WAKEUP_INPUT), "^WAKEUPIN", &VALUE},
    {EVENT(VLK_MODULE_FACTORY_RESET, VLK_EVT_FACTORY), "^NORSTFACT", &FACTORY_RESET},
    {EVENT(VLK_MODULE_75, VLK_EVT_SIM_UNUSABLE), "^SIMST", &NO_VALUES},
    {EVENT(VLK_MODULE_CELL, VLK_EVT_RPLMN), "^REPORTLINERPLMN", &PLMN},
    {EVENT(VLK_MODULE_CELL, VLK_EVT_LINE_INDEX), "^REPORTLINEINDEX", &LINE_INDEX},
    {EVENT(VLK_MODULE_CELL, VLK_EVT_SERVING_CELL), "^HSRCELLINFO", &SERVING_CELL},
    {EVENT(VLK_MODULE_REGISTRATION, VLK_EVT_REJECT), "^REJINFO", &REJECT},
    {EVENT(VLK_MODULE_REGISTRATION, VLK_EVT_PS_REGISTRATION_STATE), "+CGREG", &STAT},
    {EVENT(VLK_MODULE_REGISTRATION, VLK_EVT_5GS_REGISTRATION_STATE), "+C5GREG", &STAT},

    {MESSAGE(VLK_BUS_BEHAVIOR, VLK_MSG_SIGNAL_QUALITY), "^HCSQ", &SIGNAL_QUALITY},
    {MESSAGE(VLK_BUS_CMS, VLK_MSG_DATACARD_INSERTED), "", &PARAMETER},
    {MESSAGE(VLK_BUS_CMS, VLK_MSG_FLOW_STATISTICS), "^DSFLOWRPT", &FLOW_STATISTICS},
    {MESSAGE(VLK_BUS_CMS, VLK_MSG_MMI_ENTER), "^MMIENTER", &NO_DATA},
    {MESSAGE(VLK_BUS_DIALUP, VLK_MSG_CONNECTED), "^DCONN/^NDISSTAT/^NDISSTATEX", &CONNECTION},
    {MESSAGE(VLK_BUS_DIALUP, VLK_MSG_DISCONNECTED), "^DEND/^NDISSTAT/^NDISSTATEX", &CONNECTION},
    {MESSAGE(VLK_BUS_DIALUP, VLK_MSG_CONNECTED_IPV6), "^DCONN/^NDISSTAT/^NDISSTATEX", &CONNECTION},
    {MESSAGE(VLK_BUS_DIALUP, VLK_MSG_DISCONNECTED_IPV6), "^DEND/^NDISSTAT/^NDISSTATEX", &CONNECTION},
    {MESSAGE(VLK_BUS_DIALUP, VLK_MSG_NETWORK_STATE), "^MODE/^SRVST", &STATE},
    {MESSAGE(VLK_BUS_DIALUP, VLK_MSG_NETWORK_STATE), REGISTRATION, &NO_DATA},
    {MESSAGE(VLK_BUS_LPM, VLK_MSG_FLOW_RATES), "^DSFLOWRPT", &FLOW_RATES},
    {MESSAGE(VLK_BUS_LPM, VLK_MSG_FREQUENCY), "^HFREQINFO", &FREQUENCY},
    {MESSAGE(VLK_BUS_LPM, VLK_MSG_SIGNAL_LEVELS), "^CERSSI", &SIGNAL_LEVELS},
    {MESSAGE(VLK_BUS_LPM, VLK_MSG_5G_SIGNAL_LEVELS), "^CSERSSI", &SIGNAL_5G},
    {MESSAGE(VLK_BUS_LPM, VLK_MSG_ENDC), "^LENDC", &ENDC},
};

#undef NAMED_FIELD
#undef FIELD
#undef RECORD
#undef EVENT
#undef MESSAGE

static_assert(std::ranges::all_of(PACKETS, [](const packet_layout &row) {
    return row.id == ANY_ID || row.record->size >= sizeof(uint32_t);
}));

#endif

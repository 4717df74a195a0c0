// What a modem's answers mean: signal, registration, operator, networks, SIM. Pure: lines in, plain values out. Any thread.
#ifndef VLK_MODEM_ANSWERS_H
#define VLK_MODEM_ANSWERS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The values of a line "+NAME: a,"b,c",(1,2)", without quotation marks: a comma inside quotation marks or parentheses
/// divides nothing. A line without a colon is values from its beginning.
std::vector<std::string> values_of(std::string_view line);

/// The value as a decimal number; none when it is anything else.
std::optional<int> number_in(std::string_view value);

// ---- Signal

/// What the modem reported; none: unknown. rssi, rscp and rsrp are dBm, the others dB.
struct signal_reading {
    std::string technology; // "GSM", "WCDMA", "LTE", "5G", ...; empty: unknown
    std::optional<double> rssi;
    std::optional<double> rscp;
    std::optional<double> ecio;
    std::optional<double> rsrp;
    std::optional<double> rsrq;
    std::optional<double> sinr;

    bool is_empty() const { return !rssi && !rscp && !rsrp; }
};

inline constexpr int BARS = 4;

/// The value that says most about reception, in dBm: RSRP, else RSCP, else RSSI.
std::optional<double> strength_of(const signal_reading &reading);
/// 0 to BARS.
int bars_of(const signal_reading &reading);

signal_reading signal_of_csq(std::string_view line);
signal_reading signal_of_cesq(std::string_view line);
signal_reading signal_of_hcsq(std::string_view line);
/// The same from the fields of the daemon's notification: sysmode is a number there.
signal_reading signal_of_hcsq(int sysmode, const std::vector<int> &values);

// ---- Registration and operator

struct registration {
    std::optional<int> state;
    std::string area; // LAC or TAC, hexadecimal; empty: unknown
    std::string cell;
    std::optional<int> technology; // AcT
};

/// From the answer to AT+CREG?, AT+CGREG?, AT+CEREG? or AT+C5GREG?, which begins with the mode.
registration registration_of(std::string_view line);
const char *registration_text(std::optional<int> state); // "registered, home network"
bool is_registered(std::optional<int> state);
const char *technology_text(std::optional<int> act); // "LTE"; "unknown"

struct operator_name {
    bool automatic = true;
    std::string name; // long, short or numeric; empty: none
    std::optional<int> technology;
};

operator_name operator_of(std::string_view line); // of the answer to AT+COPS?

struct found_network {
    std::optional<int> state;
    std::string name;
    std::string short_name;
    std::string plmn; // MCC and MNC
    std::optional<int> technology;
};

std::vector<found_network> networks_of(std::string_view line); // of the answer to AT+COPS=?
const char *network_state_text(std::optional<int> state);      // "available", "current", ...

// ---- SIM

/// In words, the answer to AT+CPIN? ("+CPIN: SIM PIN") or the error that came instead ("+CME ERROR: 10").
std::string sim_state_text(std::string_view line);
/// Tries left for what the SIM asks for now, from "+CPINR: SIM PIN,3,3" or "^CPIN: SIM PIN,3,10,3,10,3".
std::optional<int> tries_of(std::string_view line);
/// The digits of an ICCID or IMSI in a line with or without a prefix; empty: none.
std::string digits_of(std::string_view line);

// ---- USSD

/// The text of a +CUSD string as UTF-8. scheme: the data coding scheme; UCS-2 comes as hexadecimal digits then.
std::string ussd_text(std::string_view text, int scheme);

#endif

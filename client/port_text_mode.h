// Text mode for a port whose modem stays in PDU mode: a modem in text mode would take the length of a PDU that another
// program sends for a phone number. Commands and answers are translated here. Pure.
#ifndef VLK_PORT_TEXT_MODE_H
#define VLK_PORT_TEXT_MODE_H

#include <string>
#include <string_view>
#include <vector>

#include "port_settings.h"

struct port_submission {
    std::string command; ///< "+CMGS=23"; empty: refused
    std::string pdu;
    std::string refusal; ///< final result
};

/// What sends or stores a text in PDU mode. command: +CMGS or +CMGW with its number, as it was typed. A text that does
/// not fit one message is refused.
port_submission submission_of(std::string_view command, std::string_view text, const port_settings &settings);

/// "+CMGL=4" for +CMGL="ALL" and the like; empty for an unknown list.
std::string list_in_pdu_mode(std::string_view parameter);

/// The lines of an answer to +CMGL or +CMGR, heads and PDUs, as text mode shows them. What is no head with a PDU stays.
std::vector<std::string> text_mode_lines(const std::vector<std::string> &lines,
                                         const port_settings &settings);

/// "+CMT: ,24", CR LF and the PDU as text mode shows it; the same for +CDS. Anything else stays.
std::string text_mode_report(std::string_view report, const port_settings &settings);

#endif

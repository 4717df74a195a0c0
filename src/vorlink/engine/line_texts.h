// The texts that mean something wherever they stand in a line, all found in one pass over it: the prefixes of the report
// table, the heads of messages, the SIM card states. Any thread.
#ifndef LINE_TEXTS_H
#define LINE_TEXTS_H

#include <array>

#include "vlk_report_table.h"

/// Heads of SMS responses and reports whose message follows on the next line.
inline constexpr std::array<const char *, 4> MESSAGE_HEADS = {"+CMGR", "+CMGL", "^HCMGR", "+CBM"};

struct line_texts {
    const vlk_report_row *report = nullptr; ///< the first row of the report table whose prefix occurs
    bool message_head = false;              ///< one of MESSAGE_HEADS occurs
    bool card_state = false;                ///< one of vlk_card_state_texts occurs
};

/// Looks for all of them in a line of length bytes, which ends earlier at a NUL.
line_texts look_for_texts(const char *line, std::size_t length);

#endif

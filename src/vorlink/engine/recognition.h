// Tells what a modem line is: a final result code, an unsolicited report, or neither; completes the lines of SMS
// reports and responses that span two lines. Main thread only.
#ifndef RECOGNITION_H
#define RECOGNITION_H

#include <array>
#include <cstdint>

#include "at_words.h"
#include "line_texts.h"

struct vlk_result_row {
    int32_t code;
    const char *text; ///< nullptr ends the table
};

/// The final result codes in the order in which they are tried.
extern const std::array<vlk_result_row, AT_FINAL_RESULTS.size() + 1> vlk_result_table;

/// Returns 0 when the line begins with a final result code, which is stored in *err_code; -1 when not, or for a null
/// argument.
int atcmd_match_result(const char *line, int32_t *err_code);

/// Returns 0 when the line, of len bytes, is an unsolicited report; its handler has run then. -1 when it is not, or
/// for a null argument. *index receives the report id, or -1; err_code is not used.
int Is_report_msg(at_cmd_msg *msg, char *line, int32_t len, int32_t *index, int32_t *err_code);

/// Whether the line, in which `texts` were found, is an unsolicited report. *row receives its row of the report table,
/// nullptr for one that has none.
bool is_report(const at_cmd_msg &msg, const line_texts &texts, const char *line, const vlk_report_row **row);

/// Runs the handler of a row, if there are a row and a handler, with the line of len bytes.
void handle_report(const vlk_report_row *row, char *line, int32_t len);

/// Completes the line in line_buf, of *pos bytes, when it heads a message: puts its line end back, joins a +CBM
/// report with its PDU line, sets *hcmgr_flag for a ^HCMGR response.
void handle_sms_at(at_cmd_msg *msg, uint32_t *pos, int *hcmgr_flag);

/// Appends the body of a ^HCMGR response, up to its Ctrl-Z and line end, at dst, the end of the collection; clears
/// *hcmgr_flag. A body that the chunk cuts is lost.
void parse_hcmgr_line(char *dst, int *hcmgr_flag);

#endif

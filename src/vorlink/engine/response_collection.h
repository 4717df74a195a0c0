// The line being classified, the response collected so far, and how lines are added to it. Main thread only.
#ifndef RESPONSE_COLLECTION_H
#define RESPONSE_COLLECTION_H

#include <cstddef>
#include <cstdint>

#include "at_cmd_msg.h"

/// The line, terminated; nothing behind its terminator means anything. A chunk holds at most 1499 bytes of it; the
/// classification may put back two CR LF pairs.
inline constexpr std::size_t LINE_BUF_SIZE = MAX_ATCMD_REPORT_SIZE + 4;
extern char line_buf[LINE_BUF_SIZE];

extern char nas_response_buf[MAX_ATCMD_REPORT_SIZE]; ///< the collection
extern uint32_t nas_response_legth;                  ///< its length; above 1500 after a refused append

/// Appends n bytes. A piece that does not fit is refused and the rest of the buffer zeroed; the length grows all the
/// same, so that the overflow shows at the next line.
void collection_append(const char *text, uint32_t n);

/// Adds the line, of pos bytes, to the collection as the record wants it: joined, kept apart, raw or not at all. One is
/// for a line with the expected prefix, the other for any other response line. Returns 0, -1 when the pass over the
/// chunk ends with it.
int collect_expected_line(const at_cmd_msg &msg, uint32_t pos);
int collect_response_line(at_cmd_msg &msg, uint32_t pos);

/// Moves the collection into the record's response; the line is the final result. Returns 0, -1 when it does not fit.
int collection_settle(at_cmd_msg &msg, int32_t code, uint32_t pos);

/// Empties a collection that has become too long. Returns 0 when it did, -1 when there was no need.
int drop_overlong_collection();

/// Empties the line.
void line_clear();

/// Puts CR LF at the end of a line of length bytes. length is at most LINE_BUF_SIZE - 3.
void line_put_back_end(uint32_t length);

#endif

// The line being classified and the response collected so far. Main thread only.
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

/// Empties the line.
void line_clear();

/// Puts CR LF at the end of a line of length bytes. length is at most LINE_BUF_SIZE - 3.
void line_put_back_end(uint32_t length);

#endif

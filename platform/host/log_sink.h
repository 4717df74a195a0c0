// Where both logs go: standard error, written without ever waiting for its reader, and without changing what other
// processes share with us: pipes and terminals are opened once more, non-blocking, sockets are asked not to wait. Any
// thread.
#ifndef VLK_LOG_SINK_H
#define VLK_LOG_SINK_H

#include <cstdint>

#include <syslog.h>

enum class log_kind {
    OPERATOR, ///< what somebody may have to act upon
    TRACE,    ///< the daemon's own trace, for its developers: marked, and of lowest priority in a journal
};

/// Writes one line, masked (log_text.h). For a journal "<PRIORITY>" stands in front, elsewhere the time and the level,
/// in colour on a terminal. What cannot be written at once, or is more than a second's share, is counted; the next
/// line that can be written is preceded by a line that says how many are missing.
void log_sink_line(log_kind kind, int priority, const char *text);

/// The same from a signal handler: nothing is written when a line is being written right now.
void log_sink_line_in_handler(int priority, const char *text);

/// Writes "vorlink: TEXT", for a process that cannot go on. Time and level are left out: somebody is watching.
void log_sink_last_words(const char *text);

/// Lines of both logs that were not written since the start.
uint64_t log_sink_lost();

/// Writes one entry to the system's log (/dev/log), which outlives the process, without waiting.
void log_sink_syslog(int priority, const char *module, const char *text);

#endif

// The operator's log: what somebody may have to act upon, said once, with cause and cure. It goes to standard
// error and never holds anybody up (log_sink.h); repetitions of a line are counted and logged as one (log_history.h);
// secrets show as *** (log_text.h). A healthy daemon writes when it starts, when its modem is ready and when it ends.
#ifndef VLK_HOST_LOG_H
#define VLK_HOST_LOG_H

#include <cstdint>

#include <syslog.h>

/// Writes one line. priority: LOG_ERR, LOG_WARNING, LOG_NOTICE, LOG_INFO or LOG_DEBUG; format: as printf, without line
/// end. Lines that differ only in numbers count as one kind. Never blocks. Any thread.
void host_log(int priority, const char *format, ...) __attribute__((format(printf, 2, 3)));

/// Writes the line "started ...", and sees to it that a signal that ends the process writes one, too. Main thread,
/// once, after the settings are read.
void host_log_start();

/// When host_log_tick should be called for repetitions that are to be logged, in milliseconds of the monotonic clock;
/// -1 for never. Costs a load. Any thread.
int64_t host_log_due();

/// Logs the repetitions whose time has come. Any thread.
void host_log_tick();

#endif

// The operator's log: what somebody may have to do something about, said once, with cause and cure. It goes to standard
// error and never holds anybody up (log_sink.h); a line that repeats is counted and told as one (log_history.h);
// secrets show as *** (log_text.h). A healthy daemon writes when it starts, when its modem is ready and when it ends.
#ifndef VLK_HOST_LOG_H
#define VLK_HOST_LOG_H

#include <cstdint>

#include <syslog.h>

/// Writes one line. priority: LOG_ERR, LOG_WARNING, LOG_NOTICE, LOG_INFO or LOG_DEBUG; format: as printf, without line
/// end. Lines that are the same but for numbers are one kind of trouble. Never blocks. Any thread.
void host_log(int priority, const char *format, ...) __attribute__((format(printf, 2, 3)));

/// Writes the line "started ...", and one when a signal ends the process: as it would have without. Main thread, once,
/// with the settings read.
void host_log_start();

/// When host_log_tick should be called for repetitions that are to be told, in milliseconds of the monotonic clock;
/// -1 for never. Costs a load. Any thread.
int64_t host_log_due();

/// Tells the repetitions whose time has come. Any thread.
void host_log_tick();

#endif

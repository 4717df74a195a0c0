// The operator's log: what somebody may have to do something about, said once, with cause and cure.
#ifndef VLK_HOST_LOG_H
#define VLK_HOST_LOG_H

#include <syslog.h>

/// Writes one line. priority: LOG_ERR, LOG_WARNING, LOG_NOTICE, LOG_INFO or LOG_DEBUG; format: as printf, without line
/// end. Never blocks. Any thread.
void host_log(int priority, const char *format, ...) __attribute__((format(printf, 2, 3)));

#endif

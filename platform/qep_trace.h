/* Trace and maintenance log. Any thread. Texts may be as long as a modem line (1500 bytes) and hold any byte that
 * the modem sends; the port cuts and escapes as its log needs, and never blocks. */
#ifndef QEP_TRACE_H
#define QEP_TRACE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Traces one message. file: name of the source module; line: source line; reserved: 0; module: the service's
 * name; level: 2 error, 4 refused or minor, 8 progress, 16 detail; format: as printf, line end included or not. */
void QEP_TRACE_PrintInfo(const char *file, int line, int reserved, const char *module, int level,
                         const char *format, ...) __attribute__((format(printf, 6, 7)));

/* Writes one entry to the maintenance log, which outlives the process. Levels as above. */
void mlog_print(const char *module, int level, const char *format, ...) __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif

#endif

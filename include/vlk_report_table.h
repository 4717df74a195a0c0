/* A row of the table of unsolicited result codes and the type of its handler. */
#ifndef VLK_REPORT_TABLE_H
#define VLK_REPORT_TABLE_H

#include <cstddef>
#include <cstdint>

/// Handles one report. line: terminated, owned by the caller, valid during the call; length: its bytes as the
/// line scanner counted them. Main thread.
typedef void (*report_callback)(char *line, int32_t length);

struct vlk_report_row {
    int32_t id;         ///< number of the report type, shared with the services; neither sorted nor unique
    const char *prefix; ///< nullptr ends the table
    report_callback callback; ///< nullptr: recognised and consumed, nothing else happens
};

inline constexpr std::size_t VLK_REPORT_ROWS = 78;

#endif

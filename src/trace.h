// Traces of the daemon. A module gives its traces their file name once, as TRACE_FILE, before it includes this.
#ifndef VLK_TRACE_H
#define VLK_TRACE_H

#include "qep_trace.h"

enum trace_level : int {
    ERROR = 2,
    MINOR = 4, ///< refused, or unimportant
    PROGRESS = 8,
    DETAIL = 16
};

// A macro for the sake of the source line.
#define trace(level, ...) QEP_TRACE_PrintInfo(TRACE_FILE, __LINE__, 0, "vorlink", level, __VA_ARGS__)

#endif

// Every file of the module "vlk_report_callback" traces under the module's name.
#ifndef REPORT_TRACE_H
#define REPORT_TRACE_H

constexpr char TRACE_FILE[] = "vlk_report_callback";
#include "trace.h"

#endif

// Every file of the module "vorlink", the engine included, traces under the module's name.
#ifndef VORLINK_TRACE_H
#define VORLINK_TRACE_H

constexpr char TRACE_FILE[] = "vorlink";
#include "trace.h"

#endif

/* The platform as the daemon sees it: one header a family, all of them here. Who ports the daemon to a device
 * implements these functions and links them with vorlink_core; what a header says a function does is what the daemon
 * relies on. tests/fake_platform is the smallest port, host/ the one for Linux. Nothing is thrown, and no function of
 * the daemon is called but those that it registered. */
#ifndef VLK_PLATFORM_H
#define VLK_PLATFORM_H

#include "at_parse.h"
#include "bounded.h"
#include "k7_at_proxy.h"
#include "qep_msg.h"
#include "qep_notify.h"
#include "qep_trace.h"
#include "qep_util.h"
#include "text_helpers.h"
#include "vlk_msgq.h"
#include "vlk_task.h"

#endif

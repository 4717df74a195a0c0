/* The platform as the daemon sees it: one header a family, all of them here. To port the daemon to a device,
 * implement these functions and link them with vorlink_core; the daemon relies on what the headers say.
 * tests/fake_platform is the smallest port, host/ the one for Linux. A port throws nothing, and calls no function
 * of the daemon except those that the daemon has registered. */
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

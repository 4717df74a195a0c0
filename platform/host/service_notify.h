// What the service manager is told (sd_notify's protocol, without its library): that the daemon serves, what its modem
// does, and that its main thread is alive. Without NOTIFY_SOCKET in the environment nothing is opened and nothing sent.
#ifndef VLK_SERVICE_NOTIFY_H
#define VLK_SERVICE_NOTIFY_H

#include <cstdint>

#include "modem_state.h"

/// Takes the manager's variables out of the environment. Main thread, once, before any other thread.
void service_start();

/// READY=1: clients are served from now on. The thread that calls it is the one that the watchdog watches. Once.
void service_ready();

/// STATUS=: the modem's state and its reason. Any thread.
void service_tell(const modem_report &modem);

/// STOPPING=1. Signal handlers may call it.
void service_stopping();

/// The main thread is at work. It calls this when it begins or ends a wait, and during a long wait at the time of
/// service_due. Then WATCHDOG=1 is sent and repetitions whose time has come are logged; before, a call costs two
/// loads. Does nothing on other threads.
void service_alive();

/// The earlier of a wait's deadline and the time at which the main thread has to call service_alive, in nanoseconds of
/// the monotonic clock; NO_DEADLINE (-1) for none. On other threads the wait's deadline.
int64_t service_due(int64_t deadline);

#endif

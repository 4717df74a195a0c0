// Start-up: brings every process-wide object into a known state, in its fixed order. Main thread only.
#ifndef STARTUP_H
#define STARTUP_H

/// Does everything that comes before the main loop. *noBus becomes true when the first argument is exactly "1": the
/// service stays off the message bus. Returns 0, or -1 when the process must end: there is no notify service, or
/// noBus is null.
int vlk_startup(int argc, char *argv[], bool *noBus);

/// Creates the three queues anew, discarding what an earlier run left. Returns 0, -1 when one cannot be created; the
/// queues after it in the order (requests, replies, modem data) are not created then.
int vlk_msgq_init();

/// Starts the bus message thread. Returns 0, 1 when it cannot be started.
int vlk_start_msgproc_thread();

#endif

// The main thread's event wait as the host layer uses it: besides event bits it waits for descriptors, so that nothing
// stands between a client and the engine.
#ifndef VLK_MAIN_WAIT_H
#define VLK_MAIN_WAIT_H

#include <cstdint>

/// Handles what happened at a descriptor: its tag, and the epoll events. Runs on the main thread, nothing locked.
typedef void (*main_wait_proc)(uint32_t tag, uint32_t events);

/// Sets the handler. Call it before the first main_wait_add.
void main_wait_set_proc(main_wait_proc proc);

/// Makes the wait watch a descriptor for these epoll events, edge-triggered, until it is closed. Any thread.
/// 0, or -1 with errno.
int main_wait_add(int fd, uint32_t events, uint32_t tag);
int main_wait_change(int fd, uint32_t events, uint32_t tag);

/// The same for the modem's device, whose input at_proxy_input handles as long as there is some. EEXIST when it is
/// waited for already.
int main_wait_add_modem(int fd);
void main_wait_remove_modem(int fd);

/// Handles what has happened so far, without waiting. Main thread.
void main_wait_look();

/// Raises event bits of the main thread. Any thread.
void main_wait_raise(uint32_t events);

/// The bits of the last event wait, and those raised since; and how many waits there have been. Main thread.
uint32_t main_wait_bits();
uint32_t main_wait_count();

#endif

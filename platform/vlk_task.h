/* Threads, the event set of a task, time. */
#ifndef VLK_TASK_H
#define VLK_TASK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void *(*vlk_thread_proc)(void *argument);

/* Starts a detached thread. The reserved arguments are 0. Returns the thread's handle, 0 on failure. */
uintptr_t VLK_pthread_create(int reserved1, int reserved2, int reserved3, vlk_thread_proc proc,
                             void *argument);

/* Id of the calling thread as a target of VLK_event_send. */
int32_t VLK_task_getid(void);

/* Creates the calling thread's event set, with all bits of mask clear. 0 on success. */
int VLK_event_init(uint32_t mask);

/* Raises event bits of a task and wakes it. Bits stay raised until they are received: none is lost between two waits,
 * and the thread that receives the bit sees what was written before the call. Any thread. 0 on success. */
int VLK_event_send(int32_t task, uint32_t events);

/* Waits until a bit of mask is raised; stores the raised bits of mask and clears them. wait_ms: milliseconds, -1
 * for no limit. Non-zero when *events is set, 0 on a failure or when the time is up. The event set's owner only. */
int VLK_event_recv(uint32_t mask, int32_t wait_ms, uint32_t *events);

/* Sleeps for at least this long. */
void VLK_sleep(uint32_t milliseconds);

/* Monotonic time in whole seconds, by the same clock as the waits. Any thread. */
int32_t VLK_elapse(void);

#ifdef __cplusplus
}
#endif

#endif

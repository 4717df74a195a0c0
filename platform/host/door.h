// The door: one thread that accepts the connections of the daemon's sockets and notices who sends or hangs up.
#ifndef VLK_DOOR_H
#define VLK_DOOR_H

#include <cstdint>

/// What is done at one of the sockets. Everything runs on the door's thread, with nothing locked.
struct door_service {
    const char *name; ///< of the socket in the runtime folder

    /// Epoll events of a connection that are reported besides a hang-up.
    uint32_t events;

    /// Takes a new connection and has it watched. 0, or -1 when there is no room for its user; it is closed then.
    int (*opened)(int fd);

    /// Something happened at a slot. It may be an event of the slot's previous connection, so look before acting.
    void (*happened)(int slot);
};

/// Opens the socket, which others can connect to from now on; the first call also starts the thread. The service
/// stays the caller's and must live as long as the process. 0, or -1 after a line in the log. Opening it again does
/// nothing. Main thread.
int door_open(const door_service &service);

/// Reports to the service from now on what happens at a connection, under the number of its slot (0 to 65534), until
/// it is closed. Called by `opened`, under the lock that closing it needs, too. 0, or -1 with errno.
int door_watch(const door_service &service, int fd, int slot);

#endif

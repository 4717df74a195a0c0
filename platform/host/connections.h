// The connections of one socket, by slot, and the processes at their other ends. The owner does the locking.
#ifndef VLK_CONNECTIONS_H
#define VLK_CONNECTIONS_H

#include <array>
#include <cstddef>

#include <sys/types.h>

struct connection {
    int fd = -1; ///< -1: the slot is free
    pid_t pid = 0;
    uid_t user = 0;
};

/// The name of a process, "?" when there is no such process any more. Bytes that are not printable become '?'.
struct process_name {
    char text[32];
};
process_name name_of_process(pid_t pid);

class connections
{
public:
    static constexpr int MAX = 256;

    /// Takes a connected socket as a new connection. Its slot, or -1 when it is refused: there is no room, or its user
    /// (unless root or the daemon's own) holds half of what the others leave. The socket stays the caller's then.
    int add(int fd);

    /// Closes it. A free slot is accepted.
    void remove(int slot);

    /// Forgets it; the socket is the caller's again.
    void release(int slot);

    const connection &operator[](int slot) const { return all[static_cast<size_t>(slot)]; }
    int count() const { return used; }

private:
    bool may_add(uid_t user) const;

    std::array<connection, MAX> all{};
    int used = 0;
};

/// True when the peer has closed its end, or has shut down its sending.
bool is_hung_up(int fd);

#endif

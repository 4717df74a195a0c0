#include "connections.h"

#include <algorithm>
#include <cstdio>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

process_name name_of_process(pid_t pid)
{
    process_name name{"?"};
    char path[32];
    snprintf(path, sizeof path, "/proc/%d/comm", pid);
    FILE *const file = fopen(path, "re");
    if (file == nullptr)
        return name;
    const size_t length = fread(name.text, 1, sizeof name.text - 1, file);
    fclose(file);
    name.text[length] = '\0';
    for (char *at = name.text; *at != '\0'; ++at)
        if (*at == '\n')
            *at = '\0';
        else if (*at <= ' ' || *at > '~')
            *at = '?';
    return name;
}

bool connections::may_add(uid_t user) const
{
    if (used == MAX)
        return false;
    if (user == 0 || user == geteuid())
        return true;
    const auto own = static_cast<int>(std::ranges::count_if(
        all, [user](const connection &other) { return other.fd >= 0 && other.user == user; }));
    const int others = used - own;
    return own < (MAX - others) / 2;
}

int connections::add(int fd)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || !may_add(peer.uid))
        return -1;
    const auto room = std::ranges::find(all, -1, &connection::fd);
    *room = {fd, peer.pid, peer.uid};
    ++used;
    return static_cast<int>(room - all.begin());
}

void connections::remove(int slot)
{
    const int fd = all[static_cast<size_t>(slot)].fd;
    if (fd < 0)
        return;
    close(fd);
    release(slot);
}

void connections::release(int slot)
{
    all[static_cast<size_t>(slot)] = {};
    --used;
}

bool is_hung_up(int fd)
{
    pollfd state{fd, POLLRDHUP, 0};
    return poll(&state, 1, 0) > 0;
}

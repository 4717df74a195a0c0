#include "door.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sysexits.h>
#include <unistd.h>

#include "futex_word.h"
#include "host_counters.h"
#include "host_log.h"
#include "host_start.h"
#include "runtime_folder.h"

namespace
{
constexpr size_t SERVICES_MAX = 2;
constexpr int REST_MS = 100; // while there are no descriptors for new connections

struct open_service {
    std::atomic<const door_service *> service{nullptr}; ///< set last
    int fd = -1;
};

// What an event belongs to: the service, and the slot of a connection or one of these.
constexpr uint32_t NEW_CONNECTION = 0xFFFF;
constexpr uint32_t FOLDER_CHANGED = UINT32_MAX;

std::array<open_service, SERVICES_MAX> services;
int events_fd = -1;
int watch_fd = -1;
int64_t rest_until = 0; ///< monotonic milliseconds, 0 while new connections are accepted

uint32_t tag_of(size_t service, uint32_t slot)
{
    return static_cast<uint32_t>(service) << 16 | slot;
}

int listen_to(int fd, uint32_t events, uint32_t tag, int operation = EPOLL_CTL_ADD)
{
    epoll_event wanted{};
    wanted.events = events;
    wanted.data.u32 = tag;
    return epoll_ctl(events_fd, operation, fd, &wanted);
}

/// New connections wait while there are no descriptors for them.
void rest(bool now)
{
    rest_until = now ? monotonic_ms() + REST_MS : 0;
    for (size_t i = 0; i < services.size(); ++i)
        if (services[i].service.load() != nullptr)
            listen_to(services[i].fd, now ? uint32_t{0} : uint32_t{EPOLLIN}, tag_of(i, NEW_CONNECTION),
                      EPOLL_CTL_MOD);
}

void accept_connection(size_t index)
{
    const door_service &service = *services[index].service.load();
    const int fd = accept4(services[index].fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) {
        if (errno != EMFILE && errno != ENFILE && errno != ENOBUFS && errno != ENOMEM)
            return;
        host_log(LOG_ERR,
                 "clients have to wait at %s: %s: raise the limit of open files (LimitNOFILE, ulimit -n)",
                 service.name, strerror(errno));
        return rest(true);
    }
    if (service.opened(fd) == 0)
        return;
    host_log(LOG_WARNING, "a connection to %s is refused: there are too many, or too many of its user",
             service.name);
    ++counters.clients_refused;
    close(fd);
}

/// A socket that was removed keeps its connections but gets no new ones: it is made anew, or the process ends, so
/// that the service manager starts it again.
void look_at_folder()
{
    char ignored[1024];
    while (read(watch_fd, ignored, sizeof ignored) > 0) {}
    runtime_folder_keep();
    for (size_t i = 0; i < services.size(); ++i) {
        const door_service *const service = services[i].service;
        if (service == nullptr || runtime_folder_has(service->name))
            continue;
        char message[HOST_ERROR_SIZE] = "it cannot be watched";
        close(services[i].fd);
        services[i].fd = runtime_folder_listen(service->name, message);
        if (services[i].fd < 0 || listen_to(services[i].fd, EPOLLIN, tag_of(i, NEW_CONNECTION)) != 0)
            host_fail(EX_OSERR, "somebody removed the socket %s: %s", service->name, message);
        host_log(LOG_WARNING, "somebody removed the socket %s: it was made anew", service->name);
    }
}

void *door_thread(void *)
{
    pthread_setname_np(pthread_self(), "door");
    std::array<epoll_event, 32> came;
    for (;;) {
        const int count = epoll_wait(events_fd, came.data(), came.size(), rest_until != 0 ? REST_MS : -1);
        for (int i = 0; i < count; ++i) {
            const uint32_t tag = came[static_cast<size_t>(i)].data.u32;
            if (tag == FOLDER_CHANGED)
                look_at_folder();
            else if ((tag & NEW_CONNECTION) == NEW_CONNECTION)
                accept_connection(tag >> 16);
            else
                services[tag >> 16].service.load()->happened(static_cast<int>(tag & NEW_CONNECTION));
        }
        if (rest_until != 0 && monotonic_ms() >= rest_until)
            rest(false);
    }
}

int start_thread()
{
    events_fd = epoll_create1(EPOLL_CLOEXEC);
    watch_fd = runtime_folder_watch();
    if (watch_fd >= 0)
        listen_to(watch_fd, EPOLLIN, FOLDER_CHANGED);
    pthread_t thread{};
    if (events_fd < 0 || pthread_create(&thread, nullptr, door_thread, nullptr) != 0)
        return -1;
    pthread_detach(thread);
    return 0;
}
} // namespace

int door_open(const door_service &service)
{
    size_t index = 0;
    while (services[index].service.load() != nullptr) {
        if (services[index].service.load() == &service)
            return 0;
        if (++index == services.size())
            return -1;
    }
    char message[HOST_ERROR_SIZE];
    const int fd = runtime_folder_listen(service.name, message);
    if (fd < 0) {
        host_log(LOG_ERR, "%s", message);
        return -1;
    }
    services[index].fd = fd;
    services[index].service = &service;
    if ((events_fd < 0 && start_thread() != 0) ||
        listen_to(fd, EPOLLIN, tag_of(index, NEW_CONNECTION)) != 0) {
        host_log(LOG_ERR, "cannot serve the socket %s: %s", service.name, strerror(errno));
        return -1;
    }
    return 0;
}

int door_watch(const door_service &service, int fd, int slot)
{
    const auto index = services[0].service.load() == &service ? size_t{0} : size_t{1};
    return listen_to(fd, service.events | EPOLLRDHUP, tag_of(index, static_cast<uint32_t>(slot)));
}

// A daemon as its clients see it: the runtime folder, the event page in it, the claim that tells whether it lives.
#ifndef VLK_DAEMON_PAGE_H
#define VLK_DAEMON_PAGE_H

#include <string>

#include "host_config.h"
#include "host_wire.h"
#include "vlk_client.h"

/// The runtime folder that place (may be none) or the environment names. A vlk_result.
int find_folder(const vlk_place *place, host_paths *paths);

/// What errno of opening or connecting to a file of the daemon means for the user. A vlk_result, never VLK_OK.
int explain_failure(const host_paths &paths, const char *name, int error);

/// The mapped event page. One thread.
class daemon_page
{
public:
    daemon_page() = default;
    daemon_page(const daemon_page &) = delete;
    daemon_page &operator=(const daemon_page &) = delete;
    ~daemon_page();

    /// Maps the page of the daemon at place, which must live. A vlk_result.
    int open(const vlk_place *place);

    /// True while the daemon that claimed the IPC base lives.
    bool alive() const;

    /// Looks up a queue of the daemon by its key, readable and writable. A vlk_result.
    int find_queue(uint32_t key, int *queue) const;

    /// What errno of a call on one of the queues means for the user. A vlk_result, never VLK_OK.
    int explain_queue_failure(int error) const;

    const host_paths &paths() const { return paths_; }
    host_page *operator->() const { return page_; }

private:
    int map();

    host_paths paths_{};
    host_page *page_ = nullptr;
    int claim_ = -1;
};

#endif

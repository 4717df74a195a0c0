// What the host layer shares with other processes: the event page, the keys of the queues, the packets of the hub.
// The client library is built on this header; docs/host.md describes it for everybody else.
#ifndef VLK_HOST_WIRE_H
#define VLK_HOST_WIRE_H

#include <atomic>
#include <cstdint>

#include "at_cmd_msg.h"
#include "modem_state.h"

// ---- Names. Every daemon has a runtime folder and an IPC base of its own.

inline constexpr char HOST_PAGE_NAME[] = "events"; ///< in the runtime folder: the event page
inline constexpr char HOST_HUB_NAME[] = "hub";     ///< in the runtime folder: the hub's socket
inline constexpr uint32_t HOST_DEFAULT_BASE =
    0x766C6B00; ///< System V keys: base + queue key; base + 0: see below

// ---- The daemon's claim on an IPC base: a System V semaphore with key base + 0, one semaphore, value 1 while a
// daemon lives (raised with SEM_UNDO, so the kernel lowers it when the daemon dies).

inline constexpr uint32_t HOST_CLAIM_KEY = 0;

// ---- The event page: one page of shared memory, the file "events", mode 0660. Words are waited on with a futex
// (not private). A client that queued a request adds its bit to `events` and wakes one waiter; a client that
// waits for a reply sleeps on `replies`.

inline constexpr uint32_t HOST_PAGE_MAGIC = 0x4B4C5601;

struct host_page {
    std::atomic<uint32_t> magic;  ///< HOST_PAGE_MAGIC once the daemon has set the page up
    std::atomic<int32_t> pid;     ///< the daemon
    std::atomic<uint32_t> base;   ///< its IPC base
    std::atomic<uint32_t> modem;  ///< host_modem_state
    std::atomic<uint32_t> events; ///< raised event bits of the daemon's main thread
    std::atomic<uint32_t>
        requests; ///< count of requests that the daemon took: a full request queue has room again
    std::atomic<uint32_t> replies;     ///< count of replies that the daemon queued
    std::atomic<uint32_t> room_wanted; ///< not 0: clients sleep on `requests`; takes wake them one by one
};
static_assert(sizeof(host_page) == 32 && std::atomic<uint32_t>::is_always_lock_free);

// ---- Messages of the extended queues: a positive type and the whole record. A request's type is HOST_REQUEST_TYPE,
// a reply's type is the record's Id, so a client takes exactly its own.
// An Id of the client library: process id in the low 22 bits, a number that is unique in the process above them
// (0 to 511). The daemon takes an Id whose low 22 bits name no process for that of a dead client.

inline constexpr long HOST_REQUEST_TYPE = 1;
inline constexpr uint32_t HOST_ID_PID_BITS = 22;

struct host_queue_message {
    long type;
    at_cmd_msg record;
};

/// Who sleeps on `replies` for a reply to this Id, as futexes take it: few clients share a bit.
inline constexpr uint32_t host_reply_waiter(int32_t id)
{
    const auto bits = static_cast<uint32_t>(id);
    return 1U << ((bits ^ bits >> HOST_ID_PID_BITS) % 32);
}

// ---- The hub: a Unix SOCK_SEQPACKET socket. One packet is a header and `length` bytes of data.

enum host_packet_kind : uint32_t {
    // daemon to service
    HOST_EVENT = 1,       ///< VLK_post_notify: module, code = event id, value1, value2; no data
    HOST_EVENT_DATA = 2,  ///< VLK_post_notify_ex: module, code = event id; data
    HOST_BUS_MESSAGE = 3, ///< name = destination, code = message type; data (a simple message: its parameter)
    HOST_SYNC_REPLY =
        4, ///< code = message id, value1 = result of the handler (0: data is the reply), value2 as sent
    HOST_SUBSCRIBED = 5, ///< answers a subscription, when it is in force; module, name and value1 as sent

    // service to daemon
    HOST_SUBSCRIBE = 16, ///< value1 = what is wanted (host_subscription), with module or name
    HOST_BUS_SEND = 17,  ///< code = message type; data: the payload. Handled by the daemon's bus thread
    HOST_SYNC_REQUEST =
        18, ///< module, code = message id, value2 = the sender's own number; data: the request
};

enum host_subscription : int32_t {
    HOST_TAKE_MODULE = 0, ///< the events of one module
    HOST_TAKE_NAME = 1,   ///< the bus messages to one name
    HOST_TAKE_ALL = 2,    ///< everything
};

inline constexpr uint32_t HOST_NAME_SIZE = 32;
inline constexpr uint32_t HOST_DATA_MAX = 4096; ///< bytes of data in one packet

struct host_packet {
    uint32_t kind;  ///< host_packet_kind
    int32_t module; ///< module id
    uint32_t code;  ///< event id, message type or message id
    int32_t value1;
    int32_t value2;
    uint32_t missed;           ///< packets for this listener that were dropped since the last one it got
    char name[HOST_NAME_SIZE]; ///< bus name, terminated and zero-filled
    uint32_t length;           ///< bytes of data that follow
};
static_assert(sizeof(host_packet) == 60);

#endif

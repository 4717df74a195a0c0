// What the host layer shares with other processes: the sockets of the runtime folder and the packets of the hub. The
// client library is built on this header; docs/host.md describes it for everybody else.
#ifndef VLK_HOST_WIRE_H
#define VLK_HOST_WIRE_H

#include <cstdint>

#include "at_cmd_msg.h"

// ---- Files in the runtime folder, which belongs to one daemon.

inline constexpr char HOST_COMMANDS_NAME[] = "commands"; ///< SOCK_SEQPACKET: one packet is one at_cmd_msg
inline constexpr char HOST_HUB_NAME[] = "hub";           ///< SOCK_SEQPACKET: see below
inline constexpr char HOST_LOCK_NAME[] = "lock";         ///< locked with flock while the daemon lives

// ---- The hub: a Unix SOCK_SEQPACKET socket. One packet is a header and `length` bytes of data.

enum host_packet_kind : uint32_t {
    // daemon to service
    HOST_EVENT = 1,       ///< VLK_post_notify: module, code = event id, value1, value2; no data
    HOST_EVENT_DATA = 2,  ///< VLK_post_notify_ex: module, code = event id; data
    HOST_BUS_MESSAGE = 3, ///< name = destination, code = message type; data (a simple message: its parameter)
    HOST_SYNC_REPLY =
        4, ///< code = message id, value1 = result of the handler (0: data is the reply), value2 as sent
    HOST_SUBSCRIBED = 5,  ///< answers a subscription once it is in force; module, name and value1 as sent
    HOST_STATUS = 6,      ///< answers HOST_ASK_STATUS; data: lines of a name, a blank and a value
    HOST_REPORT_LINE = 7, ///< for HOST_TAKE_LINES; data: an unsolicited line of the modem without its end
    HOST_ANSWER_TEXT =
        8, ///< for HOST_TAKE_ANSWERS; module = process, value1 and code = Id and seq of the request,
           ///< value2 = host_answer_flags; data: text of the modem, its line ends included

    // service to daemon
    HOST_SUBSCRIBE = 16, ///< value1 = what is wanted (host_subscription), with module or name
    HOST_BUS_SEND = 17,  ///< code = message type; data: the payload. Handled by the daemon's bus thread
    HOST_SYNC_REQUEST =
        18, ///< module, code = message id, value2 = the sender's own number; data: the request
    HOST_ASK_STATUS = 19,
};

enum host_subscription : int32_t {
    HOST_TAKE_MODULE = 0,  ///< the events of one module
    HOST_TAKE_NAME = 1,    ///< the bus messages to one name
    HOST_TAKE_ALL = 2,     ///< everything but lines and answers
    HOST_TAKE_LINES = 3,   ///< the modem's unsolicited lines
    HOST_TAKE_ANSWERS = 4, ///< what the modem says while commands of the listener's own process run
};

enum host_answer_flags : int32_t {
    HOST_ANSWER_OWN = 1, ///< the command's answer; without this flag, reports that came meanwhile
    HOST_ANSWER_CUT = 2, ///< the answer was too long: lines of it were dropped
};

inline constexpr uint32_t HOST_BUS_RELEASE_MODEM = 34821; ///< bus message of root and the daemon's user only

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

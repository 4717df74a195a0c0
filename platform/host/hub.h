// The hub: the socket on which services take the daemon's notifications and bus messages and send it messages and
// requests (host_wire.h has the packets). The door's thread accepts listeners and reads what they send; every thread of
// the daemon posts.
#ifndef VLK_HUB_H
#define VLK_HUB_H

#include <cstdint>

#include "host_wire.h"

/// Handles one packet that a listener sent; data is header->length bytes and zeros behind them, valid during the
/// call. reply_to, greater than 0, names the sender: good for hub_reply during the call. Runs on the door's thread,
/// nothing locked.
typedef void (*hub_packet_proc)(const host_packet *header, const void *data, int reply_to);

/// Opens the socket. 0, or -1 after a line in the log that names cause and cure. Opening it again is no error.
int hub_open();

/// Sets the handler of HOST_BUS_SEND or HOST_SYNC_REQUEST; packets without a handler are dropped. Any thread.
void hub_set_handler(host_packet_kind kind, hub_packet_proc proc);

/// Sends a packet to every listener that subscribed to its module (events) or name (bus messages). Never blocks; a
/// listener without room misses it and learns that from the next one it gets. Any thread, in order. 0, or -1 when
/// there is more data than HOST_DATA_MAX, or data is null although there should be some.
int hub_post(const host_packet &header, const void *data);

/// Sends a packet to one listener, with the same rules. Handlers only.
void hub_reply(int reply_to, const host_packet &header, const void *data);

/// Services that have subscribed to something other than answers. Any thread.
int hub_listener_count();

/// Whether any listener takes the modem's unsolicited lines, or answers. Any thread.
bool hub_takes_lines();
bool hub_takes_answers();

#endif

// Numbers under which the service is known on the message bus and the notify service.
#ifndef BUS_MESSAGES_H
#define BUS_MESSAGES_H

#include <cstdint>

inline constexpr int32_t MODULE_VORLINK = 31;
inline constexpr uint32_t MSG_DATACARD_UNINSTALL = 34821; ///< received: the data card goes away
inline constexpr uint32_t SYNC_STOP_NET_SCAN =
    31008; ///< synchronous request; reply: one uint32, 1 done, 0 not

#endif

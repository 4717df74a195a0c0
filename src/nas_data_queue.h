// The modem-data queue: carries modem text from the AT proxy to the main thread.
#ifndef NAS_DATA_QUEUE_H
#define NAS_DATA_QUEUE_H

#include <cstddef>
#include <cstdint>

#include "k7_at_proxy.h"

inline constexpr uint32_t NAS_DATA_MAX = K7_DELIVERY_MAX; ///< bytes of modem text in one record

/// One delivery of the AT proxy.
struct nas_data_rec {
    char data[1500]; ///< as delivered, then zeros, at least one
    uint16_t length; ///< valid bytes in data, at most NAS_DATA_MAX
};
static_assert(sizeof(nas_data_rec) == 1502 && offsetof(nas_data_rec, length) == 1500);

/// Queues a copy of length bytes and announces it to the main thread. Returns 1, or 0 when the data is null or too
/// long, or the queue refuses it; the text is lost then. Called by the AT proxy, on
/// one thread at a time.
int vlk_queue_nas_data(const char *data, uint32_t length);

#endif

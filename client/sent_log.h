// What this user sent with a request for a report, so that a later report can be matched to it. A file of at
// most 64 KiB, for its owner only: $XDG_STATE_HOME/vlkctl/sent, by default below ~/.local/state. No message text is in it.
#ifndef VLK_SENT_LOG_H
#define VLK_SENT_LOG_H

#include <cstdint>
#include <optional>
#include <string>

struct sent_part {
    uint8_t reference; // of the modem
    std::string number;
    int part;
    int parts;
    int64_t time; // seconds since 1970
};

/// False, with errno, when it cannot be remembered.
bool remember_sent(const sent_part &part);

/// The latest part with this reference to this number, of which only the last digits are compared.
std::optional<sent_part> find_sent(uint8_t reference, const std::string &number);

#endif

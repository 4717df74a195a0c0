// The modem's memories for short messages: numbered places that hold PDUs in hexadecimal form.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace modemsim
{

/// As AT+CMGL counts them.
enum class message_state {
    unread,
    read,
    unsent,
    sent
};

struct stored_message {
    message_state state;
    std::string pdu;
};

/// One memory. Places count from 1; a new message takes the lowest free one.
class message_memory
{
public:
    explicit message_memory(unsigned places = 0) : places_(places) {}

    /// The place that it took; nothing when the memory is full.
    std::optional<unsigned> add(stored_message message);

    /// nullptr for an empty place.
    stored_message *find(unsigned place);

    bool erase(unsigned place) { return messages_.erase(place) > 0; }

    /// By the flag of AT+CMGD: 1 what was read, 2 also what was sent, 3 also what is unsent, 4 all.
    void erase_by_flag(unsigned flag);

    std::size_t used() const { return messages_.size(); }
    unsigned places() const { return places_; }
    std::map<unsigned, stored_message> &messages() { return messages_; }

private:
    unsigned places_;
    std::map<unsigned, stored_message> messages_;
};

} // namespace modemsim

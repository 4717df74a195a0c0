#include "message_store.h"

#include <utility>

namespace modemsim
{

std::optional<unsigned> message_memory::add(stored_message message)
{
    for (unsigned place = 1; place <= places_; ++place)
        if (messages_.try_emplace(place, std::move(message)).second) // moves only when it takes the place
            return place;
    return std::nullopt;
}

stored_message *message_memory::find(unsigned place)
{
    const auto found = messages_.find(place);
    return found == messages_.end() ? nullptr : &found->second;
}

void message_memory::erase_by_flag(unsigned flag)
{
    std::erase_if(messages_, [&](const auto &entry) {
        switch (entry.second.state) {
        case message_state::read:
            return flag >= 1;
        case message_state::sent:
            return flag >= 2;
        case message_state::unsent:
            return flag >= 3;
        case message_state::unread:
            break;
        }
        return flag >= 4;
    });
}

} // namespace modemsim

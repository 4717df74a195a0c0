#include "joiner.h"

#include <algorithm>
#include <iterator>

namespace sms
{
namespace
{
bool belongs(const message &to, const pdu &part)
{
    const content &held = to.first.data;
    const content &data = part.data;
    return to.first.type == part.type && to.first.peer == part.peer && held.wide == data.wide &&
           held.reference == data.reference && held.count == data.count && held.coding == data.coding &&
           to.places[data.number - 1U] < 0;
}

void add(message &to, const pdu &part, int64_t place)
{
    to.places[part.data.number - 1U] = place;
    to.units[part.data.number - 1U] = part.data.units;
}
} // namespace

bool message::whole() const
{
    return std::ranges::count(places, -1) == 0;
}

std::string message::text() const
{
    std::string text;
    content data = first.data;
    data.units.clear();
    for (size_t at = 0; at < places.size(); at++) {
        data.units += units[at];
        const bool gap = places[at] < 0;
        if (gap || at + 1 == places.size()) {
            text += text_of(data) + (gap ? "[...]" : "");
            data.units.clear();
        }
    }
    return text;
}

std::vector<message> joiner::take(const pdu &part, int64_t place)
{
    auto found = std::ranges::find_if(waiting_, [&part](const message &m) { return belongs(m, part); });
    if (found == waiting_.end()) {
        const size_t count = part.data.count;
        waiting_.push_back({part, std::vector<int64_t>(count, -1), std::vector<std::u16string>(count)});
        found = std::prev(waiting_.end());
    }
    add(*found, part, place);
    if (!found->whole()) {
        if (waiting_.size() <= MAX_WAITING)
            return {};
        found = waiting_.begin();
    }
    std::vector<message> ready = {std::move(*found)};
    waiting_.erase(found);
    return ready;
}

std::vector<message> joiner::take_rest()
{
    std::vector<message> rest(std::make_move_iterator(waiting_.begin()),
                              std::make_move_iterator(waiting_.end()));
    waiting_.clear();
    return rest;
}
} // namespace sms

#include "turns.h"

#include <algorithm>
#include <tuple>

int turns::find_or_add(uint32_t user)
{
    const auto is_users = [user](const user_state &state) { return state.lanes > 0 && state.user == user; };
    auto found = std::ranges::find_if(users, is_users);
    if (found == users.end()) {
        found = std::ranges::find(users, 0, &user_state::lanes);
        *found = {user, 0, turn - 1};
    }
    return static_cast<int>(found - users.begin());
}

void turns::open(int lane, uint32_t user)
{
    const int owner = find_or_add(user);
    ++users[static_cast<size_t>(owner)].lanes;
    lanes[static_cast<size_t>(lane)] = {true, false, owner, turn - 1};
    lanes_end = std::max(lanes_end, lane + 1);
}

void turns::close(int lane)
{
    lane_state &state = lanes[static_cast<size_t>(lane)];
    if (state.is_open)
        --users[static_cast<size_t>(state.owner)].lanes;
    state = {};
}

void turns::set_ready(int lane, bool is_ready)
{
    lane_state &state = lanes[static_cast<size_t>(lane)];
    state.is_ready = is_ready && state.is_open;
}

int turns::next() const
{
    const auto turn_of = [this](const lane_state &state) {
        return std::tuple(users[static_cast<size_t>(state.owner)].last_turn, state.last_turn);
    };
    const lane_state *best = nullptr;
    for (int lane = 0; lane < lanes_end; ++lane) {
        const lane_state &state = lanes[static_cast<size_t>(lane)];
        if (state.is_ready && (best == nullptr || turn_of(state) < turn_of(*best)))
            best = &state;
    }
    return best == nullptr ? -1 : static_cast<int>(best - lanes.data());
}

void turns::served(int lane)
{
    lane_state &state = lanes[static_cast<size_t>(lane)];
    state.last_turn = users[static_cast<size_t>(state.owner)].last_turn = turn += 2;
}

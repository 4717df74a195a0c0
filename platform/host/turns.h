// Whose request is served next: turns go round between users first, then between the lanes of one user. A lane is one
// client's connection. Pure: no input or output, no clock, no heap; one thread at a time.
#ifndef VLK_TURNS_H
#define VLK_TURNS_H

#include <array>
#include <cstdint>

class turns
{
public:
    static constexpr int LANES_MAX = 256;

    /// A new lane, or one whose number is used again. It comes behind everybody who waits already, so opening lanes
    /// again and again wins nothing.
    void open(int lane, uint32_t user);
    void close(int lane);

    /// Whether the lane has, or may have, a request that can be served.
    void set_ready(int lane, bool is_ready);

    /// The lane whose turn it is, -1 when none is ready.
    int next() const;

    /// The lane has had its turn.
    void served(int lane);

private:
    struct lane_state {
        bool is_open = false;
        bool is_ready = false;
        int owner = 0; ///< in users
        uint64_t last_turn = 0;
    };
    struct user_state {
        uint32_t user = 0;
        int lanes = 0; ///< 0: not in use
        uint64_t last_turn = 0;
    };

    int find_or_add(uint32_t user);

    std::array<lane_state, LANES_MAX> lanes{};
    std::array<user_state, LANES_MAX> users{};
    int lanes_end = 0; ///< behind the last lane that was ever open
    uint64_t turn = 1; ///< of the lane served last; a new lane comes right before it
};

#endif

// Puts the parts of long messages together. One thread at a time.
#ifndef VLK_SMS_JOINER_H
#define VLK_SMS_JOINER_H

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "pdu.h"

namespace sms
{
/// A message of one part or more. What all parts share stands in `first`, the part that came first.
struct message {
    pdu first;
    std::vector<int64_t> places; ///< where each part came from, by its number; -1: it is missing
    std::vector<std::u16string> units;

    bool whole() const;

    /// UTF-8; hexadecimal digits of 8-bit data. A missing part is shown as "[...]".
    std::string text() const;
};

/// Holds messages whose parts have not all come. Two messages with the same sender, reference and number of parts at
/// the same time cannot be told apart unless a part comes twice: the second one then begins a message of its own.
class joiner
{
public:
    static constexpr size_t MAX_WAITING = 64;

    /// Takes a message. place: where it came from, 0 or more. Returns the message that it completes, or none; when too
    /// many wait, the oldest of them, incomplete.
    std::vector<message> take(const pdu &part, int64_t place);

    /// What still waits, oldest first. The joiner is empty then.
    std::vector<message> take_rest();

private:
    std::list<message> waiting_;
};
} // namespace sms

#endif

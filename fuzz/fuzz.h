// What all fuzzers share: promises that end the process when they are broken, and a reader of the input.
#ifndef FUZZ_H
#define FUZZ_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size);

/// Ends the process with a message, so that the input is kept, unless the promise was kept.
inline void require(bool kept, const char *promise)
{
    if (kept)
        return;
    std::fprintf(stderr, "fuzz: broken promise: %s\n", promise);
    std::abort();
}

/// Reads an input from front to back; past its end there are zeros and empty parts.
class fuzz_input
{
public:
    fuzz_input(const uint8_t *data, std::size_t size) : rest(reinterpret_cast<const char *>(data), size) {}

    bool empty() const { return rest.empty(); }

    std::string_view take(std::size_t size)
    {
        const std::string_view taken = rest.substr(0, size);
        rest.remove_prefix(taken.size());
        return taken;
    }

    uint8_t take_byte()
    {
        const std::string_view taken = take(1);
        return taken.empty() ? uint8_t{0} : static_cast<uint8_t>(taken[0]);
    }

    /// Takes what stands before the next byte 0xFE, and that byte.
    std::string_view take_part()
    {
        const std::string_view part = rest.substr(0, rest.find('\xFE'));
        rest.remove_prefix(std::min(rest.size(), part.size() + 1));
        return part;
    }

private:
    std::string_view rest;
};

#endif

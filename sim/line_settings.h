// How the modem writes its lines: echo, words or numbers, quiet, and the two characters that end a line.
#pragma once

#include "pattern.h"

#include <string>
#include <string_view>

namespace modemsim
{

/// The variables echo, verbose, quiet, s3 and s4 as AT commands set them.
class line_settings
{
public:
    /// What the variables say; what they lack is as after power-up: no echo, words, not quiet, CR, LF.
    explicit line_settings(const variables &values);

    bool echo() const { return echo_; }
    char carriage_return() const { return carriage_return_; }
    char line_feed() const { return line_feed_; }
    std::string line_end() const { return {carriage_return_, line_feed_}; }

    /// A line of an answer; `first` when no other stands directly before it.
    std::string line(std::string_view text, bool first) const;

    /// A final result, or nothing when quiet.
    std::string result(std::string_view text) const;

    /// An unsolicited line.
    std::string report(std::string_view text) const;

private:
    bool echo_;
    bool verbose_;
    bool quiet_;
    char carriage_return_;
    char line_feed_;
};

} // namespace modemsim

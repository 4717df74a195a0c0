// A modem on a virtual clock and its client.
#ifndef SIM_SESSION_H
#define SIM_SESSION_H

#include "modem.h"

#include "../modem_text.h"

#include <algorithm>
#include <string>
#include <string_view>

/// The built-in dialogue without its reports and without echo.
constexpr char quiet_dialogue[] = "include default\nforget reports\nset echo 0\n";

struct session : modemsim::modem {
    explicit session(const std::string &more = "", const std::string &base = quiet_dialogue)
        : modem(modemsim::parse_dialogue(base + more, "t"), 1)
    {
        client_opened(modemsim::milliseconds(0));
    }

    /// Everything that the modem sends until `until` when it gets these bytes now.
    std::string answer(std::string_view bytes, int until)
    {
        receive(bytes);
        while (true) {
            advance(now);
            const auto due = next_due();
            if (!due || *due > modemsim::milliseconds(until))
                break;
            now = *due;
        }
        now = std::max(now, modemsim::milliseconds(until));
        std::string sent(output());
        written(sent.size());
        return sent;
    }

    modemsim::milliseconds now{0};
};

#endif

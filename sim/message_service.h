// What the modem does with short messages: the `messages` steps of a dialogue, and messages that arrive. Settings are
// the dialogue's variables: cmgf, cnmi, csmp, csca, cscs, csdh, clock; see sim/README.md.
#pragma once

#include "message_store.h"
#include "pattern.h"

#include <array>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace modemsim
{

class message_service
{
public:
    /// What a step leads to: lines of the answer, or the number of a +CMS ERROR.
    struct answer {
        std::vector<std::string> lines;
        int error = 0;
    };

    /// What an arriving message leads to: a report, unless the client did not ask for one, or why it was refused.
    struct arrival {
        std::string report;
        std::string refusal;
    };

    /// Empties the memories, fills the first one and updates the variables.
    void reset(const std::vector<stored_message> &messages, variables &values);

    /// True for a name that serve() knows.
    static bool knows(std::string_view action);

    /// Does what `messages ACTION ARGUMENTS` says. `line_end` stands between the lines of one entry.
    answer serve(std::string_view action, std::string_view arguments, variables &values,
                 std::string_view line_end);

    /// True for the actions that make a message arrive: `loop` and `report`, with the reference of a message sent.
    static bool arrives(std::string_view action);
    arrival serve_arrival(std::string_view action, std::string_view arguments, variables &values,
                          bool client_listens, std::string_view line_end);

    /// A message, or a status report, comes from the network. It is stored or reported as AT+CNMI asks.
    arrival arrive(std::string_view pdu, variables &values, bool client_listens, std::string_view line_end);

    /// The same for a text in UTF-8.
    arrival arrive_text(std::string_view number, std::string_view text, variables &values,
                        bool client_listens, std::string_view line_end);

    /// A status report for the message sent under this reference, wanted or not.
    arrival arrive_report(std::string_view reference, unsigned status, variables &values, bool client_listens,
                          std::string_view line_end);

private:
    using action_function = answer (message_service::*)(std::string_view arguments, variables &values,
                                                        std::string_view line_end);
    struct action_row;
    static const action_row actions[];

    answer list(std::string_view state, variables &values, std::string_view line_end);
    answer read(std::string_view place, variables &values, std::string_view line_end);
    answer erase(std::string_view arguments, variables &values, std::string_view line_end);
    answer write(std::string_view state, variables &values, std::string_view line_end);
    answer compose(std::string_view number, variables &values, std::string_view line_end);
    answer load(std::string_view place, variables &values, std::string_view line_end);
    answer sent(std::string_view, variables &values, std::string_view line_end);
    answer select(std::string_view names, variables &values, std::string_view line_end);

    message_memory &used_for(const char *purpose, const variables &values);
    void tell_usage(variables &values);

    std::map<std::string, message_memory, std::less<>> memories_;
    std::map<std::string, std::string, std::less<>> sent_; // PDUs by reference
};

} // namespace modemsim

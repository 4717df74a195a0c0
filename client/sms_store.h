// Messages in the modem's store, and sending: which commands, in which order, and what their answers mean. The way to
// the modem is the caller's, so that tests can play it. One thread at a time.
#ifndef VLK_SMS_STORE_H
#define VLK_SMS_STORE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vlk_client.h"

namespace sms
{
/// What came of one command.
struct answer {
    int failed = VLK_OK;      ///< a vlk_result; unless VLK_OK nothing else counts
    int32_t result = AT_NONE; ///< the final result, as in a reply's ret_val
    std::string text;         ///< the response lines, or the final line with its cause; never what was sent
    bool unasked = false;     ///< write: the modem said OK without having asked for the PDU
};

class modem
{
public:
    virtual ~modem() = default;

    /// A plain command. expected: the prefix of its response lines.
    virtual answer ask(const std::string &command, const char *expected) = 0;

    /// Writes a PDU behind AT+CMGS or AT+CMGW.
    virtual answer write(vlk_sms action, const std::string &pdu) = 0;
};

/// Why something was not done.
struct trouble {
    enum cause : uint8_t {
        library,  ///< the library's failure, number `result`
        refused,  ///< the modem's error
        silence,  ///< no answer in time
        nonsense, ///< an answer that cannot be
        missing   ///< no such message, or some could not be read
    };
    cause kind;
    int32_t result; ///< a vlk_result or a final result
    std::string text;
};
using troubles = std::optional<trouble>;

/// How the modem marks a stored message.
enum class mark : uint8_t {
    unread = 0,
    read = 1,
    unsent = 2,
    sent = 3
};
const char *name_of(mark status);

struct stored {
    int index = 0;
    mark status = mark::unread;
    int octets = 0;  ///< of the PDU behind the service centre's part, as the modem says
    std::string hex; ///< the PDU

    bool operator==(const stored &) const = default;
};

/// Reads the answer to AT+CMGL or AT+CMGR in PDU mode; index: of the message that AT+CMGR asked for. False when it is
/// no such answer or was cut; what was read before is in `to`.
bool read_stored(std::string_view text, int index, std::vector<stored> &to);

struct store_state {
    std::string memory; ///< "SM" for example
    int used = 0;
    int total = 0;
};

troubles ask_state(modem &link, store_state &to);

/// All messages by index. Reading marks received messages as read in the modem; `status` is the mark from before.
/// Even with trouble there may be messages: those that could be read.
troubles list(modem &link, std::vector<stored> &to);
troubles read(modem &link, int index, stored &to);
troubles remove(modem &link, int index);

/// Deletes every received message that is marked read; count: how many, -1 when the modem does not say.
troubles remove_read(modem &link, int &count);

/// Sends or saves. reference: of the message, or where it was saved; -1 when the modem confirmed without a number. A
/// modem that says OK without having asked for the PDU has not taken it: that is trouble.
troubles put(modem &link, vlk_sms action, const std::string &pdu, int &reference);
} // namespace sms

#endif

// A connection to the daemon for commands that ask the modem several things.
#ifndef VLK_CTL_SESSION_H
#define VLK_CTL_SESSION_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ctl_commands.h"
#include "vlk_client.h"

inline constexpr int32_t OTHERS_SECONDS = 30; // granted to the requests that are ahead

using client_handle = std::unique_ptr<vlk_client, decltype(&vlk_close)>;
using hub_handle = std::unique_ptr<vlk_hub, decltype(&vlk_hub_close)>;

struct modem_answer {
    int result = VLK_OK; // of the library; when it is not VLK_OK the rest means nothing
    int32_t ret_val = AT_NONE;
    std::vector<std::string> lines;
    std::string final_result;
    bool cut = false;

    bool succeeded() const { return result == VLK_OK && ret_val == AT_OK; }
    /// The first line, or the final result when there is none.
    std::string line() const { return lines.empty() ? final_result : lines[0]; }
};

class ctl_session
{
public:
    /// A vlk_result. Waits for a modem that is not ready as long as the limits say.
    int open(const common_options &common, const request_options &limits = {});
    modem_answer ask(const std::string &command, int32_t timeout = 10);
    /// The same, but Ctrl-C ends the wait (call catch_interrupts before): the command is withdrawn, the result is
    /// VLK_TIMEOUT. look is called a few times a second.
    modem_answer ask_until_interrupt(
        const std::string &command, int32_t timeout, const std::function<void()> &look = [] {});
    /// The first line of a successful answer, else empty.
    std::string line_of(const std::string &command);
    /// Withdraws what is under way.
    void close() { client_.reset(); }
    /// The result of the last ask that failed in the library, else VLK_OK: the daemon has gone, say.
    int failed() const { return failed_; }
    vlk_client *client() const { return client_.get(); }
    uint32_t modem() const { return vlk_client_modem(client_.get()); }

private:
    client_handle client_{nullptr, vlk_close};
    int failed_ = VLK_OK;
};

#endif

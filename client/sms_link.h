// The way of vlkctl sms to the modem: through the daemon, one request after the other.
#ifndef VLK_SMS_LINK_H
#define VLK_SMS_LINK_H

#include <memory>

#include "ctl_commands.h"
#include "sms_store.h"

class daemon_link : public sms::modem
{
public:
    daemon_link(const common_options &common, const request_options &limits)
        : common_(common), limits_(limits), client_(nullptr, vlk_close)
    {
    }
    sms::answer ask(const std::string &command, const char *expected) override;
    sms::answer write(vlk_sms action, const std::string &pdu) override;

private:
    sms::answer exchange(at_cmd_msg &record, int phases);

    const common_options &common_;
    const request_options &limits_;
    std::unique_ptr<vlk_client, decltype(&vlk_close)> client_; // opened at the first command
};

/// Reports the trouble on standard error, in JSON on standard output as well, and returns the exit code.
int report_trouble(const sms::trouble &what, bool json);

#endif

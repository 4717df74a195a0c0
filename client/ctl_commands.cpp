#include "ctl_commands.h"

#include <string_view>

#include "ctl_output.h"
#include "ctl_session.h"

using std::string_view;

namespace
{
constexpr int32_t RSSI_LIMIT_MS = 30000;

int exchange(const common_options &common, const request_options &limits, at_cmd_msg &record,
             int32_t limit_ms, string_view what)
{
    const vlk_place place = common.place();
    vlk_client *opened = nullptr;
    int result = vlk_open(&opened, &place);
    const client_handle client(opened, vlk_close);
    if (result == VLK_OK && limits.wait_modem > 0)
        result = vlk_wait_modem(client.get(), static_cast<int32_t>(limits.wait_modem * 1000));
    if (result == VLK_OK)
        result = vlk_exchange(client.get(), &record, &record, limit_ms);
    if (result != VLK_OK)
        return report_failure(result, common.json);
    const bool is_done = record.snd_rcv_msg.ret_val == AT_OK;
    return report_reply(record, is_done ? uint32_t{VLK_MODEM_READY} : vlk_client_modem(client.get()), what,
                        common.json);
}
} // namespace

int run_rssi(const common_options &common)
{
    at_cmd_msg record;
    vlk_fill_rssi(&record);
    return exchange(common, {}, record, RSSI_LIMIT_MS, "rssi");
}

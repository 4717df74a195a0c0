#include <algorithm>
#include <chrono>
#include <memory>

#include "ctl_commands.h"
#include "ctl_output.h"
#include "packet_text.h"

namespace
{
constexpr int32_t SUBSCRIBE_LIMIT_MS = 5000;

using clock_type = std::chrono::steady_clock;

int subscribe(vlk_hub *hub, const monitor_options &options)
{
    if (options.modules.empty() && options.names.empty())
        return vlk_hub_take_all(hub, SUBSCRIBE_LIMIT_MS);
    for (const int32_t module : options.modules)
        if (const int failed = vlk_hub_take_module(hub, module, SUBSCRIBE_LIMIT_MS))
            return failed;
    for (const std::string &name : options.names)
        if (const int failed = vlk_hub_take_name(hub, name.c_str(), SUBSCRIBE_LIMIT_MS))
            return failed;
    return VLK_OK;
}

/// Milliseconds that --seconds leaves, -1 without it.
int32_t time_left(const monitor_options &options, clock_type::time_point begin)
{
    if (!options.seconds)
        return -1;
    const std::chrono::duration<double, std::milli> past = clock_type::now() - begin;
    return static_cast<int32_t>(std::max(0.0, *options.seconds * 1000 - past.count()));
}

bool print_packet(const vlk_packet &packet, bool json)
{
    if (json)
        return print_json(packet_json(packet));
    if (packet.missed > 0 && !print_line(std::to_string(packet.missed) + " missed"))
        return false;
    return print_line(packet_line(packet));
}

/// Until the daemon, the time or the count ends it. A vlk_result; VLK_TIMEOUT: --seconds are over.
int listen(vlk_hub *hub, const monitor_options &options, bool json, uint64_t *printed)
{
    const clock_type::time_point begin = clock_type::now();
    while (!options.count || *printed < *options.count) {
        vlk_packet packet;
        const int32_t left = time_left(options, begin);
        if (left == 0)
            return VLK_TIMEOUT;
        if (const int failed = vlk_hub_receive(hub, &packet, left))
            return failed;
        if (!print_packet(packet, json))
            return VLK_SYSTEM;
        ++*printed;
    }
    return VLK_OK;
}
} // namespace

int run_monitor(const common_options &common, const monitor_options &options)
{
    const vlk_place place = common.place();
    vlk_hub *opened = nullptr;
    int result = vlk_hub_open(&opened, &place);
    const std::unique_ptr<vlk_hub, decltype(&vlk_hub_close)> hub(opened, vlk_hub_close);
    if (result == VLK_OK)
        result = subscribe(hub.get(), options);
    if (result != VLK_OK)
        return report_failure(result, common.json);

    print_error("listening");
    uint64_t printed = 0;
    result = listen(hub.get(), options, common.json, &printed);
    if (result == VLK_OK || (result == VLK_TIMEOUT && !options.count))
        return EXIT_DONE;
    if (result == VLK_TIMEOUT) {
        print_error("only " + std::to_string(printed) + " came in time");
        return EXIT_NO_ANSWER;
    }
    return result == VLK_SYSTEM ? EXIT_OTHER : report_failure(result, common.json);
}

#include "vlk_register.h"

#include <array>
#include <atomic>
#include <cstring>

#include "k7_at_proxy.h"
#include "nas_data_queue.h"

static constexpr char TRACE_FILE[] = "vlk_register";
#include "trace.h"

namespace
{

constexpr uint32_t AT_CHANNEL = 6;

// The AT proxy writes the pointer during registration, on the main thread; the other threads read the published
// copy.
k7_send_proc g_vlk_send_data_to_nas = nullptr;
std::atomic<k7_send_proc> published_send_proc = nullptr;

uint32_t vlk_card_state_noop(int32_t id)
{
    return static_cast<uint32_t>(id);
}

struct card_state_row {
    int32_t id;
    const char *text; // nullptr ends the table
    uint32_t (*handler)(int32_t id);
};

constexpr std::array<card_state_row, 4> vlk_card_state_table = {{
    {1, vlk_card_state_texts[0], vlk_card_state_noop},
    {2, vlk_card_state_texts[1], vlk_card_state_noop},
    {3, vlk_card_state_texts[2], vlk_card_state_noop},
    {6, nullptr, nullptr},
}};

} // namespace

int vlk_register_nas()
{
    K7_APP_RegCallBack(AT_CHANNEL, vlk_get_data_from_nas, &g_vlk_send_data_to_nas);
    published_send_proc = g_vlk_send_data_to_nas;
    return g_vlk_send_data_to_nas != nullptr ? 1 : 0;
}

int vlk_get_data_from_nas(uint32_t, const char *data, uint32_t length)
{
    if (data == nullptr) {
        trace(ERROR, "vlk_get_data_from_nas: Error, vlk_cb data is NULL\n");
        return 1;
    }
    return vlk_queue_nas_data(data, length) == 1 ? 0 : 1;
}

int vlk_send_to_nas(const char *text, uint16_t length)
{
    if (text == nullptr || length == 0)
        return 0;
    const k7_send_proc send_data_to_nas = published_send_proc;
    if (send_data_to_nas == nullptr) {
        trace(ERROR, "vorlink: Send g_vlk_send_data_to_nas is NULL!\n");
        return 0;
    }
    if (send_data_to_nas(AT_CHANNEL, text, length) == 0)
        return 1;
    trace(ERROR, "vorlink: Send at command %s error!\n", text);
    return 0;
}

int vlk_match_card_state(const char *line)
{
    if (line == nullptr)
        return -1;
    for (const card_state_row &row : vlk_card_state_table) {
        if (row.text == nullptr)
            return -1;
        if (strstr(line, row.text) == nullptr)
            continue;
        if (row.handler != nullptr)
            row.handler(row.id);
        return 0;
    }
    return -1;
}

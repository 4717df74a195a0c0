#include "answer_text.h"

#include <atomic>

namespace
{
/// Drops what has come. A vlk_result: VLK_OK when the hub is still there.
int drain(vlk_hub *hub)
{
    vlk_packet packet;
    int result;
    while ((result = vlk_hub_receive(hub, &packet, 0)) == VLK_OK) {}
    return result == VLK_TIMEOUT ? VLK_OK : result;
}
} // namespace

int begin_answer(vlk_client *client, at_cmd_msg &request)
{
    static std::atomic<uint32_t> requests{0};
    request.Id = static_cast<int32_t>(++requests);
    vlk_hub *hub = nullptr;
    if (const int failed = open_answers_hub(client, &hub))
        return failed;
    if (drain(hub) == VLK_OK)
        return VLK_OK;
    drop_answers_hub(client); // its daemon has gone
    return open_answers_hub(client, &hub);
}

at_answer take_answer(vlk_client *client, const at_question &question, const at_cmd_msg &reply)
{
    std::vector<at_text> texts;
    bool is_cut = false;
    vlk_hub *hub = nullptr;
    vlk_packet packet;
    if (open_answers_hub(client, &hub) == VLK_OK)
        while (vlk_hub_receive(hub, &packet, 0) == VLK_OK) {
            is_cut = is_cut || packet.missed > 0;
            if (packet.kind != VLK_PACKET_ANSWER || packet.code != reply.seq || packet.value1 != reply.Id)
                continue;
            is_cut = is_cut || (packet.value2 & VLK_ANSWER_CUT) != 0;
            texts.push_back({{static_cast<const char *>(packet.data), packet.length},
                             (packet.value2 & VLK_ANSWER_OWN) != 0});
        }
    const int32_t code = reply.snd_rcv_msg.ret_val;
    if (std::optional<at_answer> answer = read_answer_text(question, texts, code)) {
        answer->cut = answer->cut || is_cut;
        return *answer;
    }
    // The daemon's own answer, or half an answer. A process that the daemon cannot see gets no text at all.
    at_answer answer = read_answer(question, reply);
    answer.cut = answer.cut || is_cut || (!texts.empty() && code == AT_OK);
    return answer;
}

#include "core_test.h"
#include "nas_data_queue.h"
#include "vorlink/bus_thread.h"
#include "vorlink/client_service.h"
#include "vorlink/engine/command_transaction.h"
#include "vorlink/engine/rcv_stream.h"
#include "vorlink/engine/recognition.h"
#include "vorlink/engine/response_collection.h"
#include "vorlink/engine/sms_transaction.h"
#include "vorlink/event_ring.h"
#include "vorlink/state_machine.h"

using NullArguments = daemon_test;

static std::vector<int> results(auto... each)
{
    return {each...};
}

TEST_F(NullArguments, AreRefused)
{
    at_cmd_msg msg{};
    char text[] = "RING";
    int code = 0;
    uint32_t length = 0;
    void *reply = nullptr;
    EXPECT_THAT(
        results(vlk_startup(0, nullptr, nullptr), vlk_cmee(nullptr), at_process_client_msg(nullptr),
                get_report(nullptr, &code), get_report(&msg, nullptr), at_process_nas_msg(nullptr),
                read_from_smd(nullptr, &code), read_from_smd(&msg, nullptr), parse_response(nullptr),
                parse_exc_result(nullptr), write_to_smd("AT", nullptr, 2), write_to_smd(nullptr, &code, 2),
                write_to_smd("AT", &code, 0), at_send_normal_cmd_msg(nullptr, &code),
                at_send_normal_cmd_msg(&msg, nullptr), at_cmd_is_smssw(nullptr),
                at_send_or_save_msg(nullptr, &code), at_send_or_save_msg(&msg, nullptr),
                at_sm_is_rcv_buf_empty(nullptr), at_sm_getchar(nullptr), at_sm_get_buf(nullptr, 2),
                at_sm_get_buf(text, 0), at_sm_getline(nullptr, &length), at_sm_getline(text, nullptr),
                atcmd_match_result(nullptr, &code), atcmd_match_result("OK", nullptr),
                Is_report_msg(nullptr, text, 4, &code, &code), Is_report_msg(&msg, nullptr, 4, &code, &code),
                Is_report_msg(&msg, text, 4, nullptr, &code), Is_report_msg(&msg, text, 4, &code, nullptr)),
        testing::Each(-1));
    EXPECT_EQ(vlk_queue_nas_data(nullptr, 4), 0);
    EXPECT_EQ(vlk_get_data_from_nas(6, nullptr, 4), 1);
    EXPECT_EQ(VlkStopNetScan(nullptr, nullptr, &length), 1);
    EXPECT_EQ(VlkStopNetScan(nullptr, &reply, nullptr), 1);
    vlk_msgproc(nullptr);
    strcpy(line_buf, "+CMGR: 1"); // heads a message: without the refusal its end would be put back
    handle_sms_at(nullptr, &length, &code);
    handle_sms_at(&msg, nullptr, &code);
    handle_sms_at(&msg, &length, nullptr);
    EXPECT_STREQ(line_buf, "+CMGR: 1");
    line_clear();
    EXPECT_EQ(fake::seen().traces.size(), 38u) << "each is told";
    parse_hcmgr_line(nullptr, &code);
    parse_hcmgr_line(text, nullptr);
    EXPECT_EQ(vlk_match_card_state(nullptr), -1);
    EXPECT_EQ(vlk_send_to_nas(nullptr, 5), 0);
    EXPECT_EQ(vlk_event_pop(nullptr), -1);
    bool noBus = true;
    EXPECT_EQ(vlk_startup(2, nullptr, &noBus), 0);
    EXPECT_FALSE(noBus);
}

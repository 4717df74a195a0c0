#include "core_test.h"
#include "nas_data_queue.h"

using testing::ElementsAre;

namespace
{

using modem_link_test = daemon_test;

constexpr char TOO_BIG[] = "Error: NAS Response length is too big!\n";

} // namespace

TEST_F(modem_link_test, is_registered_when_the_send_function_is_there_whatever_the_call_says)
{
    fake::reset();
    fake::fail("K7_APP_RegCallBack", 1);
    EXPECT_EQ(vlk_register_nas(), 0);
    EXPECT_EQ(vlk_send_to_nas("AT\r", 3), 0);
    EXPECT_EQ(errors(), "vorlink: Send g_vlk_send_data_to_nas is NULL!\n");
    EXPECT_EQ(vlk_register_nas(), 1);
    EXPECT_EQ(vlk_send_to_nas("AT\r", 3), 1);
    EXPECT_EQ(vlk_register_nas(), 1);
    EXPECT_THAT(fake::calls(),
                ElementsAre("K7_APP_RegCallBack(6)", "K7_APP_RegCallBack(6)", "K7_APP_RegCallBack(6)"));
}

TEST_F(modem_link_test, sends_bytes_as_they_are_or_says_why_not)
{
    EXPECT_EQ(vlk_send_to_nas("A\0B\r\n", 5), 1);
    EXPECT_THAT(fake::seen().written, ElementsAre(std::string("A\0B\r\n", 5)));
    EXPECT_EQ(vlk_send_to_nas("AT\r", 0), 0);
    fake::fail("k7_send");
    EXPECT_EQ(vlk_send_to_nas("AT\r", 3), 0);
    EXPECT_EQ(errors(), "vorlink: Send at command AT\r error!\n");
    EXPECT_EQ(fake::seen().traces[0].file, "vlk_register");
    EXPECT_EQ(fake::seen().written.size(), 1u);
}

TEST_F(modem_link_test, queues_a_delivery_whole_and_announces_it)
{
    const std::string longest = repeat('x', 1499);
    EXPECT_EQ(vlk_get_data_from_nas(6, "ab\0\r\n", 5), 0);
    EXPECT_EQ(vlk_get_data_from_nas(99, longest.data(), 1499), 0);
    EXPECT_EQ(vlk_get_data_from_nas(6, "", 0), 0);
    EXPECT_EQ(fake::seen().events, 2u);
    const std::vector<std::string> records = fake::queued(VLK_QUEUE_NAS_DATA);
    EXPECT_THAT(records, ElementsAre(std::string("ab\0\r\n", 5) + repeat(0, 1495) + std::string("\5\0", 2),
                                     longest + repeat(0, 1) + "\xDB\x05", repeat(0, 1502)));
}

TEST_F(modem_link_test, refuses_what_it_cannot_queue_and_raises_no_event)
{
    const std::string text = repeat('x', 1500);
    const struct {
        const char *fault;
        uint32_t length;
        const char *failing;
        const char *reported;
    } cases[] = {
        {"a byte too many", 1500, "", TOO_BIG},
        {"a length beyond all bounds", 0xFFFFFFFF, "", TOO_BIG},
        {"a length that is small in 16 bits", 0x10001, "", TOO_BIG},
        {"no memory", 4, "malloc", "Error: NAS Response malloc fail!\n"},
        {"a queue that refuses", 4, "VLK_msgQ_send", "QueueSend Error\n"},
    };
    check_each(cases, [&](const auto &each) {
        fake::fail(each.failing, 1);
        EXPECT_EQ(vlk_get_data_from_nas(6, text.data(), each.length), 1);
        EXPECT_EQ(errors(), each.reported);
        EXPECT_EQ(fake::seen().events, 0u);
        EXPECT_TRUE(fake::queued(VLK_QUEUE_NAS_DATA).empty());
    });
}

TEST_F(modem_link_test, finds_card_states_anywhere_in_a_line)
{
    EXPECT_EQ(vlk_match_card_state("^CPINNTY:READY"), 0);
    EXPECT_EQ(vlk_match_card_state("noise ^CPINNTY:SIM PUK2"), 0);
    EXPECT_EQ(vlk_match_card_state("^CARDLOCKNTY:SIM LOCKED"), 0);
    for (const char *other : {"^CPINNTY:SIM PIN", "^CPINNTY: READY", "^cpinnty:ready", "^CARDLOCKNTY:", ""})
        EXPECT_EQ(vlk_match_card_state(other), -1) << other;
}

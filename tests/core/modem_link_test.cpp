#include "core_test.h"
#include "nas_data_queue.h"

using testing::ElementsAre;

using ModemLink = daemon_test;

TEST_F(ModemLink, SendsBytesAsTheyAreOnceTheSendFunctionIsThere)
{
    fake::reset();
    fake::fail("K7_APP_RegCallBack", 1);
    EXPECT_EQ(vlk_register_nas(), 0);
    EXPECT_EQ(vlk_send_to_nas("AT\r", 3), 0);
    EXPECT_EQ(vlk_register_nas(), 1);
    EXPECT_EQ(vlk_send_to_nas("A\0B\r\n", 5), 1);
    EXPECT_EQ(vlk_send_to_nas("AT\r", 0), 0);
    EXPECT_THAT(fake::seen().written, ElementsAre(std::string("A\0B\r\n", 5)));
    EXPECT_THAT(fake::calls(), ElementsAre("K7_APP_RegCallBack(6)", "K7_APP_RegCallBack(6)"));
    EXPECT_EQ(fake::seen().traces[0].file, "vlk_register");
}

TEST_F(ModemLink, QueuesADeliveryWholeAndAnnouncesIt)
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

TEST_F(ModemLink, RefusesWhatItCannotQueueAndRaisesNoEvent)
{
    const std::string text = repeat('x', 1500);
    constexpr uint32_t small_in_16_bits = 0x10001;
    for (const uint32_t too_long : {1500u, 0xFFFFFFFFu, small_in_16_bits})
        EXPECT_EQ(vlk_get_data_from_nas(6, text.data(), too_long), 1);
    const std::string told = "Error: NAS Response length is too big!\n";
    EXPECT_EQ(errors(), told + told + told);
    fake::fail("VLK_msgQ_send", 1);
    EXPECT_EQ(vlk_get_data_from_nas(6, text.data(), 4), 1);
    EXPECT_EQ(fake::seen().events, 0u);
    EXPECT_TRUE(fake::queued(VLK_QUEUE_NAS_DATA).empty());
}

TEST_F(ModemLink, FindsCardStatesAnywhereInALine)
{
    EXPECT_EQ(vlk_match_card_state("^CPINNTY:READY"), 0);
    EXPECT_EQ(vlk_match_card_state("noise ^CPINNTY:SIM PUK2"), 0);
    EXPECT_EQ(vlk_match_card_state("^CARDLOCKNTY:SIM LOCKED"), 0);
    for (const char *other : {"^CPINNTY:SIM PIN", "^CPINNTY: READY", "^cpinnty:ready", "^CARDLOCKNTY:", ""})
        EXPECT_EQ(vlk_match_card_state(other), -1) << other;
}

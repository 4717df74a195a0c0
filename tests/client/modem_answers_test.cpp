#include "modem_answers.h"

#include <gmock/gmock.h>

namespace
{
using testing::ElementsAre;

TEST(ModemAnswers, SignalInUnitsThatPeopleKnow)
{
    struct row {
        const char *fault;
        signal_reading reading;
        const char *technology;
        std::optional<double> dbm;
        int bars;
    };
    const row rows[] = {
        {"middle", signal_of_csq("+CSQ: 20,99"), "", -73, 4},
        {"weakest", signal_of_csq("+CSQ: 0,0"), "", -113, 0},
        {"strongest", signal_of_csq("+CSQ: 31,0"), "", -51, 4},
        {"unknown is no signal", signal_of_csq("+CSQ: 99,99"), "", {}, 0},
        {"TD-SCDMA's range", signal_of_csq("+CSQ: 141,99"), "", -75, 4},
        {"out of range", signal_of_csq("+CSQ: 32,99"), "", {}, 0},
        {"nothing", signal_of_csq(""), "", {}, 0},
        {"LTE", signal_of_cesq("+CESQ: 99,99,255,255,20,50"), "LTE", -91, 3},
        {"GSM", signal_of_cesq("+CESQ: 30,0,255,255,255,255"), "GSM", -81, 3},
        {"WCDMA", signal_of_cesq("+CESQ: 99,99,31,40,255,255"), "WCDMA", -90, 2},
        {"5G wins over its anchor", signal_of_cesq("+CESQ: 99,99,255,255,20,50,60,70,50"), "5G", -87, 3},
        {"unknown", signal_of_cesq("+CESQ: 99,99,255,255,255,255"), "", {}, 0},
        {"LTE of the vendor", signal_of_hcsq("^HCSQ: \"LTE\",52,45,160,22"), "LTE", -96, 2},
        {"no blank", signal_of_hcsq("^HCSQ:\"WCDMA\",30,30,58"), "WCDMA", -91, 2},
        {"GSM of the vendor", signal_of_hcsq("^HCSQ: \"GSM\",40"), "GSM", -81, 3},
        {"5G of the vendor", signal_of_hcsq("^HCSQ: \"NR\",60,200,25"), "5G", -81, 4},
        {"no service", signal_of_hcsq("^HCSQ: \"NOSERVICE\""), "NOSERVICE", {}, 0},
        {"unknown values", signal_of_hcsq("^HCSQ: \"LTE\",255,255,255,255"), "LTE", {}, 0},
        {"a notification", signal_of_hcsq(2, {52, 45, 160, 22, 0}), "LTE", -96, 2},
        {"a notification without service", signal_of_hcsq(-1, {0, 0, 0, 0, 0}), "NOSERVICE", {}, 0},
        {"a technology that nobody knows", signal_of_hcsq(8, {50, 0, 0, 0, 0}), "NOSERVICE", {}, 0},
    };
    for (const row &each : rows) {
        EXPECT_EQ(each.reading.technology, each.technology) << each.fault;
        EXPECT_EQ(strength_of(each.reading), each.dbm) << each.fault;
        EXPECT_EQ(bars_of(each.reading), each.bars) << each.fault;
    }
    const signal_reading lte = signal_of_hcsq("^HCSQ: \"LTE\",52,45,160,22");
    EXPECT_DOUBLE_EQ(lte.rssi.value_or(0), -69);
    EXPECT_NEAR(lte.sinr.value_or(0), 11.8, 1e-9);
    EXPECT_DOUBLE_EQ(lte.rsrq.value_or(0), -9);
}

TEST(ModemAnswers, RegistrationAndOperator)
{
    const registration full = registration_of("+CREG: 2,5,\"1A2B\",\"0C3D4E5F\",7");
    EXPECT_EQ(full.state, 5);
    EXPECT_EQ(full.area, "1A2B");
    EXPECT_EQ(full.cell, "0C3D4E5F");
    EXPECT_EQ(full.technology, 7);
    EXPECT_TRUE(is_registered(full.state));
    EXPECT_STREQ(registration_text(full.state), "registered, roaming");
    EXPECT_FALSE(registration_of("").state);
    EXPECT_STREQ(registration_text({}), "not told");
    EXPECT_FALSE(is_registered(registration_of("+CREG: 0,2").state));

    EXPECT_EQ(operator_of("+COPS: 0,0,\"A, B\",7").name, "A, B");
    EXPECT_EQ(operator_of("+COPS: 1,2,\"00101\",11").technology, 11);
    EXPECT_FALSE(operator_of("+COPS: 1,2,\"00101\"").automatic);
    EXPECT_EQ(operator_of("+COPS: 0").name, "");
}

TEST(ModemAnswers, NetworksOfAScan)
{
    const auto networks = networks_of("+COPS: (2,\"Example, Test\",\"Ex (1)\",\"00101\",7),"
                                      "(3,\"\",\"\",\"00102\"),,(0-4),(0-2)");
    ASSERT_EQ(networks.size(), 2U);
    EXPECT_EQ(networks[0].name, "Example, Test");
    EXPECT_EQ(networks[0].short_name, "Ex (1)");
    EXPECT_EQ(networks[0].technology, 7);
    EXPECT_STREQ(network_state_text(networks[0].state), "current");
    EXPECT_EQ(networks[1].plmn, "00102");
    EXPECT_EQ(networks[1].technology, std::nullopt);
    for (const char *odd :
         {"+COPS: ,,(0-4),(0-2)", "+COPS: ", "", "(((", "+COPS: (2,\"open", "+COPS: ),(,)("})
        EXPECT_TRUE(networks_of(odd).empty()) << odd;
}

TEST(ModemAnswers, Sim)
{
    EXPECT_EQ(sim_state_text("+CPIN: READY"), "ready");
    EXPECT_EQ(sim_state_text("+CPIN: SIM PIN"), "locked: the PIN is wanted");
    EXPECT_EQ(sim_state_text("+CME ERROR: 10"), "no SIM inserted");
    EXPECT_EQ(sim_state_text("+CPIN: PH-FSIM PIN"), "PH-FSIM PIN");
    EXPECT_EQ(tries_of("+CPINR: SIM PIN,2,3"), 2);
    EXPECT_EQ(tries_of("^CPIN: SIM PIN,1,10,1,10,3"), 1);
    EXPECT_EQ(tries_of("^CPIN: READY,,10,3,10,3"), 3);
    EXPECT_EQ(tries_of("+CPINR: SIM PIN"), std::nullopt);
    EXPECT_EQ(digits_of("+CCID: \"89001012345678901234\""), "89001012345678901234");
    EXPECT_EQ(digits_of("001010123456789"), "001010123456789");
    EXPECT_EQ(digits_of("8900101234567890123F"), "8900101234567890123F");
    EXPECT_EQ(digits_of("OK"), "");
}

TEST(ModemAnswers, UssdTexts)
{
    EXPECT_EQ(ussd_text("Balance 5.00", 15), "Balance 5.00");
    EXPECT_EQ(ussd_text("041F0440", 72), "\u041F\u0440");
    EXPECT_EQ(ussd_text("D83DDE00", 72), "\U0001F600");
    EXPECT_EQ(ussd_text("D83D0041", 72), "\uFFFDA");
    EXPECT_EQ(ussd_text("20AC", 17), "\u20AC");
    EXPECT_EQ(ussd_text("041F044", 72), "041F044"); // not whole: as it came
    EXPECT_EQ(ussd_text("041F0440", 15), "041F0440");
}

TEST(ModemAnswers, ValuesAreDividedOutsideQuotesAndParentheses)
{
    EXPECT_THAT(values_of("+X: 1,\"a,b\",(1,2), c ,"), ElementsAre("1", "a,b", "(1,2)", "c", ""));
    EXPECT_THAT(values_of("^Y:\"a\""), ElementsAre("a"));
    EXPECT_THAT(values_of("12:34,5"), ElementsAre("12:34", "5"));
}
} // namespace

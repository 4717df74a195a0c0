// SIM, device events, network time: what is told to whom.
#include "custom/ovel/ovel_common_vlk_report_callback.h"
#include "report_cases.h"

namespace
{

TEST(Reports, Sim)
{
    const report_case cases[] = {
        {"order, IMSI change", "^SIMST: 1,0",
         "27,27003 [10 1 0] 1,1023,0,0 19,19007,1,0 9,9010,1,0 6,6001 [1 0] 4,4082,1,0"},
        {"a locked SIM: both, module 75 first", "^SIMST: 1,1",
         "27,27003 [10 1 1] 75,16052,0,0 1,1023,0,0 19,19007,1,1 9,9010,1,1 6,6001 [1 1] 4,4082,1,1"},
        {"no SIM changes no IMSI", "^SIMST: 255",
         "27,27003 [10 255 0] 75,16052,0,0 19,19007,255,0 9,9010,255,0 6,6001 [255 0] 4,4082,255,0"},
        {"nor does an invalid one", "^SIMST: 0,2",
         "27,27003 [10 0 2] 75,16052,0,0 19,19007,0,2 9,9010,0,2 6,6001 [0 2] 4,4082,0,2"},
        {"a type is cut to 9 characters, the hook runs last", "^SIMREFRESH: 1234567890",
         "7,7044,123456789,0 1,1022,0,0 4,4110,0,0 9,9058,0,0 1,1022,0,0"},
        {"^EXSIMST taken for ^SIMST", "^EXSIMST: 1,1"},
        {"^CPBREADY parsed", "^CPBREADY\"", "9,9059,0,0"},
    };
    expect_reports(cases);

    fake::reset();
    ovel_hook_vlk_report_imsi_change(nullptr);
    EXPECT_EQ(all_sent(), calls_of(""));
    ASSERT_EQ(fake::seen().traces.size(), 1U);
    EXPECT_EQ(fake::seen().traces[0].text, "ovel_hook_vlk_report_imsi_change parameter error\n");
    EXPECT_EQ(fake::seen().traces[0].file, "ovel_common_vlk_report_callback");
    vlk_report_table[69].callback(nullptr, -1);
    EXPECT_EQ(all_sent(), calls_of("1,1022,0,0"));
}

TEST(Reports, DeviceEvents)
{
    const report_case cases[] = {
        {"9 characters fit, the second value is -1", "^WAKEUPIN: 123456789", "55,55013,123456789,-1"},
        {"10 do not and are not cut", "^WAKEUPIN: 1234567890", "55,55013,0,-1"},
        {"empty still tells", "^WAKEUPIN:", "55,55013,0,-1"},
        {"event and parameter swapped", "^TEMPPRT: 2,85", "9,31000,2,85"},
        {"what does not fit is 0", "^TEMPPRT: 123456789,-123456789", "9,31000,123456789,0"},
        {"empty still tells", "^TEMPPRT:", "9,31000,0,0"},
        {"^FACTORY parsed", "^FACTORY=\"", "9,9004,1,0"},
        {"^NORSTFACT parsed", "^NORSTFACT", "74,9004 [5]"},
        {"^MMIENTER parsed", "^MMIENTER?", "cms,34844 []"},
    };
    expect_reports(cases);
}

TEST(Reports, NetworkTime)
{
    const auto time = [](const std::string &words) { return "9,4047 [" + words + " 0]"; };
    const std::string date159 = "24/05/31" + std::string(151, 'x');
    const report_case cases[] = {
        {"month and year not as reported", "^NWTIME: 24/05/31,10:20:30+32",
         time("30 20 10 31 5 2024 ''20 32")},
        {"a zone west is negative", "^NWTIME: 24/12/31,23:59:59-16", time("59 59 23 31 12 2024 ''20 -16")},
        {"zone 0, more fields", "^NWTIME: \"24/05/31\",\"10:20:30+00\",1", time("30 20 10 31 5 2024 ''20 0")},
        {"no zone", "^NWTIME: 24/05/31,10:20:30", time("30 20 10 31 5 2024 ''20 0")},
        {"a part read behind a short text", "^NWTIME: 24,10:2", time("0 2 10 0 0 2024 ''20 0")},
        {"no date", "^NWTIME: ,10:20:30+32", time("30 20 10 0 0 2000 ''20 32")},
        {"empty still tells", "^NWTIME:", time("0 0 0 0 0 2000 ''20 0")},
        {"159 characters fit", "^NWTIME: " + date159 + ",1", time("0 0 1 31 5 2024 ''20 0")},
        {"160 do not", "^NWTIME: " + date159 + "x,1", time("0 0 1 0 0 2000 ''20 0")},
    };
    expect_reports(cases);
}

TEST(Reports, MaintenanceLog)
{
    fake::reset();
    testing::internal::CaptureStdout();
    report("^SIMST: 240,1");
    report("^FACTORY");
    report("^NORSTFACT: 1");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "vlk norstfact_report_callback enter\n");
    std::string logged;
    for (const std::string &call : fake::calls())
        logged += call.starts_with("mlog_print") ? "|" + call : "";
    EXPECT_EQ(logged, "|mlog_print(vorlink, 8, ^SIMST: sim_status=240, simlock_status=1\n)"
                      "|mlog_print(vorlink, 8, VLK  report  and need  restore factory settings !)"
                      "|mlog_print(vorlink, 8, VLK  report  and need  restore  factory no reboot !)");
}

} // namespace

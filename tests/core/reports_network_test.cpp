// Registration, service state, operator identity, rejects: what is told to whom.
#include "report_cases.h"

namespace
{

TEST(Reports, ServiceState)
{
    const report_case cases[] = {
        {"mode and sub-mode swapped, 9 characters fit", "^MODE:000000005,000000004",
         "dialup,166661 [5] 19,19005,5,4"},
        {"10 are refused", "^MODE:5000000000,4000000000", "dialup,166661 [0] 19,19005,0,0"},
        {"empty is mode 0", "^MODE:", "dialup,166661 [0] 19,19005,0,0"},
        {"full service concerns module 9", "^SRVST: 000000002", "dialup,166661 [2] 9,9040,0,0"},
        {"10 characters are refused", "^SRVST: 2000000000", "dialup,166661 [0]"},
        {"other service does not concern module 9", "^SRVST: 1", "dialup,166661 [1]"},
        {"empty is service 0", "^SRVST:", "dialup,166661 [0]"},
        {"home taken for roaming", "^APROAMRPT: 0", "7,7012,0,0"},
        {"roaming taken for home", "^APROAMRPT: 1", "7,7013,0,0"},
        {"another status told", "^APROAMRPT: 2"},
        {"no status must not count as home", "^APROAMRPT:"},
        {"state in the wrong word", "^RRCSTAT: 7", "19,19039 [1 7 0]"},
        {"the bus message has no reserved word", "^LENDC: 2,3,4,5",
         "19,19036 [1 2 3 4 5 0] lpm,91397 [1 2 3 4 5]"},
        {"missing members are 0", "^LENDC:2", "19,19036 [1 2 0 0 0 0] lpm,91397 [1 2 0 0 0]"},
    };
    expect_reports(cases);
}

TEST(Reports, Registration)
{
    const auto registration = [](const std::string &cell) {
        return "dialup,166661 [] 19,19008,0,0 19,19035,0,0 9,9055,0,0 18,18034 ['" + cell + "'32] ";
    };
    const std::string cell31 = "0123456789012345678901234567890";
    const report_case cases[] = {
        {"+CREG told to module 106", "+CREG: 1,\"CE00\",\"00005449\",7", registration("00005449")},
        {"module 106 comes first", "+CGREG: 5,CE00,00005449", "106,106000,5,0 " + registration("00005449")},
        {"module 106 comes last", "+C5GREG: 1,1F00,79D903,11", registration("79D903") + "106,106001,1,0"},
        {"empty +CGREG still tells", "+CGREG:", "106,106000,0,0 " + registration("")},
        {"empty +C5GREG still tells", "+C5GREG:", registration("") + "106,106001,0,0"},
        {"a state is cut to 4 characters", "+CGREG: 12345", "106,106000,1234,0 " + registration("")},
        {"a 5G state is cut to 31, the cell goes on", "+C5GREG: 00000000000000000000000000000005,1F00,79D903",
         registration("79D903") + "106,106001,0,0"},
        {"31 characters of a cell fit", "+CREG: 1,," + cell31, registration(cell31)},
        {"32 are cut", "+CREG: 1,," + cell31 + "x", registration(cell31)},
        {"32 of a 5G cell are cut", "+C5GREG: 1,," + cell31 + "x", registration(cell31) + "106,106001,1,0"},
    };
    expect_reports(cases);
}

TEST(Reports, OperatorIdentity)
{
    const auto rejected = [](const std::string &record) {
        return "19,31007 [59 " + record + "] 106,31007 [59 " + record + "]";
    };
    const std::string network63(63, '4');
    const report_case cases[] = {
        {"^PLMN told", "^PLMN: 001,01"},
        {"leading zeros are no octal number", "^REPORTLINERPLMN: 00101", "103,103001,101,0"},
        {"^EONS parsed", "^EONS 1\"", "7,7022,0,0"},
        {"level and quality swapped, or wrapped", "^NETSCAN: -95,4294967308", "7,7056 [-95 2147483647 0]"},
        {"every detail in its place", "^REJINFO: \"46001\",1,2,3,4,5,1A2B3C4,0F1,0012AB34,6",
         rejected("'46001'64 1 2 3 4 5 '1A2B3C4'8 '0F1'4 '0012AB34'32 6 ''892")},
        {"texts that do not fit are left out, the rest stays",
         "^REJINFO: 46001,1,2,3,4,5,12345678,1234,12345678901234567890123456789012,6",
         rejected("'46001'64 1 2 3 4 5 ''44 6 ''892")},
        {"63 characters of a network fit", "^REJINFO: " + network63, rejected("'" + network63 + "'1024")},
        {"64 do not", "^REJINFO: 4" + network63 + ",1", rejected("''64 1 ''956")},
        {"empty still tells both", "^REJINFO:", rejected("''1024")},
    };
    expect_reports(cases);
}

} // namespace

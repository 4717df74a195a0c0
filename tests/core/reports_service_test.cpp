// Data connections, short messages, supplementary services, SIM toolkit: what is told to whom.
#include "report_cases.h"

namespace
{

TEST(Reports, Connections)
{
    const report_case cases[] = {
        {"IPv4 up", "^DCONN: 000000003,\"IPV4\"", "dialup,166657 [3 -1]"},
        {"IPv6 up", "^DCONN: 3,\"IPV6\"", "dialup,166659 [3 -1]"},
        {"lower case taken for IPv6", "^DCONN: 3,\"ipv6\"", "dialup,166657 [3 -1]"},
        {"both taken for IPv6", "^DCONN: 3,\"IPV4V6\"", "dialup,166657 [3 -1]"},
        {"a cut type taken for IPv6", "^DCONN: 3,IPV6xxxxxx", "dialup,166657 [3 -1]"},
        {"10 digits do not fit", "^DCONN: 3000000000,IPV6", "dialup,166659 [0 -1]"},
        {"empty still tells", "^DCONN:", "dialup,166657 [0 -1]"},
        {"IPv4 down", "^DEND: 000000003,\"IPV4\"", "dialup,166658 [3 -1]"},
        {"IPv6 down, no cause", "^DEND: 3,\"IPV6\",33", "dialup,166660 [3 -1]"},
        {"10 digits do not fit", "^DEND: 3000000000", "dialup,166658 [0 -1]"},
        {"empty still tells", "^DEND:", "dialup,166658 [0 -1]"},

        {"a cause for up", "^NDISSTAT: 000000001,33,,\"IPV6\"", "dialup,166659 [1 -1]"},
        {"no cause for down", "^NDISSTAT: 0,33,,\"IPV6\"", "dialup,166660 [1 33]"},
        {"what does not fit is 0", "^NDISSTAT: 1xxxxxxxxx,1234567890,,\"IPV4\"", "dialup,166658 [1 0]"},
        {"empty is down", "^NDISSTAT:", "dialup,166658 [1 0]"},
        {"another state told", "^NDISSTAT: 2,33,,\"IPV6\""},
        {"context and state swapped", "^NDISSTATEX: 5,1,33,,\"IPV6\"", "dialup,166659 [5 -1]"},
        {"the context of a disconnection", "^NDISSTATEX: 5,0,33,,\"IPV4\"", "dialup,166658 [5 33]"},
        {"a context that does not fit is 0", "^NDISSTATEX: 5000000000,1", "dialup,166657 [0 -1]"},
        {"nor does a state or a cause", "^NDISSTATEX: 5,1xxxxxxxxx,1234567890", "dialup,166658 [5 0]"},
        {"empty is down", "^NDISSTATEX:", "dialup,166658 [0 0]"},
        {"another state told", "^NDISSTATEX: 5,-1"},
        {"a dial-up report told", "^APDIALUPRPT: 1"},
    };
    expect_reports(cases);
}

void report_times(int times, const char *line)
{
    for (int i = 0; i < times; ++i)
        report(line);
}

TEST(Reports, Flow)
{
    do { // up to statistics, so that ten more are needed for the next
        fake::reset();
        report("^DSFLOWRPT:0");
    } while (all_sent().size() == 2);
    const report_case cases[] = {
        {"rates keep 32 bits, flows 64", "^DSFLOWRPT: 3C,1FFFFFFFF,000007D0,00000001FFFFFFFF,10,3,4",
         "18,18002 [60 -1 2000 0 -1 1 16 0 3 4] lpm,91393 [-1 2000]"},
        {"missing figures are 0", "^DSFLOWRPT: 1,,A", "18,18002 [1 0 10 ''28] lpm,91393 [0 10]"},
        {"empty still tells", "^DSFLOWRPT:", "18,18002 [''40] lpm,91393 [''8]"},
    };
    expect_reports(cases);

    fake::reset();
    report_times(6, "^DSFLOWRPT: 1,7FFFFFFF,6,300000003,4"); // the peak, were FFFFFFFF a signed number
    EXPECT_EQ(all_sent().size(), 12U) << "nine are not enough";
    report("^DSFLOWRPT: 1,2,3,500000005,6");
    EXPECT_EQ(all_sent().size(), 15U);
    EXPECT_EQ(all_sent().back(), calls_of("cms,34843 [-1 2000 5 5 6 0]")[0])
        << "peaks of all, flows of the last";

    fake::reset();
    report("^DSFLOWRPT: 1,9,1,1,1");
    report_times(7, "^DSFLOWRPT: 1,2,3,4,5");
    row_of("^DSFLOWRPT").callback(nullptr, 0);
    report("^DSFLOWRPT 1,FF,FF,FF,FF");
    EXPECT_EQ(all_sent().size(), 16U) << "the tenth cannot be parsed and tells nothing";
    report_times(9, "^DSFLOWRPT: 1,2,3,4,5");
    EXPECT_EQ(all_sent().size(), 34U) << "but it counts";
    report("^DSFLOWRPT: 1,2,8,6,7");
    EXPECT_EQ(all_sent().size(), 37U);
    EXPECT_EQ(all_sent().back(), calls_of("cms,34843 [9 8 6 0 7 0]")[0])
        << "the twentieth covers all since the first";
}

TEST(Reports, ShortMessages)
{
    const std::string pdu(511, 'A');
    const report_case cases[] = {
        {"memory and index in their places", "+CMTI: \"SM\",3", "1,1008 [0 'SM'16 3]"},
        {"a status report taken for a message", "+CMTI: \"SM\",3 +CDSI: \"ME\",4", "1,1008 [2 'ME'16 4]"},
        {"15 characters fit", "+CMTI: 123456789012345,1", "1,1008 [0 '123456789012345'16 1]"},
        {"16 do not, the index stays", "+CMTI: 1234567890123456,1", "1,1008 [0 ''16 1]"},
        {"empty still tells", "+CDSI:", "1,1008 [2 ''16 0]"},

        {"a sender's name with a comma", "+CMT: \"Doe, J\",25\n0004", "1,1008 [1 25h '0004'512]"},
        {"a length keeps its low 16 bits", "+CDS: 65836\n0791", "1,1008 [3 300h '0791'512]"},
        {"a cell broadcast taken for a message", "+CBM: 88\r\n46A0", "1,1008 [4 88h '46A0'512]"},
        {"a PDU that did not come", "+CBM: 88\r\n", "1,1008 [4 88h ''512]"},
        {"511 characters fit", "+CMT: 255\n" + pdu, "1,1008 [1 255h '" + pdu + "'512]"},
        {"512 do not, the length stays", "+CMT: 255\n" + pdu + "B", "1,1008 [1 255h ''512]"},
        {"empty still tells", "+CMT:", "1,1008 [1 0h ''512]"},

        {"success is as long as a message", "^HCMGSS: 7", "1,1010 [42 7 ''510]"},
        {"empty still tells", "^HCMGSS:", "1,1010 [42 0 ''510]"},
        {"failure is 8 bytes", "^HCMGSF: 500", "1,1010 [43 500]"},
        {"empty still tells", "^HCMGSF:", "1,1010 [43 0]"},
        {"a full SIM", "^SMMEMFULL: \"SM\"", "1,1001 []"},
        {"SMS taken for SM", "^SMMEMFULL: \"SMS\""},
        {"nothing taken for SM", "^SMMEMFULL:"},
    };
    expect_reports(cases);
}

TEST(Reports, SupplementaryServices)
{
    const auto ussd = [](const std::string &text, const std::string &lengths) {
        return "2,2003 [0 '" + text + "'512 " + lengths + " 0]";
    };
    const std::string full(510, 'A');
    const report_case cases[] = {
        {"text and coding in their places", "+CUSD: 1,\"Menu, or\",15", "2,2003 [1 'Menu, or'512 8 15 0]"},
        {"without NUL a carriage return stays", "+CUSD: 0,\"A\rB\r\nC\",15", ussd("A\rB\r\nC", "6 15")},
        {"NULs come back, a carriage return goes", "+CUSD: 0,\"\0A\0B\rC\0\",72"s,
         ussd("\0A\0B\0C\0"s, "7 72")},
        {"NULs without quotes", "+CUSD: 0,\0A\0B,72"s, ussd("\0A\0B"s, "4 72")},
        {"a NUL behind the last field", "+CUSD: 2\0"s, "2,2003 [2 ''512 0 0 0]"},
        {"511 characters fit", "+CUSD: 0,\"" + full + "\0\",15"s, ussd(full + "\0"s, "511 15")},
        {"512 do not, their number stays", "+CUSD: 0,\"" + full + "BC\",15", ussd("", "512 15")},
        {"NULs restored past the text", "+CUSD: 0,\"" + std::string(1400, '\0') + "\",15",
         ussd("", "1400 15")},
        {"empty still tells", "+CUSD:", ussd("", "0 0")},

        {"three bytes of their low 8 bits", "^STIN: 300,257,-1", "33,33001 [16711980 0]"},
        {"empty still tells", "^STIN:", "33,33001 [0 0]"},
        {"a call notification told", "+CSSI: 1,2"},
        {"a call notification told", "+CSSU: 1,2,\"123\",129"},
    };
    expect_reports(cases);
    EXPECT_EQ(report("+CUSD: 0,\"\0A\",72\0"s), "+CUSD: 0,\"\rA\",72\r") << "the caller's line is changed";
}

} // namespace

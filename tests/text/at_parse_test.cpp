// Report parsing: fields of a line as "name=value" texts joined by '|', or an error code.
#include "at_parse.h"

#include <gtest/gtest.h>

#include <string>

#include "text/at_parse_status.h"

namespace
{

constexpr char NO_PREFIX[] = "error 1", NO_SEPARATOR[] = "error 2", UNKNOWN_REPORT[] = "error 3";

std::string parsed(const char *prefix, const char *line)
{
    at_field untouched{};
    at_field *head = &untouched;
    if (const int status = at_cmd_parse(&head, prefix, line, 0, 3); status != AT_PARSE_OK) {
        EXPECT_EQ(head, &untouched);
        return "error " + std::to_string(status);
    }
    std::string fields;
    for (const at_field *field = head; field != nullptr; field = field->next)
        fields += (fields.empty() ? "" : "|") + std::string(field->AtFieldName) + "=" + field->AtFieldValue;
    free_at_cmd(head);
    return fields;
}

const struct {
    const char *fault;
    const char *prefix;
    std::string line;
    const char *result;
} cases[] = {
    // values
    {"values must lose their blanks, not what is inside", "^PLMN", "^PLMN: \t001 ,  0 1 ", "mcc=001|mnc=0 1"},
    {"one pair of quotes goes, not the blanks inside", "^PLMN", "^PLMN: 1 , \" 2 \" ", "mcc=1|mnc= 2 "},
    {"missing values keep their places", "^LENDC", "^LENDC:1,,0,",
     "endc_available=1|endc_plmn_available=|endc_restricted=0|nr_pscell="},
    {"fields past the template are no fields", "^MODE", "^MODE:5,4,3,\"2", "sys_mode=5|sys_submode=4"},
    {"commas and quotes in quotes are text", "+CUSD", "+CUSD: 0,\"dial \"1\" now,,or\",15",
     "rspType=0|cusdStr=dial \"1\" now,,or|codeType=15"},
    {"line breaks in a USSD text are text", "+CUSD", "+CUSD: 1,\"\rA\rB\nC\r\nD\r\",72",
     "rspType=1|cusdStr=\rA\rB\nC\r\nD\r|codeType=72"},
    {"so are they without quotes", "+CUSD", "+CUSD: 1,\rA\nB\r", "rspType=1|cusdStr=\rA\nB\r"},
    {"an open quote loses nothing", "+CUSD", "+CUSD: 1,\"cut,\n her", "rspType=1|cusdStr=cut,\n her"},
    {"a lone quote at the end must not overrun", "^PLMN", "^PLMN: 001,\"", "mcc=001|mnc="},
    {"empty quotes are a field, what lacks is none", "^SIMST", "^SIMST: \"\"", "sim_state="},

    // prefixes
    {"+CREG must not be found in +CGREG", "+CREG", "+CGREG: 1", NO_PREFIX},
    {"+CMT must not match +CMTI", "+CMT", "+CMTI: \"SM\",3", NO_SEPARATOR},
    {"longer words must not hide the report", "^NDISSTAT", "^NDISSTAT^NDISSTATEX^NDISSTAT:1", "stat=1"},
    {"a bare prefix is a report without fields", "^SRVST", "^SRVST", ""},
    {"blanks behind the colon are no field", "^SRVST", "^SRVST: \t ", ""},
    {"an empty line", "^SRVST", "", NO_PREFIX},
    {"a report without a template", "^FACTORY", "^FACTORY: 1", UNKNOWN_REPORT},
    {"no prefix at all", "", "^FACTORY: 1", UNKNOWN_REPORT},
    {"names must not run out", "^REPORTLINEINDEX", "^REPORTLINEINDEX:a,1,2,3,4,5,6,7,8,9,10,11,12",
     "name=a|index1=1|index2=2|index3=3|index4=4|index5=5|index6=6|index7=7|index8=8|index9=9|index10=10|"
     "index=11|index=12"},

    // a header and its PDU
    {"one header field is the length", "+CMT", "+CMT: 25\n0791", "length=25|pdu=0791"},
    {"an alpha with a comma and a line break", "+CMT", "+CMT: \"J,\nD\",24\n0004",
     "alpha=J,\nD|length=24|pdu=0004"},
    {"an open quote must not take the PDU", "+CMT", "+CMT: \"Doe,24\n0004", "length=Doe,24|pdu=0004"},
    {"more header fields must not become the PDU", "+CMT", "+CMT: ,24,7\n0004", "alpha=|length=24|pdu=0004"},
    {"line breaks between header and PDU", "+CBM", "+CBM: 88 \r\n\r\n 46A0 \r\nrest", "length=88|pdu=46A0"},
    {"a header without its PDU", "+CBM", "+CBM: 88\r\n", "length=88"},
    {"a PDU without its header", "+CDS", "+CDS: \n0791", "pdu=0791"},
    {"neither", "+CMT", "+CMT: \r\n", ""},
    {"a comma behind the length must not drop the PDU", "+CDS", "+CDS: 24,\n0791,1", "length=24|pdu=0791,1"},
};

TEST(AtParse, Results)
{
    for (const auto &c : cases)
        EXPECT_EQ(parsed(c.prefix, c.line.c_str()), c.result) << c.fault;
}

TEST(AtParse, ListsThatLiveAtTheSameTimeAndLongOnesKeepTheirValues)
{
    std::string many = "^REPORTLINEINDEX:a";
    std::string result = "name=a";
    for (int i = 1; i <= 600; ++i) {
        many += ",7";
        result += "|index" + (i <= 10 ? std::to_string(i) : "") + "=7";
    }
    at_field *first = nullptr;
    at_field *second = nullptr;
    ASSERT_EQ(at_cmd_parse(&first, "^PLMN", "^PLMN:262,01", 0, 3), AT_PARSE_OK);
    ASSERT_EQ(at_cmd_parse(&second, "^MODE", "^MODE:5,4", 0, 3), AT_PARSE_OK);
    EXPECT_EQ(parsed("^REPORTLINEINDEX", many.c_str()), result);
    free_at_cmd(first);
    EXPECT_EQ(parsed("^PLMN", "^PLMN:001,02"), "mcc=001|mnc=02");
    EXPECT_STREQ(second->AtFieldValue, "5");
    EXPECT_STREQ(second->next->AtFieldValue, "4");
    EXPECT_EQ(parsed("^REPORTLINEINDEX", many.c_str()), result);
    free_at_cmd(second);
}

TEST(AtParse, BadArguments)
{
    at_field *head = nullptr;
    EXPECT_EQ(at_cmd_parse(nullptr, "^PLMN", "^PLMN:1", 0, 3), AT_PARSE_BAD_ARGUMENT);
    EXPECT_EQ(at_cmd_parse(&head, nullptr, "^PLMN:1", 0, 3), AT_PARSE_BAD_ARGUMENT);
    EXPECT_EQ(at_cmd_parse(&head, "^PLMN", nullptr, 0, 3), AT_PARSE_BAD_ARGUMENT);
    EXPECT_EQ(at_cmd_parse(&head, "^PLMN", "^PLMN:1", 1, 3), AT_PARSE_BAD_ARGUMENT);
    EXPECT_EQ(at_cmd_parse(&head, "^PLMN", "^PLMN:1", 0, 0), AT_PARSE_BAD_ARGUMENT);
    EXPECT_EQ(head, nullptr);
    EXPECT_EQ(ParseHfreqInfoResult(nullptr, nullptr), AT_PARSE_BAD_ARGUMENT);
    free_at_cmd(nullptr);
    HfreqInfoExFree(nullptr);
}

} // namespace

// What vlkctl at prints is what a terminal on the modem's own line shows: sixty commands, with reports between the
// lines of their answers, and answers that are too long for one record.
#include "system.h"

#include <random>
#include <sstream>

#include <gmock/gmock.h>
#include <poll.h>
#include <termios.h>

using testing::HasSubstr;

namespace
{
struct dialogue {
    const char *command;
    std::vector<const char *> lines;
    const char *final_result = "OK";
};

const dialogue DIALOGUES[] = {
    {"AT", {}},
    {"ATI", {"Manufacturer: Example", "Model: EX-1", "+GCAP: +CGSM"}},
    {"ATI1", {"EX-1", "1.0.0"}},
    {"AT&V", {"ACTIVE PROFILE:", "E0 Q0 V1 X4", "S00:000 S03:013"}},
    {"ATS0?", {"000"}},
    {"ATH", {}},
    {"ATD555;", {}},
    {"ATD556;", {}, "NO CARRIER"},
    {"ATD557;", {}, "BUSY"},
    {"AT+GMI", {"Example"}},
    {"AT+GMR", {"Revision 1", "Build 2"}},
    {"AT+CGMM", {"EX-1 LTE"}},
    {"AT+CGSN", {"001010123456789"}},
    {"AT+CGSN=1", {"+CGSN: \"001010123456789\""}},
    {"AT+CIMI", {"001010123456789"}},
    {"AT+CCID", {"+ICCID: 89001012345678901234"}},
    {"AT+GCAP", {"+GCAP: +CGSM,+DS,+ES"}},
    {"AT+CSQ", {"+CSQ: 20,99"}},
    {"at+csq", {"+CSQ: 20,99"}},
    {"AT+CESQ", {"+CESQ: 99,99,255,255,20,50"}},
    {"AT+CPAS", {"+CPAS: 0"}},
    {"AT+CBC", {"+CBC: 0,80"}},
    {"AT+CREG?", {"+CREG: 2,1,\"1A2B\",\"0C3D4E5F\",7"}},
    {"AT+CGREG?", {"+CGREG: 0,1"}},
    {"AT+CEREG?", {"+CEREG: 0,5"}},
    {"AT+C5GREG?", {"+C5GREG: 0,0"}},
    {"AT+CREG=?", {"+CREG: (0-2)"}},
    {"AT+CREG=2", {}},
    {"AT^HCSQ?", {"^HCSQ: \"LTE\",50,40,90,20"}},
    {"at^hcsq?", {"^HCSQ: \"LTE\",50,40,90,20"}},
    {"AT^HCSQ=1", {}},
    {"AT^SYSINFOEX", {"^SYSINFOEX: 2,3,0,1,,6,\"LTE\",101,\"LTE\""}},
    {"AT^NDISSTATQRY?", {"^NDISSTATQRY: 1,,,\"IPV4\"", "^NDISSTATQRY: 0,,,\"IPV6\""}},
    {"AT^MODE", {"^MODE: 5,4"}},
    {"AT^VERSION?", {"^VERSION:BDT:Jan 1 2026", "^VERSION:EXTS:1.0"}},
    {"AT+COPS?", {"+COPS: 0,0,\"SPRING\",7"}},
    {"AT+COPS=?", {"+COPS: (2,\"CONNECT\",\"RING\",\"00101\",7),,(0-4),(0-2)"}},
    {"AT+CPOL?", {"+CPOL: 1,0,\"SPRING\"", "+CPOL: 2,0,\"OTHER\"", "+CPOL: 3,0,\"XLEMA\""}},
    {"AT+COPN", {"+COPN: \"00101\",\"SPRING\"", "+COPN: \"00102\",\"OTHER\""}},
    {"AT+CNUM", {"+CNUM: \"RING me\",\"+123\",145"}},
    {"AT+CLCC", {}},
    {"AT+CEER", {"+CEER: CONNECT failed"}},
    {"AT+CPBR=3", {"+CPBR: 3,\"123\",129,\"CONNECT Ltd\""}},
    {"AT+CPBF=\"a\"", {"+CPBF: 1,\"1\",129,\"ab\"", "+CPBF: 7,\"2\",129,\"+CREG: a\""}},
    {"AT+CLIP?", {"+CLIP: 1,1"}},
    {"AT+CCWA=1,2", {"+CCWA: 1,1", "+CCWA: 0,4"}},
    {"AT+CUSD?", {"+CUSD: 1"}},
    {"AT+CGDCONT?", {"+CGDCONT: 1,\"IP\",\"CONNECT.net\",\"\",0,0", "+CGDCONT: 2,\"IP\",\"ims\",\"\",0,0"}},
    {"AT+CGPADDR=1", {"+CGPADDR: 1,\"192.0.2.10\""}},
    {"AT+FCLASS?", {"0"}},
    {"AT+CPIN?", {"+CPIN: READY"}},
    {"AT+CPIN=\"0000\"", {}, "+CME ERROR: 16"},
    {"AT+CLCK=\"SC\",2", {"+CLCK: 0"}},
    {"AT+CRSM=176,12258,0,0,10", {"+CRSM: 144,0,\"98001012345678901234\""}},
    {"AT+CMGL=4", {"+CMGL: 1,1,,24", "0004AA", "+CMGL: 2,1,\"CONNECT\",24", "0004BB"}},
    {"AT+CMGL=\"ALL\"", {"+CMGL: 0,\"REC READ\",\"+1\",,\"26/01/01\"", "Hello", "world"}},
    {"AT+CMGR=1", {"+CMGR: 1,,24", "0004AA"}},
    {"AT+CMGR=9", {}, "+CMS ERROR: 321"},
    {"AT^HCMGR=1", {"^HCMGR: +1,2026,01", "Hello", "world\\x1A"}},
    {"AT!GSTATUS?", {"!GSTATUS:", "Current Time: 6070", "Mode: ONLINE"}},
    {"AT$QCRMCALL?", {"$QCRMCALL: 1,V4"}},
    {"AT+X=1", {}, "ERROR"},
};
static_assert(std::size(DIALOGUES) >= 60);

/// The dialogue file's steps, with up to two reports at each place where one may come.
std::string steps_of(const dialogue &each, std::mt19937 *random)
{
    static const char *const REPORTS[] = {
        "^RSSI: 18", "RING",         "+CMTI: \"SM\",3", "^SIMST: 1",     "+CEREG: 1", "+CIEV: 2,3",
        "+CTZV: +4", "^STIN: 1,1,0", "^LTESIGLEV: 3",   "+CRING: VOICE", "^SRVST: 2", "+CGEV: NW DETACH"};
    std::string text = std::string("command ") + each.command + "\n";
    const auto add_reports = [&] {
        for (auto count = random == nullptr ? 0 : (*random)() % 3; count > 0; --count)
            text += std::string("    report ") + REPORTS[(*random)() % std::size(REPORTS)] + "\n";
    };
    for (const char *line : each.lines) {
        add_reports();
        text += std::string("    line ") + line + "\n";
    }
    add_reports();
    return text + "    final " + each.final_result + "\n";
}

std::string dialogue_file(std::mt19937 *random)
{
    std::string text;
    for (const dialogue &each : DIALOGUES)
        text += steps_of(each, random);
    return text;
}

/// A terminal on the modem's own line.
class terminal
{
public:
    explicit terminal(const std::string &device) : line_(open(device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        EXPECT_GE(line_, 0) << device;
        termios settings{};
        tcgetattr(line_, &settings);
        cfmakeraw(&settings);
        tcsetattr(line_, TCSANOW, &settings);
        ask("ATE0");
    }
    ~terminal() { close(line_); }
    terminal(const terminal &) = delete;
    terminal &operator=(const terminal &) = delete;

    /// The lines up to and with the final result, which ends the modem's text.
    std::vector<std::string> ask(const std::string &command)
    {
        const std::string text = command + "\r";
        EXPECT_EQ(write(line_, text.data(), text.size()), ssize_t(text.size()));
        std::string seen;
        char bytes[4096];
        while (!is_complete(seen)) {
            pollfd wanted = {line_, POLLIN, 0};
            if (poll(&wanted, 1, 10000) <= 0) {
                ADD_FAILURE() << command << ": " << seen;
                break;
            }
            const ssize_t got = read(line_, bytes, sizeof bytes);
            seen.append(bytes, got > 0 ? size_t(got) : 0);
        }
        return lines_of(seen);
    }

private:
    static std::vector<std::string> lines_of(const std::string &text)
    {
        std::vector<std::string> lines;
        std::istringstream all(text);
        for (std::string line; std::getline(all, line);) {
            while (!line.empty() && line.back() == '\r')
                line.pop_back();
            if (!line.empty())
                lines.push_back(line);
        }
        return lines;
    }
    static bool is_complete(const std::string &text)
    {
        const std::vector<std::string> lines =
            text.ends_with("\r\n") ? lines_of(text) : std::vector<std::string>{};
        for (const char *end : {"OK", "ERROR", "NO CARRIER", "BUSY", "+CME ERROR", "+CMS ERROR"})
            if (!lines.empty() && lines.back().starts_with(end))
                return true;
        return false;
    }

    int line_;
};
} // namespace

TEST(AtTable, VlkctlPrintsWhatATerminalShows)
{
    system_under_test quiet;
    quiet.start_modem(dialogue_file(nullptr));
    terminal shown(quiet.variables.at("VLK_AT_DEVICE"));

    std::mt19937 random(std::random_device{}());
    const auto seed = random();
    SCOPED_TRACE(seed);
    random.seed(seed);
    system_under_test system;
    system.start_modem(dialogue_file(&random), "random");
    system.start_daemon();
    for (const dialogue &each : DIALOGUES) {
        std::vector<std::string> lines = shown.ask(each.command);
        ASSERT_FALSE(lines.empty()) << each.command;
        const std::string final_result = lines.back();
        lines.pop_back();
        std::string text;
        for (const std::string &line : lines)
            text += line + "\n";
        const outcome seen = system.vlkctl({"at", each.command});
        EXPECT_EQ(seen.out, text) << each.command;
        EXPECT_EQ(seen.code, final_result == "OK" ? 0 : 1) << each.command;
        if (final_result != "OK" || lines.empty()) {
            EXPECT_EQ(seen.err, "vlkctl: " + final_result + "\n") << each.command;
        }
    }
}

TEST(AtTable, LongAnswersAreAskedForInPiecesOrSayThatTheyAreCut)
{
    system_under_test system;
    system.start_modem(
        "command AT+CPBR=?\n    line +CPBR: (1-30),40,14\n    final OK\n"
        "command AT+CPBR=1,11\n    repeat 11\n        line +CPBR: {i},\"1234567890123456789012345678"
        "\",129,\"some name or other, entry {i} of a long telephone book\"\n    end\n    final OK\n"
        "command AT+CPBR=12,22\n    final +CME ERROR: 22\n"
        "command AT+CPBR=23,30\n    line +CPBR: 30,\"1\",129,\"last\"\n    final OK\n"
        "command AT+CPMS?\n    line +CPMS: \"SM\",40,40,\"SM\",40,40,\"SM\",40,40\n    final OK\n"
        "command AT+CMGL=4\n    repeat 40\n        line +CMGL: {i},1,,24\\r\\n0004AABBCCDDEEFF0011223344"
        "5566778899AABBCCDDEEFF{i}\n    end\n    final OK\n"
        "command AT+CMGR={n:#}\n    line +CMGR: 1,,24\\r\\n0004AABBCCDDEEFF00112233445566778899AABBCCDDE"
        "EFF{n}\n    final OK\n"
        "command AT+CMGR=0\n    final +CMS ERROR: 321\n"
        "command AT+CMGL=1\n    repeat 40\n        line +CMGL: {i},1,,24\\r\\n0004AABBCCDDEEFF0011223344"
        "5566778899AABBCCDDEEFF{i}\n    end\n    final OK\n"
        "command AT+LIST?\n    repeat 90\n        line +LIST: {i},\"a line of no great length\"\n"
        "    end\n    final OK\n"
        "command ATI3\n    repeat 90\n        line line {i} of a long text\n    end\n    final OK\n");
    system.start_daemon();

    const outcome book = system.vlkctl({"at", "AT+CPBR=1,30"});
    EXPECT_EQ(book.code, 0) << book.err;
    EXPECT_EQ(std::count(book.out.begin(), book.out.end(), '\n'), 12);
    EXPECT_THAT(book.out, testing::EndsWith("+CPBR: 30,\"1\",129,\"last\"\n"));

    std::string listed;
    for (int n = 1; n <= 40; ++n)
        listed += "+CMGL: " + std::to_string(n) + ",1,,24\n0004AABBCCDDEEFF00112233445566778899AABBCCDDEEFF" +
                  std::to_string(n) + "\n";
    const outcome messages = system.vlkctl({"at", "AT+CMGL=4"});
    EXPECT_EQ(messages.code, 0) << messages.err;
    EXPECT_EQ(messages.out, listed);

    for (const auto &[command, begin] : {std::pair("AT+CMGL=1", "+CMGL: 1,1,,24\n"),
                                         {"AT+LIST?", "+LIST: 1,\"a line"},
                                         {"ATI3", "line 1 of a long text\nline 2"}}) {
        const outcome cut = system.vlkctl({"at", command});
        EXPECT_EQ(cut.code, 8) << command << cut.err;
        EXPECT_THAT(cut.err, HasSubstr("its end is missing")) << command;
        EXPECT_THAT(cut.out, testing::StartsWith(begin)) << command;
        EXPECT_THAT(system.vlkctl({"at", command, "--json"}).out, HasSubstr("\"cut\":true")) << command;
    }
}

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
    {"AT+CLAC", {"&F", "D", "+CREG", "+CSQ", "^HCSQ", "+CRING", "+CMGL"}},
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

/// A dialogue with as many lines of that kind.
static std::string lots(const std::string &command, int count, const std::string &line)
{
    return "command " + command + "\n    repeat " + std::to_string(count) + "\n        line " + line +
           "\n    end\n    final OK\n";
}

TEST(AtTable, LongAnswersAreWholeAndWhatIsTooLongIsAskedForInPieces)
{
    const std::string entry =
        ",\"1234567890123456789012345678\",129,\"SPRING or other, a long telephone book\"";
    const std::string message = ",1,,24\\r\\n0004AABBCCDDEEFF00112233445566778899AABBCCDDEEFF00112233";
    const struct {
        const char *command;
        int count;
        std::string line; // with its number in front
    } answers[] = {
        {"AT+SET=1", 61, "+SET: {i},\"collected, this leaves one line\""},
        {"AT+LIST?", 90, "+LIST: {i},\"a line of no great length\""},
        {"AT^NETSCAN", 200, "^NETSCAN: {i},-95,3"}, // all of them look like reports
        {"ATI3", 90, "line {i} of a long text"},
        {"AT+CPBR=1,40", 40, "+CPBR: {i}" + entry},
        {"AT+CPBR=1,400", 400,
         "+CPBR: {i}" + entry}, // more than the daemon keeps: asked for again, in two pieces
        {"AT+CMGL=4", 400, "+CMGL: {i}" + message}, // the same, one by one
    };
    std::string steps = "command AT+CPBR=?\n    line +CPBR: (1-400),40,14\n    final OK\n"
                        "command AT+CPMS?\n    line +CPMS: \"SM\",400,400,\"SM\",400,400\n    final OK\n"
                        "command AT+CMGR={n:#}\n    line +CMGR: " +
                        message.substr(1) + "\n    final OK\n" +
                        lots("AT+CPBR=1,234", 234, "+CPBR: {i}" + entry);
    for (const auto &each : answers)
        steps += lots(each.command, each.count, each.line);
    steps += "command AT+CPBR=235,400\n";
    for (int i = 235; i <= 400; ++i)
        steps += "    line +CPBR: " + std::to_string(i) + entry + "\n";
    steps += "    final OK\n";
    system_under_test system;
    system.start_modem(steps);
    system.start_daemon();
    for (const auto &each : answers) {
        std::string expected;
        for (int i = 1; i <= each.count; ++i) {
            std::string line = each.line;
            line.replace(line.find("{i}"), 3, std::to_string(i));
            if (const size_t end = line.find("\\r\\n"); end != std::string::npos)
                line.replace(end, 4, "\n");
            expected += line + "\n";
        }
        const outcome seen = system.vlkctl({"at", each.command});
        EXPECT_EQ(seen.code, 0) << each.command << seen.err;
        EXPECT_EQ(seen.out, expected) << each.command;
    }
}

TEST(AtTable, AnAnswerThatIsNotWholeSaysSo)
{
    const char *const HEAD = "    line +CMGL: 1,\"REC READ\",\"+1\",,\"26/01/01\"\\r\\n";
    const char *const TOO_LONG = "too long", *const NO_END = "looks like the end";
    const struct {
        const char *command;
        std::string lines;
        const char *end; // of what is printed
        const char *why; // empty: whole
    } answers[] = {
        {"AT+HUGE?", "    repeat 900\n        line +HUGE: {i},\"there are a lot of these lines\"\n    end\n",
         "\"\n", TOO_LONG},
        {"AT+CMGL=1",
         "    repeat 400\n        line +CMGL: {i},1,,24\\r\\n0004AABBCCDDEEFF00112233445566778899AABBCC"
         "DDEEFF00112233445566\n    end\n",
         "\n", TOO_LONG},
        {"AT+CMGL=\"ALL\"", HEAD + std::string("Hello\\r\\nOK see you\\r\\nlater\n"), "\nOK see you\n",
         NO_END},
        {"AT+CMGL=\"REC READ\"", HEAD + std::string("Hello\\r\\nOK\n") + HEAD + "x\n", "Hello\nOK\n", NO_END},
        {"AT+CMGR=1", "    line +CMGR: \"REC READ\",\"+1\",,\"26/01/01\"\\r\\nERROR 5\n", "\nERROR 5\n",
         NO_END},
        {"AT+CMGL=\"STO SENT\"", HEAD + std::string("+CREG: 1 is a text\n"), "\"\n+CREG: 1 is a text\n", ""},
        {"ATI7", "    line OKI Modem\n", "OKI Modem\n", NO_END},
        {"AT+CMGL=\"REC UNREAD\"", HEAD + std::string("SPRING, CONNECT me\n    report RING\n"),
         "SPRING, CONNECT me\n", ""},
    };
    std::string steps;
    for (const auto &each : answers)
        steps += std::string("command ") + each.command + "\n" + each.lines + "    final OK\n";
    system_under_test system;
    system.start_modem(steps);
    system.start_daemon();
    for (const auto &[command, lines, end, why] : answers) {
        const bool is_whole = *why == '\0';
        const outcome seen = system.vlkctl({"at", command});
        EXPECT_EQ(seen.code, is_whole ? 0 : 8) << command << seen.err;
        EXPECT_THAT(seen.err, HasSubstr(why)) << command;
        EXPECT_THAT(seen.out, testing::EndsWith(end)) << command;
        EXPECT_THAT(system.vlkctl({"at", command, "--json"}).out,
                    HasSubstr(is_whole ? "\"cut\":false" : "\"cut\":true"))
            << command;
    }
    system.expect_signal("after all that");
}

TEST(AtTable, NamesOfReportsInTheListOfCommandsAreNoReports)
{
    system_under_test system;
    system.start_modem(
        "command AT+CLAC\n    line +CREG\n    line &F\n    line ^HCSQ\n    report +CMTI: \"SM\",3\n"
        "    line +CSQ\n    line D\n    line +CRING\n    final OK\n");
    system.start_daemon();
    const std::unique_ptr<process> monitor = system.start_vlkctl({"monitor", "--seconds", "2", "--json"});
    ASSERT_TRUE(monitor->wait_for_error("listening"));
    EXPECT_EQ(system.vlkctl({"at", "AT+CLAC"}).out, "+CREG\n&F\n^HCSQ\n+CSQ\nD\n+CRING\n");
    monitor->wait();
    EXPECT_THAT(monitor->out, HasSubstr("CMTI"));
    EXPECT_THAT(monitor->out,
                testing::Not(testing::AnyOf(HasSubstr("CREG"), HasSubstr("HCSQ"), HasSubstr("RING"))));
}

TEST(AtTable, TheWaitIsForAllCommandsOfALine)
{
    system_under_test system;
    system.start_modem("command AT+SLOW\n    delay 700ms\n    final OK\n");
    system.start_daemon();
    EXPECT_EQ(system.vlkctl({"at", "AT+SLOW", "--wait", "60"}).code, 0);
    const outcome seen = system.vlkctl({"at", "AT+SLOW;+SLOW;+SLOW;+SLOW", "--wait", "1.5"});
    EXPECT_EQ(seen.code, 3) << seen.out << seen.err;
}

// The commands of vlkctl that know what they ask, and how it behaves on a terminal, in a pipe and without either.
#include "system.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <pty.h>

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

namespace
{
json parsed(const std::string &text)
{
    return json::parse(text, nullptr, false);
}

/// vlkctl behind a shell, for redirections.
outcome in_shell(const system_under_test &system, const std::string &line)
{
    process shell({"/bin/sh", "-c", line}, system.variables);
    const int code = shell.wait();
    return {code, shell.out, shell.err};
}

/// Runs vlkctl on a terminal of its own and returns what that shows until it ends.
class on_terminal
{
public:
    on_terminal(const system_under_test &system, std::vector<std::string> arguments, const char *locale = "C")
    {
        pid_ = forkpty(&line_, nullptr, nullptr, nullptr);
        if (pid_ == 0) {
            setenv("LC_ALL", locale, 1);
            arguments.insert(arguments.begin(), VLKCTL);
            become(std::move(arguments), system.variables);
        }
    }
    ~on_terminal()
    {
        if (pid_ > 0)
            finish();
        close(line_);
    }
    on_terminal(const on_terminal &) = delete;
    on_terminal &operator=(const on_terminal &) = delete;

    void type(const std::string &text) const
    {
        EXPECT_EQ(write(line_, text.data(), text.size()), ssize_t(text.size()));
    }
    bool wait_for(const std::string &text)
    {
        while (shown.find(text) == std::string::npos)
            if (!read_more())
                return false;
        return true;
    }
    int finish()
    {
        while (read_more()) {}
        int status = 0;
        waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    std::string shown;

private:
    bool read_more()
    {
        char bytes[1024];
        pollfd wanted = {line_, POLLIN, 0};
        if (poll(&wanted, 1, LIMIT_MS) <= 0) {
            kill(pid_, SIGKILL);
            return false;
        }
        const ssize_t got = read(line_, bytes, sizeof bytes);
        if (got > 0)
            shown.append(bytes, size_t(got));
        return got > 0;
    }

    static constexpr int LIMIT_MS = 20000;

    int line_ = -1;
    pid_t pid_ = -1;
};

constexpr char LOCKED_SIM[] = "set pin SIM PIN\nset tries 3\n"
                              "command AT+CPIN?\n    line +CPIN: {pin}\n    final OK\n"
                              "command AT+CPINR=*\n    line +CPINR: SIM PIN,{tries},3\n    final OK\n"
                              "command AT+CPIN=\"9999\"\n    set tries 1\n    final +CME ERROR: 16\n"
                              "command AT+CPIN=\"1234\"\n    set pin READY\n    final OK\n";
} // namespace

TEST(Vlkctl, TellsWhatPeopleWantToKnow)
{
    system_under_test system;
    system.start_modem();
    system.start_daemon();
    const struct {
        std::vector<std::string> arguments;
        std::vector<const char *> shown;
        json object;         // members of the JSON form
        const char *members; // the names of all of them, as docs/vlkctl-json.md has them
    } cases[] = {
        {{"signal"},
         {"LTE", "-101 dBm", "2 of 4"},
         {{"technology", "LTE"}, {"dbm", -101.0}, {"bars", 2}},
         "bars dbm rsrp rsrq rssi sinr technology"},
        {{"network"},
         {"registered, home network", "Example Test", "LTE", "0C3D4E5F"},
         {{"registered", true}, {"operator", "Example Test"}, {"cell", "0C3D4E5F"}, {"technology", "LTE"}},
         "area cell domains operator registered selection state technology"},
        {{"sim"},
         {"ready", "89001012345678901234", "001010123456789"},
         {{"ready", true}, {"iccid", "89001012345678901234"}, {"imsi", "001010123456789"}},
         "iccid imsi ready state tries_left"},
        {{"modem"},
         {"Example", "EX-1 LTE", "1.0.0", "001010123456789"},
         {{"maker", "Example"}, {"imei", "001010123456789"}},
         "firmware imei maker model"},
        {{"scan"},
         {"current    Example Test", "available  Other Test", "00102"},
         {{"command", "AT+COPS=?"}},
         "command cut networks seconds"},
        {{"ussd", "*100#"},
         {"Your balance is 10.00"},
         {{"type", 0}, {"text", "Your balance is 10.00"}},
         "state text time type"},
        {{"list"}, {"ready", system.folder.c_str()}, {}, "daemons"},
        {{"status"},
         {"running"},
         {{"running", true}, {"modem", "ready"}},
         "command details device modem modem_seconds pid reason running runtime_dir waiting"},
        {{"at", "AT+CSQ"}, {"+CSQ: "}, {{"cut", false}}, "command cut lines response result"},
        {{"rssi"},
         {"^RSSI"},
         {{"result", {{"code", 2}, {"text", "OK"}}}},
         "command lines response result seq time_left"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.arguments[0]);
        const outcome plain = system.vlkctl(each.arguments);
        EXPECT_EQ(plain.code, 0) << plain.err;
        for (const char *text : each.shown)
            EXPECT_THAT(plain.out, HasSubstr(text));
        std::vector<std::string> with_json = each.arguments;
        with_json.push_back("--json");
        const json object = parsed(system.vlkctl(with_json).out);
        ASSERT_TRUE(object.is_object());
        for (const auto &[name, value] : each.object.items())
            EXPECT_EQ(object.value(name, json()), value) << name;
        std::string members; // in their order
        for (const auto &[name, value] : object.items())
            members += (members.empty() ? "" : " ") + name;
        EXPECT_EQ(members, each.members);
    }
}

TEST(Vlkctl, WatchesTheSignalWithoutAskingTheModemAgain)
{
    system_under_test system;
    system.start_modem(
        "set asked 0\n"
        "command AT^HCSQ?\n    count asked\n    line ^HCSQ: \"LTE\",50,40,90,20\n    final OK\n"
        "command AT+ASKED?\n    line +ASKED: {asked}\n    final OK\n"
        "every 100ms\n    report ^HCSQ: \"LTE\",52,45,160,22\n");
    system.start_daemon();
    const outcome watched = system.vlkctl({"signal", "--watch", "--count", "4"});
    EXPECT_EQ(watched.code, 0) << watched.err;
    EXPECT_EQ(std::count(watched.out.begin(), watched.out.end(), '\n'), 4);
    EXPECT_THAT(watched.out, HasSubstr("LTE  -96 dBm  ##..\n"));
    EXPECT_EQ(system.vlkctl({"at", "AT+ASKED?"}).out, "+ASKED: 1\n");
    on_terminal graph(system, {"signal", "--watch"});
    EXPECT_TRUE(graph.wait_for("-96 dBm  ##..  "));
    EXPECT_TRUE(graph.wait_for("##..  ---")) << "the graph moves";
    graph.type("\x03");
    EXPECT_EQ(graph.finish(), 0) << graph.shown;
}

TEST(Vlkctl, ThePinIsTriedOnceAndShownNowhere)
{
    system_under_test system;
    system.start_modem(LOCKED_SIM);
    system.start_daemon();
    EXPECT_THAT(system.vlkctl({"sim"}).out, HasSubstr("locked: the PIN is wanted\ntries left:  3"));
    const outcome odd = in_shell(system, "echo 12a4 | " VLKCTL " sim unlock");
    EXPECT_EQ(odd.code, 2);
    EXPECT_THAT(odd.err, HasSubstr("nothing was sent"));

    const outcome wrong = in_shell(system, "printf '9999\\n1234\\n' | " VLKCTL " sim unlock --json");
    EXPECT_EQ(wrong.code, 1);
    EXPECT_EQ(parsed(wrong.out).value("tries_left", 0), 1);
    EXPECT_THAT(wrong.out + wrong.err, Not(HasSubstr("9999")));
    const outcome refused = in_shell(system, "echo 9999 | " VLKCTL " sim unlock");
    EXPECT_EQ(refused.code, 6);
    EXPECT_THAT(refused.err, HasSubstr("--last-try"));

    on_terminal typed(system, {"sim", "unlock", "--last-try"});
    ASSERT_TRUE(typed.wait_for("PIN (tries left: 1): ")) << typed.shown;
    typed.type("1234\n");
    EXPECT_EQ(typed.finish(), 0) << typed.shown;
    EXPECT_THAT(typed.shown, HasSubstr("unlocked"));
    EXPECT_THAT(typed.shown, Not(HasSubstr("1234")));
    EXPECT_EQ(in_shell(system, "echo 9999 | " VLKCTL " sim unlock").out, "the SIM is not locked\n");
}

TEST(Vlkctl, ReadsACommandFromStandardInputAndPrintsNoSecret)
{
    system_under_test system;
    system.start_modem(LOCKED_SIM);
    system.start_daemon();
    EXPECT_EQ(in_shell(system, "echo AT+CSQ | " VLKCTL " at -").out, SIGNAL);
    EXPECT_EQ(in_shell(system, VLKCTL " at - </dev/null").code, 2);
    const outcome piped = in_shell(system, "echo 'AT+CPIN=\"9999\"' | " VLKCTL " at - --json");
    EXPECT_EQ(parsed(piped.out).value("command", ""), "AT+CPIN=***");
    EXPECT_THAT(piped.out + piped.err, Not(HasSubstr("9999")));

    on_terminal typed(system, {"at", "-"});
    ASSERT_TRUE(typed.wait_for("AT command: "));
    typed.type("AT+CPIN=\"9999\"\n");
    EXPECT_EQ(typed.finish(), 1);
    EXPECT_THAT(typed.shown, Not(HasSubstr("9999")));
    EXPECT_THAT(typed.shown, HasSubstr("+CME ERROR: 16"));
}

TEST(Vlkctl, AScanShowsItsProgressAndStopScanTellsTheTruth)
{
    system_under_test system;
    system.start_modem(
        "set scan_step 2s\n"
        "command AT+COPS=?\n    stop-by *\n    delay 30s\n    line +COPS: ,,(0-4)\n    final OK\n");
    system.start_daemon();
    on_terminal scan(system, {"scan", "--vendor"});
    EXPECT_TRUE(scan.wait_for("scanning, 1 s")) << scan.shown;
    scan.type("\x03");
    EXPECT_EQ(scan.finish(), 130) << scan.shown;
    EXPECT_THAT(scan.shown, HasSubstr("scan stopped"));
    system.expect_signal("after the scan");

    const auto other = system.start_vlkctl({"scan", "--vendor"});
    system.wait_until_answering();
    const outcome stopped = system.vlkctl({"stop-scan", "--json"});
    EXPECT_EQ(stopped.code, 0) << stopped.err;
    EXPECT_EQ(parsed(stopped.out).value("result", ""), "stopped");
    EXPECT_EQ(other->wait(), 0) << other->err;

    system.modem.reset();
    ASSERT_TRUE(
        wait_until([&] { return system.vlkctl({"status"}).out.find("absent") != std::string::npos; }));
    const outcome absent = system.vlkctl({"stop-scan", "--json"});
    EXPECT_EQ(absent.code, 7);
    EXPECT_EQ(parsed(absent.out).value("result", ""), "not possible");
    EXPECT_THAT(absent.err, HasSubstr("the modem is absent"));
}

TEST(Vlkctl, UssdLetsTheUserAnswer)
{
    system_under_test system;
    system.start_modem("command AT+CUSD=1,\"*100#\",15\n    final OK\n    report +CUSD: 1,\"041F0440\",72\n"
                       "command AT+CUSD=1,\"2\",15\n    report +CUSD: 0,\"two\",15\n    final OK\n"
                       "command AT+CUSD=1,\"*9#\",15\n    final OK\n    report +CUSD: 4\n");
    system.start_daemon();
    const outcome seen = in_shell(system, "echo 2 | " VLKCTL " ussd '*100#'");
    EXPECT_EQ(seen.code, 0) << seen.err;
    EXPECT_EQ(seen.out, "\u041F\u0440\ntwo\n");
    on_terminal plain(system, {"ussd", "*100#"});
    EXPECT_TRUE(plain.wait_for("\\xD0\\x9F\\xD1\\x80")) << "not ASCII in a C locale: " << plain.shown;
    plain.type("\n");
    EXPECT_EQ(plain.finish(), 0);
    on_terminal utf8(system, {"ussd", "*100#"}, "C.UTF-8");
    EXPECT_TRUE(utf8.wait_for("\u041F\u0440\r\n")) << utf8.shown;
    utf8.type("2\n");
    EXPECT_EQ(utf8.finish(), 0);
    EXPECT_EQ(system.vlkctl({"ussd", "*9#"}).code, 1);
    EXPECT_EQ(system.vlkctl({"ussd", "a\"b"}).code, 2);
}

TEST(Vlkctl, CtrlCEndsWhatWaitsForTheModem)
{
    const std::vector<std::string> commands[] = {
        {"ussd", "*123#"}, {"at", "AT+SLOW"}, {"scan"}, {"sms", "send", "--to", "1234", "hello"}};
    system_under_test system;
    system.start_modem("command AT+CUSD=1,\"*123#\",15\n    delay 2s\n    final OK\n"
                       "command AT+SLOW\n    delay 2s\n    final OK\n"
                       "command AT+COPS=?\n    delay 2s\n    final OK\n"
                       "command AT+CMGF=0\n    delay 2s\n    final OK\n");
    system.start_daemon();
    for (const auto &command : commands) {
        SCOPED_TRACE(command[0]);
        const std::unique_ptr<process> client = system.start_vlkctl(command);
        system.wait_until_answering();
        client->kill(SIGINT);
        if (client->wait(1) == -1)
            client->kill(SIGINT); // it says goodbye to the network: the second one ends that, too
        EXPECT_EQ(client->wait(1), 130) << client->out << client->err;
        system.expect_signal("when the modem has paid its debt");
    }
}

TEST(Vlkctl, FindsADaemonByTheNameOfItsModem)
{
    system_under_test system;
    system.variables["XDG_RUNTIME_DIR"] = system.folder;
    system.variables["VLK_RUNTIME_DIR"] = system.folder + "/vlk-left";
    system.start_modem();
    system.start_daemon();
    std::filesystem::create_directory(system.folder + "/vlk-right"); // no daemon in it
    environment &variables = system.variables;
    variables["VLK_RUNTIME_DIR"] = "";
    EXPECT_EQ(system.vlkctl({"--modem", "left", "at", "AT+CSQ"}).out, SIGNAL);
    EXPECT_EQ(system.vlkctl({"--modem", "right", "status"}).code, 4);
    const outcome unknown = system.vlkctl({"--modem", "up", "status", "--json"});
    EXPECT_EQ(unknown.code, 2);
    EXPECT_THAT(parsed(unknown.out).value("error", ""), HasSubstr("no modem \"up\""));
    const json daemons = parsed(system.vlkctl({"list", "--json"}).out).value("daemons", json::array());
    const auto state_of = [&](const char *name) {
        for (const json &one : daemons)
            if (one.value("modem", "") == name)
                return one.value("state", "");
        return std::string("missing");
    };
    EXPECT_EQ(state_of("left"), "ready");
    EXPECT_EQ(state_of("right"), "not running");
    variables["VLK_RUNTIME_DIR"] = system.folder + "/vlk-left";
}

TEST(Vlkctl, MonitorsWithTimesMeaningAndAcrossARestart)
{
    system_under_test system;
    system.start_modem("every 200ms\n    report ^HCSQ: \"LTE\",52,45,160,22\n"
                       "every 200ms after 50ms\n    report +CGREG: 5,\"1A2B\",\"0C3D4E5F\",7\n"
                       "every 200ms after 100ms\n    report +CUSD: 0,\"Hi\",15\n"
                       "command AT+CEREG?\n    line +CEREG: 2,5,\"1A2B\",\"0C3D4E5F\",7\n    final OK\n");
    system.start_daemon();
    const auto monitor = system.start_vlkctl({"monitor", "--reconnect", "--look", "--json"});
    ASSERT_TRUE(monitor->wait_for_error("listening"));
    for (const char *meaning :
         {"LTE -96 dBm, 2 of 4 bars", "registered, roaming, LTE, cell 0C3D4E5F", "\"Hi\""})
        EXPECT_TRUE(monitor->wait_for_output(meaning)) << meaning << monitor->out;
    system.daemon->kill(SIGKILL);
    system.daemon->wait();
    ASSERT_TRUE(monitor->wait_for_output("\"kind\":\"gap\"")) << monitor->err;
    monitor->err.clear();
    system.start_daemon();
    ASSERT_TRUE(monitor->wait_for_error("listening"));
    monitor->out += "\n";
    const size_t before = monitor->out.size();
    ASSERT_TRUE(wait_until([&] { return monitor->wait_for_output("}") && monitor->out.size() > before; }));
    monitor->kill(SIGTERM);
    monitor->wait();

    // docs/vlkctl-json.md: names and types of the members, in their order.
    const std::regex time(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d{4})");
    const std::map<std::string, json::value_t> members = {{"time", json::value_t::string},
                                                          {"kind", json::value_t::string},
                                                          {"module", json::value_t::number_unsigned},
                                                          {"event", json::value_t::number_unsigned},
                                                          {"module_name", json::value_t::string},
                                                          {"destination", json::value_t::string},
                                                          {"type", json::value_t::number_unsigned},
                                                          {"name", json::value_t::string},
                                                          {"note", json::value_t::string},
                                                          {"reports", json::value_t::string},
                                                          {"fields", json::value_t::object},
                                                          {"values", json::value_t::array},
                                                          {"length", json::value_t::number_unsigned},
                                                          {"data", json::value_t::string},
                                                          {"missed", json::value_t::number_unsigned},
                                                          {"meaning", json::value_t::string},
                                                          {"error", json::value_t::string}};
    const std::map<std::string, std::vector<const char *>> always = {
        {"event", {"time", "module", "event"}},
        {"bus", {"time", "destination", "type", "length", "data"}},
        {"gap", {"time", "error"}}};
    std::istringstream lines(monitor->out);
    std::map<std::string, int> kinds;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty())
            continue;
        const json object = parsed(line);
        ASSERT_TRUE(object.is_object()) << line;
        const std::string kind = object.value("kind", "");
        ASSERT_TRUE(always.contains(kind)) << line;
        kinds[kind]++;
        for (const char *name : always.at(kind))
            EXPECT_TRUE(object.contains(name)) << name << line;
        for (const auto &[name, value] : object.items()) {
            ASSERT_TRUE(members.contains(name)) << name;
            EXPECT_EQ(value.type(), members.at(name)) << name << line;
        }
        EXPECT_TRUE(std::regex_match(object.value("time", ""), time)) << line;
    }
    EXPECT_EQ(kinds.size(), 3U);
}

TEST(Vlkctl, LeavesTheDaemonAsLargeAsItWas)
{
    system_under_test system;
    system.variables["XDG_STATE_HOME"] = system.folder;
    system.start_modem(
        "command AT+HUGE?\n    repeat 900\n        line +HUGE: {i},\"there are a lot of these\"\n"
        "    end\n    final OK\n");
    system.start_daemon();
    const std::vector<std::string> kinds[] = {
        {"at", "AT+CSQ;+CREG?"},
        {"at", "AT+HUGE?"},
        {"sms", "send", "--to", "+4915112345", "hello"},
        {"sms", "list"},
        {"signal"},
        {"network", "--json"},
        {"status"},
        {"modem"},
        {"monitor", "--seconds", "0.001"},
        {"at", "ATD1;"},
        {"at", "AT+HUGE?", "--wait", "0.005"},
    };
    const auto run_all = [&](int times) {
        for (; times > 0; --times)
            for (const auto &kind : kinds)
                system.vlkctl(kind);
    };
    const std::string process = "/proc/" + std::to_string(system.daemon->pid);
    const auto memory_kb = [&] {
        std::ifstream status(process + "/status");
        for (std::string word; status >> word;)
            if (word == "RssAnon:") {
                long size = 0;
                status >> size;
                return size;
            }
        return 0L;
    };
    const auto descriptors = [&] {
        const std::filesystem::directory_iterator all(process + "/fd");
        return std::distance(begin(all), end(all));
    };
    run_all(2);
    const long memory_before = memory_kb();
    const auto descriptors_before = descriptors();
    run_all(20);
    ASSERT_GT(memory_before, 0);
#ifndef UNDER_SANITIZER                         // which keeps what was freed
    EXPECT_LE(memory_kb(), memory_before + 16); // less than 100 bytes a command
#endif
    EXPECT_TRUE(wait_until([&] { return descriptors() <= descriptors_before; }, 5000));
    system.expect_signal("after all of them");
}

TEST(Vlkctl, SaysSoWhenNobodyCanReadIt)
{
    system_under_test system;
    system.start_modem();
    system.start_daemon();
    for (const char *arguments :
         {" status >&-", " at AT+CSQ >&-", " signal --json >/dev/full", " list >/dev/full", " sms list >&-",
          " network >&-", " --help >/dev/full"}) {
        const outcome seen = in_shell(system, std::string(VLKCTL) + arguments);
        EXPECT_EQ(seen.code, 6) << arguments;
        EXPECT_THAT(seen.err, HasSubstr("cannot write to standard output")) << arguments;
    }
    for (const char *arguments :
         {" --json at", " at AT --timeout 0 --json", " --json bogus", " ussd --json"}) {
        const outcome seen = in_shell(system, std::string(VLKCTL) + arguments);
        EXPECT_EQ(seen.code, 2) << arguments;
        EXPECT_FALSE(parsed(seen.out).value("error", "").empty()) << arguments << seen.out;
        EXPECT_NE(seen.err, "") << arguments;
    }
}

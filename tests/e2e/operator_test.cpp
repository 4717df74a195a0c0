// An operator's life: a healthy day that leaves an empty log, troubles that leave a line each, and no secret in any.
#include "system.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <sys/stat.h>

#include <gmock/gmock.h>

#include "vlk_client.h"

using testing::HasSubstr;
using testing::Not;

namespace
{
const std::string python = "/usr/bin/python3";

size_t lines_of(const std::string &text)
{
    return size_t(std::count(text.begin(), text.end(), '\n'));
}
} // namespace

TEST(Operator, AHealthyDayLeavesAnEmptyLogAndStatusCounts)
{
    constexpr int COMMANDS = 10'000, PORTIONS = 1000; // portions of 100 reports
    system_under_test system;
    system.variables["VLK_TRACE_LEVEL"] = "0";
    system.start_modem();
    system.start_daemon();
    const std::string run = system.folder + "/run";
    const vlk_place place{run.c_str()};
    vlk_client *client = nullptr;
    ASSERT_EQ(vlk_open(&client, &place), VLK_OK) << vlk_last_error();
    at_cmd_msg record{};
    for (int n = 0; n < COMMANDS; ++n) {
        if (n % (COMMANDS / PORTIONS) == 0)
            system.tell_modem("flood 100 ^TEMPPRT: {i},85");
        ASSERT_EQ(vlk_fill_command(&record, "AT+CREG?", "+CREG:", VLK_PLAIN, 10), VLK_OK);
        ASSERT_EQ(vlk_exchange(client, &record, &record, 30'000), VLK_OK) << n << vlk_last_error();
    }
    vlk_close(client);
    std::string metrics;
    const auto has = [&](const std::string &line) {
        metrics = system.vlkctl({"status", "--metrics"}).out;
        return metrics.find(line + "\n") != std::string::npos;
    };
    EXPECT_TRUE(wait_until([&] { return has("vorlink_reports_total{prefix=\"^TEMPPRT\"} 100000"); }))
        << metrics;
    EXPECT_THAT(metrics, Not(HasSubstr("prefix=\"+CREG\""))) << "an answer is no report";
    EXPECT_TRUE(has("vorlink_commands_total{result=\"ok\"} 10000")) << metrics;
    EXPECT_TRUE(has("vorlink_modem_unknown_lines_total 0")) << metrics;
    system.tell_modem("flood 4 BOOT STEP {i}");
    system.tell_modem("flood 2 ^STRANGE: {i}");
    EXPECT_TRUE(wait_until([&] { return has("vorlink_modem_unknown_lines_total 6"); })) << metrics;
    EXPECT_THAT(system.vlkctl({"status"}).out, HasSubstr("; 6 unknown lines\n"));
    EXPECT_TRUE(has("vorlink_modem_state{state=\"ready\"} 1")) << metrics;
    EXPECT_TRUE(has("vorlink_lost_total{kind=\"messages\"} 0")) << metrics;

    // A parser that is not ours.
    std::ofstream(system.folder + "/metrics") << metrics;
    process parser({python, "-c",
                    "import sys\n"
                    "try: from prometheus_client.parser import text_string_to_metric_families as parse\n"
                    "except ImportError: sys.exit(77)\n"
                    "families = list(parse(open(sys.argv[1]).read()))\n"
                    "assert all(f.type != 'unknown' and f.documentation for f in families)\n"
                    "print(sum(len(f.samples) for f in families))",
                    system.folder + "/metrics"});
    const int parsed = parser.wait();
    EXPECT_THAT(parsed, testing::AnyOf(0, 77)) << parser.err;
    if (parsed == 0) {
        size_t samples = lines_of(metrics);
        for (size_t at = metrics.find("# "); at != metrics.npos; at = metrics.find("\n# ", at + 1))
            --samples;
        EXPECT_EQ(std::stoul(parser.out), samples);
    }
    system.daemon->kill(SIGTERM);
    EXPECT_EQ(system.daemon->wait(), 128 + SIGTERM);
    EXPECT_EQ(lines_of(system.daemon->err), 3U) << "started, ready, ended: " << system.daemon->err;
}

namespace
{
/// What is wrong with the device, and how it ends.
struct trouble {
    const char *name;
    std::function<void(system_under_test &)> begin; ///< before the daemon starts; the simulator runs
    std::function<void(system_under_test &)> end;   ///< none: the daemon tries such a device once a minute
    std::vector<std::string> words;                 ///< of the line, and of the reason
};

std::string terminal_of(const system_under_test &system)
{
    return std::filesystem::canonical(system.folder + "/modem");
}

void set_device(system_under_test &system, const std::string &path)
{
    system.variables["VLK_AT_DEVICE"] = path;
}

/// A program that keeps others off the terminal until its input ends.
std::unique_ptr<process> hold_terminal(const std::string &path)
{
    auto holder = std::make_unique<process>(
        std::vector<std::string>{python, "-c",
                                 "import fcntl, os, sys\n"
                                 "fcntl.flock(os.open(sys.argv[1], os.O_RDWR | os.O_NOCTTY), fcntl.LOCK_EX)\n"
                                 "print('held', flush=True)\n"
                                 "sys.stdin.read()",
                                 path});
    EXPECT_TRUE(holder->wait_for_output("held")) << holder->err;
    return holder;
}
} // namespace

TEST(Operator, EachTroubleOfTheDeviceIsOneLineWithItsCureAndStatusAgrees)
{
    std::unique_ptr<process> holder;
    std::vector<trouble> troubles = {
        {"missing",
         [](auto &system) { system.tell_modem("unplug"); },
         [](auto &system) { system.tell_modem("replug"); },
         {"/modem is missing: waiting until it appears"}},
        {"held by another process",
         [&](auto &system) { holder = hold_terminal(terminal_of(system)); },
         [&](auto &) { holder.reset(); },
         {"/modem is held by process ", " (python3", "): end that program"}},
        {"a regular file",
         [](auto &system) {
             set_device(system, system.folder + "/file");
             std::ofstream(system.folder + "/file") << "no modem";
         },
         nullptr,
         {"/file is a regular file: set VLK_AT_DEVICE to the modem's AT port"}},
        {"a directory",
         [](auto &system) { set_device(system, system.folder); },
         nullptr,
         {" is a folder: set VLK_AT_DEVICE to the modem's AT port"}},
        {"no terminal",
         [](auto &system) { set_device(system, "/dev/null"); },
         nullptr,
         {"/dev/null is no AT port: set VLK_AT_DEVICE to the modem's AT port"}},
        {"nobody behind a socket",
         [](auto &system) {
             const process server({python, "-c",
                                   "import socket, sys; socket.socket(socket.AF_UNIX).bind(sys.argv[1])",
                                   system.folder + "/socket"});
             ASSERT_TRUE(wait_until([&] { return std::filesystem::exists(system.folder + "/socket"); }));
             set_device(system, system.folder + "/socket");
         },
         [](auto &system) {
             unlink((system.folder + "/socket").c_str());
             std::filesystem::create_symlink(terminal_of(system), system.folder + "/socket");
         },
         {"nobody listens on ", "/socket: start the program that serves it"}},
        {"does not answer",
         [](auto &system) {
             system.variables["VLK_AT_SPEED"] = "9600";
             system.tell_modem("silence on");
         },
         [](auto &system) { system.tell_modem("silence off"); },
         {"does not answer at 9600 bit/s: check its power", "speed (VLK_AT_SPEED)"}},
    };
    if (geteuid() == 0)
        troubles.push_back({"no permission",
                            [](auto &system) {
                                system.variables["VLK_USER"] = "daemon";
                                chmod(system.folder.c_str(), 0711);
                                ASSERT_EQ(chown(terminal_of(system).c_str(), 0, 0), 0);
                                ASSERT_EQ(chmod(terminal_of(system).c_str(), 0600), 0);
                            },
                            [](auto &system) { chmod(terminal_of(system).c_str(), 0666); },
                            {"no permission for ", "/modem: it belongs to group \"root\"; add user ",
                             " to it (usermod -aG)"}});
    for (const trouble &row : troubles) {
        SCOPED_TRACE(row.name);
        system_under_test system;
        system.variables["VLK_TRACE_LEVEL"] = "0";
        system.start_modem();
        ASSERT_NO_FATAL_FAILURE(row.begin(system));
        system.start_daemon_without_waiting();
        ASSERT_TRUE(system.daemon->wait_for_error(row.words.back()));
        std::string reason;
        EXPECT_TRUE(wait_until([&] {
            reason = system.vlkctl({"status"}).out;
            return reason.find(row.words.back()) != reason.npos;
        }));
        if (row.end != nullptr) {
            row.end(system);
            ASSERT_EQ(system.vlkctl({"status", "--wait-ready", "30"}).code, 0);
            EXPECT_THAT(system.vlkctl({"status"}).out, Not(HasSubstr("reason:")));
        }
        system.daemon->kill(SIGTERM);
        EXPECT_EQ(system.daemon->wait(), 128 + SIGTERM);
        for (const std::string &word : row.words) {
            EXPECT_THAT(reason, HasSubstr(word));
            EXPECT_THAT(system.daemon->err, HasSubstr(word));
        }
        EXPECT_EQ(lines_of(system.daemon->err), row.end != nullptr ? 4U : 3U)
            << "started, the trouble, ready, ended: " << system.daemon->err;
        EXPECT_EQ(system.daemon->err.find("error") != std::string::npos, row.end == nullptr)
            << "an error is what waiting does not heal: " << system.daemon->err;
    }
}

TEST(Operator, EachTroubleLeavesOneLineWithItsCureAndNoSecretShows)
{
    for (const char *level : {"0", "16"}) {
        system_under_test system;
        system.variables["VLK_TRACE_LEVEL"] = level;
        system.variables["VLK_LOG_LEVEL"] = "debug";
        system.start_modem("command AT+MUTE\n    delay 3600s\n    final OK\n");
        system.start_daemon();
        const std::string pdu = "0011000B916407281553F80000AA0AE8329BFD4697D9EC37";
        const auto try_secrets = [&] {
            for (const char *command :
                 {"AT+CPIN=\"47110815\"", "AT+CPIN=\"81508150\",\"47110815\"", "at+cpin=47110815",
                  "AT+CPWD=\"SC\",\"47110815\",\"81508150\"", "AT+CUSD=1,\"*47110815#\",15",
                  "AT+CSQ;+CPIN=47110815", "ATD47110815;"})
                system.vlkctl({"at", command, "--timeout", "1", "--wait", "5"});
            system.vlkctl({"sms", "send", pdu, "--timeout", "1", "--wait", "5"});
        };
        try_secrets(); // accepted or refused
        system.tell_modem("flood 3 +CUSD: 0,\"balance 47110815\",15");
        system.vlkctl({"at", "AT+MUTE=47110815", "--timeout", "1"});
        system.vlkctl({"at", "AT+MUTE", "--timeout", "1"});
        ASSERT_TRUE(system.daemon->wait_for_error("AT+MUTE was not answered in "));
        system.tell_modem("unplug");
        ASSERT_TRUE(system.daemon->wait_for_error("lost the modem"));
        ASSERT_TRUE(system.daemon->wait_for_error("is missing: waiting until it appears"));
        try_secrets(); // the modem is away
        const outcome status = system.vlkctl({"status"});
        EXPECT_THAT(status.out, HasSubstr("is missing"));
        system.daemon->kill(SIGTERM);
        system.daemon->wait();
        const std::string &log = system.daemon->err;
        for (const char *secret : {"4711", "8150", "balance", "E8329BFD4697", "640728155"})
            EXPECT_THAT(log, Not(HasSubstr(secret))) << level;
        for (const char *once : {"lost the modem", "is missing: waiting until it appears"}) {
            EXPECT_THAT(log, HasSubstr(once)) << level;
            EXPECT_EQ(log.find(once), log.rfind(once)) << level << log;
        }
    }
}

TEST(Operator, ALogThatNobodyTakesHoldsNobodyUp)
{
    for (const char *place : {"2>&-", "2>/dev/full", "2>FIFO"}) {
        system_under_test system;
        system.variables["VLK_TRACE_LEVEL"] = "16";
        system.start_modem();
        std::string where = place;
        if (const size_t fifo = where.find("FIFO"); fifo != where.npos) {
            const std::string path = system.folder + "/unread";
            ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
            where = "<>" + path + " 2>" + path; // it reads what it never reads
        }
        system.daemon = std::make_unique<process>(
            std::vector<std::string>{"/bin/sh", "-c", "exec " VORLINK " " + where}, system.variables);
        ASSERT_EQ(system.vlkctl({"status", "--wait-ready", "20"}).code, 0) << place;
        for (int n = 0; n < 30; ++n) // about a hundred lines each: more than a pipe holds
            ASSERT_EQ(system.vlkctl({"at", "AT+CSQ"}).code, 0) << place << n;
    }
}

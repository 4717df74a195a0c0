#include "system.h"

#include <filesystem>
#include <fstream>

system_under_test::system_under_test()
{
    char name[] = "/tmp/vlk-e2e-XXXXXX";
    folder = mkdtemp(name);
    variables = {
        {"VLK_RUNTIME_DIR", folder + "/run"}, {"VLK_AT_DEVICE", folder + "/modem"}, {"VLK_TRACE_LEVEL", "4"}};
}

system_under_test::~system_under_test()
{
    if (::testing::Test::HasFailure() && daemon != nullptr) {
        daemon->kill(SIGTERM);
        daemon->wait(2);
        printf("the daemon said:\n%s\n", daemon->err.c_str());
    }
    daemon.reset();
    modem.reset();
    std::filesystem::remove_all(folder);
}

void system_under_test::start_modem(const std::string &lines, const std::string &split)
{
    const std::string path = folder + "/dialogue";
    std::ofstream(path) << "include default\nforget reports\n" << lines;
    modem = std::make_unique<process>(std::vector<std::string>{MODEMSIM, "--dialogue", path, "--link",
                                                               variables["VLK_AT_DEVICE"], "--split", split});
    ASSERT_TRUE(modem->wait_for_output("\n")) << modem->err;
}

void system_under_test::start_daemon_without_waiting()
{
    daemon = std::make_unique<process>(std::vector<std::string>{VORLINK}, variables);
}

void system_under_test::start_daemon()
{
    start_daemon_without_waiting();
    const outcome ready = vlkctl({"status", "--wait-ready", "20"});
    ASSERT_EQ(ready.code, 0) << ready.out << ready.err << daemon->err;
}

std::unique_ptr<process> system_under_test::start_vlkctl(const std::vector<std::string> &arguments) const
{
    std::vector<std::string> all = {VLKCTL};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return std::make_unique<process>(all, variables);
}

outcome system_under_test::vlkctl(const std::vector<std::string> &arguments) const
{
    const std::unique_ptr<process> client = start_vlkctl(arguments);
    const int code = client->wait();
    return {code, client->out, client->err};
}

void system_under_test::expect_signal(const char *when) const
{
    const outcome seen = vlkctl({"at", "AT+CSQ"});
    EXPECT_EQ(seen.code, 0) << when << seen.err;
    EXPECT_EQ(seen.out, SIGNAL) << when;
}

void system_under_test::wait_until_answering()
{
    ASSERT_TRUE(
        wait_until([this] { return modem->ask("state").find(R"("answering":true)") != std::string::npos; }));
}

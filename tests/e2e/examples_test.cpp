// The example programs of docs/host.md against the real daemon.
#include "system.h"

TEST(Examples, WorkAsTheyStandInTheDocuments)
{
    system_under_test system;
    system.start_modem();
    system.start_daemon();
    process listener({EXAMPLE_LISTEN, "9"}, system.variables);
    ASSERT_TRUE(listener.wait_for_error("listening")) << listener.err;
    system.tell_modem("report ^TEMPPRT: 2,85");
    EXPECT_TRUE(listener.wait_for_output("event 31000: 2 85, 0 bytes of data, 0 missed before\n"))
        << listener.out;

    process quality({EXAMPLE_LISTEN, "19"}, system.variables);
    ASSERT_TRUE(quality.wait_for_error("listening")) << quality.err;
    system.tell_modem("report ^HCSQ: \"LTE\",52,45,160,22");
    EXPECT_TRUE(quality.wait_for_output("system mode 2, values 52 45 160 22 0\n")) << quality.out;

    const std::vector<std::string> programs[] = {
        {EXAMPLE_COMMAND_C}, {EXAMPLE_PLAIN_C}, {"/usr/bin/env", "python3", EXAMPLE_COMMAND_PY}};
    for (std::vector<std::string> program : programs) {
        const auto run = [&](std::vector<std::string> arguments) {
            arguments.insert(arguments.begin(), program.begin(), program.end());
            process command(arguments, system.variables);
            const int code = command.wait();
            return outcome{code, command.out, command.err};
        };
        const outcome signal = run({"AT+CSQ", "+CSQ:"});
        EXPECT_EQ(signal.code, 0) << program.back() << signal.err;
        EXPECT_EQ(signal.out, SIGNAL) << program.back();
        const outcome refused = run({"AT+NOSUCH"});
        EXPECT_EQ(refused.code, 1) << program.back();
        EXPECT_EQ(refused.out, "+CME ERROR: 100\n") << program.back();
    }
}

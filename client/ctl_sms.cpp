#include "ctl_sms.h"

#include <cstdlib>
#include <memory>
#include <string>

#include "sms_commands.h"

namespace
{
constexpr int32_t COMMAND_SECONDS = 10;
constexpr int32_t SEND_SECONDS = 60; // what a network may take for one message
constexpr int32_t NOT_GIVEN = 0;

using run_function = int (*)(const common_options &, const sms_options &);

/// Also keeps out "nan", which is in every range.
std::string check_seconds(const std::string &text)
{
    const double seconds = std::strtod(text.c_str(), nullptr);
    return seconds >= 0.001 && seconds <= 1e6 ? "" : "Value " + text + " not in range 0.001 to 1000000";
}

struct sms_line {
    CLI::App *sms;
    const common_options &common;
    std::function<int()> &chosen;
    std::shared_ptr<sms_options> options = std::make_shared<sms_options>();

    /// seconds: what the modem is given unless --timeout says otherwise.
    CLI::App *add(const char *name, const char *description, run_function run,
                  int32_t seconds = COMMAND_SECONDS) const
    {
        options->limits.timeout = NOT_GIVEN;
        CLI::App *command = sms->add_subcommand(name, description);
        command->callback([line = *this, run, seconds] {
            if (line.options->limits.timeout == NOT_GIVEN)
                line.options->limits.timeout = seconds;
            line.chosen = [line, run] { return run(line.common, *line.options); };
        });
        return command;
    }
    void add_limits(CLI::App *command) const
    {
        command
            ->add_option("--timeout", options->limits.timeout,
                         "seconds that the modem is given for a command")
            ->check(CLI::Range(1, 86400));
        command
            ->add_option(
                "--wait", options->limits.wait,
                "seconds to wait for every answer; by default the timeout and 30 more for requests of others")
            ->check(check_seconds);
        command
            ->add_option(
                "--wait-modem", options->limits.wait_modem,
                "wait up to so many seconds for a modem that is not ready; else the command fails at once")
            ->check(check_seconds);
    }
};

template <vlk_sms ACTION>
int run_put(const common_options &common, const sms_options &options)
{
    return run_sms_put(common, options, ACTION);
}

template <vlk_sms ACTION>
void add_put(const sms_line &line, const char *name, const char *description)
{
    sms_options &options = *line.options;
    CLI::App *command = line.add(name, description, run_put<ACTION>, SEND_SECONDS);
    CLI::Option *text = command->add_option_function<std::string>(
        "text",
        [&options](const std::string &value) {
            options.text = value;
            options.has_text = true;
        },
        "the text as UTF-8, standard input without it; without --to a PDU in hexadecimal digits, its service "
        "centre's part first (00: the modem's own)");
    text->expected(1);
    CLI::Option *to = command->add_option(
        "--to", options.to, "the recipient's number: +491511234567 from everywhere, or as it is dialled");
    command->add_flag("--flash", options.flash, "show it at once instead of storing it")->needs(to);
    command->add_flag("--report", options.report, "ask for a delivery report; vlkctl sms watch shows it")
        ->needs(to);
    command->add_option("--smsc", options.smsc, "number of the service centre; without it the modem's own")
        ->needs(to);
    command->add_option("--valid", options.valid_hours, "hours for which the network tries to deliver it")
        ->needs(to)
        ->check(CLI::Range(1, 63 * 7 * 24));
    command->add_option("--max-parts", options.max_parts, "refuse a text that makes more messages than this")
        ->needs(to)
        ->check(CLI::Range(1, 255))
        ->capture_default_str();
    command->add_flag("--dry-run", options.dry_run,
                      "print the PDUs in hexadecimal, one a line, and do nothing else");
    line.add_limits(command);
    const std::string called = std::string("  vlkctl sms ") + name;
    command->footer(
        "A text that the GSM alphabet holds makes one message up to 160 characters, any other up to 70;\n"
        "a longer one is divided into parts that phones join again. Exit code 0 only when the modem\n"
        "confirmed every part. The modem is given 60 seconds for each unless --timeout says otherwise.\n\n"
        "Examples:\n" +
        called + " --to +491511234567 'Back at 8'\n  uptime | vlkctl sms " + name + " --to +491511234567\n" +
        called + " 0011000B916407281553F80000AA0AE8329BFD4697D9EC37");
}

void add_list(const sms_line &line)
{
    CLI::App *list = line.add("list", "print the messages that the modem has stored", run_sms_list);
    CLI::Option *unread =
        list->add_flag("--unread", line.options->unread, "only those that were not read yet");
    list->add_flag("--all", line.options->all, "all of them, as without it")->excludes(unread);
    line.add_limits(list);
    list->footer(
        "The numbers in front are for read and delete. Messages of several parts are joined. Reading marks\n"
        "messages as read in the modem; what is shown is the mark from before.\n\nExamples:\n"
        "  vlkctl sms list\n  vlkctl sms list --unread --json");
}

void add_read(const sms_line &line)
{
    CLI::App *read = line.add("read", "print stored messages by their numbers", run_sms_read);
    read->add_option("number", line.options->indexes,
                     "numbers from vlkctl sms list; parts of one text are joined")
        ->required()
        ->delimiter(',')
        ->check(CLI::Range(0, 65535));
    line.add_limits(read);
    read->footer("Examples:\n  vlkctl sms read 3\n  vlkctl sms read 3,4 --json");
}

void add_delete(const sms_line &line)
{
    CLI::App *remove = line.add("delete", "delete stored messages", run_sms_delete);
    CLI::Option *numbers = remove->add_option("number", line.options->indexes, "numbers from vlkctl sms list")
                               ->delimiter(',')
                               ->check(CLI::Range(0, 65535));
    CLI::Option *all =
        remove->add_flag("--all-read", line.options->all_read, "every received message that was read");
    all->excludes(numbers);
    line.add_limits(remove);
    remove->footer(
        "Examples:\n  vlkctl sms delete 3\n  vlkctl sms delete 3,4\n  vlkctl sms delete --all-read");
}

void add_watch(const sms_line &line)
{
    CLI::App *watch = line.add("watch", "print messages and delivery reports as they come", run_sms_watch);
    watch->add_option("--count", line.options->count,
                      "end after so many; exit code 3 when --seconds end first");
    watch->add_option("--seconds", line.options->seconds, "end after so many seconds")->check(check_seconds);
    line.add_limits(watch);
    watch->footer(
        "Messages of several parts are printed when they are complete, or after five minutes without a\n"
        "further part. What the modem stores is read there, and marked as read by it. The modem tells about\n"
        "messages once AT+CNMI says so: vlkctl at AT+CNMI=2,1,0,1,0 is what most want.\n\nExamples:\n"
        "  vlkctl sms watch\n  vlkctl sms watch --count 1 --seconds 60 --json");
}
} // namespace

void add_sms(CLI::App &app, const common_options &common, std::function<int()> &chosen)
{
    CLI::App *sms =
        app.add_subcommand("sms", "send, list, read and delete short messages, or watch them come");
    sms->require_subcommand(1);
    const sms_line line{sms, common, chosen};
    add_put<VLK_SMS_SEND>(line, "send", "send a message");
    add_put<VLK_SMS_SAVE>(line, "save", "save a message on the SIM or in the modem");
    add_list(line);
    add_read(line);
    add_delete(line);
    add_watch(line);
    sms->footer("Examples:\n  vlkctl sms send --to +491511234567 'Back at 8'\n  vlkctl sms list");
}

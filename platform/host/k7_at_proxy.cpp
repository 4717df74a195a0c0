// The AT proxy: owns the modem's device. One thread, started by the first registration, opens the device, switches
// the modem's echo off, reads, and opens it again when it is lost; any thread sends.
#include "k7_at_proxy.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <string_view>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <strings.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "at_device.h"
#include "at_framing.h"
#include "at_proxy.h"
#include "host_condition.h"
#include "host_start.h"
#include "modem_state.h"
#include "qep_trace.h"
#include "vlk_task.h"

#define PROXY_TRACE(level, ...) QEP_TRACE_PrintInfo("k7_at_proxy", __LINE__, 0, "host", level, __VA_ARGS__)

namespace
{
constexpr int REGISTRATION_WAIT_MS = 900; // the daemon asks again once a second
constexpr int64_t RETRY_MS = 1000;        // until the next try to open the device or to get an answer
constexpr int64_t SETTLE_MS = 300;        // for answers to earlier tries, and for the end of a lost command
constexpr int SEND_LIMIT_MS = 2000;
constexpr int ECHO_OFF_LIMIT_MS = 200;
constexpr int REFUSALS_ACCEPTED = 3;
constexpr int UNANSWERED_REPORTED = 3;
constexpr int DELIVERY_LIMIT_MS = 2000; // the main thread may be busy writing a command for that long
constexpr int DELIVERY_PAUSE_MAX_MS = 50;

constexpr std::string_view ECHO_OFF = "ATE0\r";
constexpr std::string_view ESCAPE = "\x1b"; // leaves the modem's text input
constexpr std::string_view LINE_END = "\r\n";
constexpr std::string_view LOST_ANSWER = "\r\nNO CARRIER\r\n";

constexpr const char *prompting_commands[] = {"AT+CMGS=", "AT+CMGW=", "AT^HCMGS=", "AT^HCMGW="};

/// The echo of a line, without what may or may not be echoed at its end.
std::string_view trimmed(std::string_view text)
{
    while (text.ends_with('\r') || text.ends_with('\x1a'))
        text.remove_suffix(1);
    return text;
}

bool asks_for_prompt(std::string_view command)
{
    return std::ranges::any_of(prompting_commands, [command](std::string_view head) {
        return command.size() > head.size() && strncasecmp(command.data(), head.data(), head.size()) == 0;
    });
}

/// The text of the last send, to tell its echo from an answer when a modem that was reset echoes again.
class sent_text
{
public:
    void remember(std::string_view text)
    {
        const std::scoped_lock lock(mutex);
        count = trimmed(text).copy(bytes.data(), bytes.size());
    }

    /// True once for each text that was remembered.
    bool take_echo(std::string_view line)
    {
        const std::scoped_lock lock(mutex);
        if (count == 0 || trimmed(line) != std::string_view(bytes.data(), count))
            return false;
        count = 0;
        return true;
    }

private:
    std::mutex mutex;
    std::array<char, AT_DELIVERY_MAX> bytes{};
    size_t count = 0;
};

/// How far the modem has come since the device was opened. The reader's own.
struct echo_off_state {
    int asked = 0;
    int answered = 0;
    int refused = 0;
    bool escape = false; ///< the modem waits for a text that an earlier program began
    int64_t ask_at = 0;
    int64_t settled_at = -1; ///< -1: no answer yet
    int64_t not_before = 0;  ///< until then the end of a lost command may come
};

class at_proxy final : public at_framing_sink
{
public:
    int register_client(uint32_t new_channel, k7_data_proc new_data_proc, k7_send_proc *send_proc);
    void unregister();
    int send(uint32_t to_channel, std::string_view text);

    bool swallow(std::string_view text) override;
    bool awaits_prompt() const override { return prompt_due; }
    void deliver(std::string_view text) override;

private:
    int start_reader();
    void stop_reader();
    static void *reader_thread(void *self);
    void read_until_stopped();
    bool open_device();
    void report(const std::array<char, 512> &message);
    void close_device();
    void serve_device();
    int64_t serve_echo_off(int64_t now);
    void ask_echo_off(int64_t now);
    void set_ready();
    bool wait_for_input(int64_t wait_ms);
    bool pass_on_input();
    bool end_lost_command();
    void note_end_of_command(std::string_view final_result);
    std::string_view without_noise(std::string_view text);
    void report_once(bool &reported, const char *what);
    void wake_reader() const;
    static void set_modem(host_modem_state state) { modem_state_set(state, ""); }

    // Registration and stopping: one at a time.
    std::mutex registration;
    pthread_t reader{};
    bool reader_runs = false;
    int wake_fd = -1;

    std::atomic<uint32_t> channel{0};
    std::atomic<k7_data_proc> data_proc{nullptr};
    std::atomic<bool> stopping{false};
    std::atomic<bool> handed_out{false}; ///< the daemon has its send function, so it takes deliveries
    std::atomic<bool> ready{false};      ///< changes under device_mutex

    // Writing to the device; the reader alone opens and closes it.
    std::mutex device_mutex;
    host_condition ready_changed;
    at_device device;
    std::atomic<bool> broken{false}; ///< a send left the modem in the middle of a line: start afresh
    sent_text last_sent;
    std::atomic<bool> answer_due{false}; ///< a command was written and has had no final result yet
    std::atomic<bool> prompt_due{false}; ///< it is one that asks for a text

    // The reader's own.
    at_framing framing{*this};
    echo_off_state echo_off;
    std::array<char, 512> trouble{}; ///< what was last reported; empty once the modem is ready
    bool reported_loss = false;
    bool answer_ends = false; ///< its final result is in the delivery to come
    bool in_noise = false;    ///< within a line that is too long for a report, while no answer is due
    bool reported_noise = false;
    bool reported_nul = false;
    bool reported_stray_result = false;
};

constinit at_proxy proxy;
static_assert(std::is_trivially_destructible_v<at_proxy>, "its thread may still run when the process ends");

int send_to_modem(uint32_t channel, const char *text, uint16_t length)
{
    return text == nullptr ? -1 : proxy.send(channel, {text, length});
}

int at_proxy::register_client(uint32_t new_channel, k7_data_proc new_data_proc, k7_send_proc *send_proc)
{
    if (new_data_proc == nullptr || send_proc == nullptr)
        return -1;
    channel = new_channel;
    data_proc = new_data_proc;
    {
        const std::scoped_lock lock(registration);
        if (start_reader() != 0)
            return -1;
    }
    std::unique_lock lock(device_mutex);
    const int64_t deadline = deadline_after(REGISTRATION_WAIT_MS);
    while (!ready && ready_changed.wait(lock, deadline)) {}
    if (ready) {
        handed_out = true;
        *send_proc = send_to_modem;
    }
    return 0;
}

void at_proxy::unregister()
{
    const std::scoped_lock lock(registration);
    stop_reader();
    handed_out = answer_due = prompt_due = false;
    set_modem(HOST_MODEM_RELEASED);
}

int at_proxy::start_reader()
{
    if (reader_runs && !stopping)
        return 0;
    stop_reader();
    if (wake_fd < 0)
        wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_fd < 0)
        return -1;
    stopping = false;
    reader_runs = pthread_create(&reader, nullptr, reader_thread, this) == 0;
    return reader_runs ? 0 : -1;
}

/// Called by the data callback itself it only tells the reader, which ends after that call.
void at_proxy::stop_reader()
{
    stopping = true;
    if (!reader_runs)
        return;
    wake_reader();
    if (pthread_equal(reader, pthread_self()))
        return;
    pthread_join(reader, nullptr);
    reader_runs = false;
}

void at_proxy::wake_reader() const
{
    [[maybe_unused]] const ssize_t written = eventfd_write(wake_fd, 1);
}

int at_proxy::send(uint32_t to_channel, std::string_view text)
{
    if (text.empty() || to_channel != channel || stopping)
        return -1;
    const std::scoped_lock lock(device_mutex);
    if (!ready || stopping)
        return -1;
    last_sent.remember(text);
    answer_due = true;
    prompt_due = asks_for_prompt(text);
    const at_write result = at_device_write(device, text, SEND_LIMIT_MS);
    if (result != at_write::WRITTEN)
        answer_due = prompt_due = false;
    if (result == at_write::BROKEN) {
        broken = true;
        ready = false;
        wake_reader();
    }
    return result == at_write::WRITTEN ? 0 : -1;
}

void *at_proxy::reader_thread(void *self)
{
    pthread_setname_np(pthread_self(), "at_proxy");
    static_cast<at_proxy *>(self)->read_until_stopped();
    return nullptr;
}

void at_proxy::read_until_stopped()
{
    trouble.fill(0);
    while (!stopping) {
        if (open_device()) {
            serve_device();
            close_device();
        }
        const int64_t retry_at = monotonic_ms() + RETRY_MS;
        while (!stopping && monotonic_ms() < retry_at)
            wait_for_input(retry_at - monotonic_ms());
    }
}

bool at_proxy::open_device()
{
    std::array<char, 512> message{};
    const char *path = host_settings().device;
    at_device opened;
    int result = -1;
    if (path[0] == '\0')
        snprintf(message.data(), message.size(), "no modem: set VLK_AT_DEVICE to its AT port");
    else
        result = at_device_open(opened, path, message);
    if (result != 0) {
        report(message);
        set_modem(HOST_MODEM_ABSENT);
        return false;
    }
    const std::scoped_lock lock(device_mutex);
    device = opened;
    broken = false;
    set_modem(HOST_MODEM_SILENT);
    return true;
}

void at_proxy::close_device()
{
    std::array<char, 512> message{};
    snprintf(message.data(), message.size(), "%s the modem on %s: opening it again",
             broken ? "cannot write whole lines to" : "lost", host_settings().device);
    if (!stopping)
        report(message);
    const std::scoped_lock lock(device_mutex);
    ready = false;
    at_device_close(device);
    set_modem(stopping ? HOST_MODEM_RELEASED : HOST_MODEM_ABSENT);
}

/// Traces each trouble once until another one comes, or the modem has been ready in between.
void at_proxy::report(const std::array<char, 512> &message)
{
    if (message != trouble)
        PROXY_TRACE(2, "%s", message.data());
    trouble = message;
}

void at_proxy::serve_device()
{
    framing.reset();
    reported_noise = reported_nul = reported_stray_result = in_noise = prompt_due = false;
    echo_off = {};
    echo_off.ask_at = monotonic_ms();
    if (end_lost_command())
        echo_off.not_before = monotonic_ms() + SETTLE_MS;
    while (!stopping && !broken) {
        int64_t next = framing.due();
        if (!ready) {
            const int64_t wanted = serve_echo_off(monotonic_ms());
            next = next < 0 ? wanted : std::min(next, wanted);
        }
        // While there is input the modem is not silent: this thread was late.
        if (!wait_for_input(next < 0 ? -1 : std::max<int64_t>(next - monotonic_ms(), 0)))
            framing.tick(monotonic_ms());
        else if (!pass_on_input())
            return;
    }
}

/// Does what is due until the modem is ready. The time at which more is due.
int64_t at_proxy::serve_echo_off(int64_t now)
{
    if (echo_off.escape) {
        const std::scoped_lock lock(device_mutex);
        at_device_write(device, ESCAPE, ECHO_OFF_LIMIT_MS);
        echo_off = {};
        echo_off.ask_at = now + SETTLE_MS;
    }
    if (echo_off.settled_at < 0 && now >= echo_off.ask_at)
        ask_echo_off(now);
    if (echo_off.settled_at >= 0 && now >= echo_off.settled_at)
        set_ready();
    return echo_off.settled_at < 0 ? echo_off.ask_at : echo_off.settled_at;
}

void at_proxy::ask_echo_off(int64_t now)
{
    if (echo_off.asked == UNANSWERED_REPORTED && echo_off.answered == 0)
        PROXY_TRACE(
            2, "the modem on %s does not answer: check its power, its cable, the speed of the port (stty)",
            host_settings().device);
    const std::scoped_lock lock(device_mutex);
    if (at_device_write(device, ECHO_OFF, ECHO_OFF_LIMIT_MS) == at_write::WRITTEN)
        ++echo_off.asked;
    echo_off.ask_at = now + RETRY_MS;
}

void at_proxy::set_ready()
{
    PROXY_TRACE(8, "the modem on %s is ready", host_settings().device);
    trouble.fill(0);
    const std::scoped_lock lock(device_mutex);
    if (broken)
        return;
    ready = true;
    set_modem(HOST_MODEM_READY);
    ready_changed.notify_all();
}

/// True when the device has input, or is gone.
bool at_proxy::wait_for_input(int64_t wait_ms)
{
    pollfd inputs[] = {{device.fd, POLLIN, 0}, {wake_fd, POLLIN, 0}};
    if (poll(inputs, 2, static_cast<int>(wait_ms)) <= 0)
        return false;
    eventfd_t wakes = 0;
    if (inputs[1].revents != 0)
        eventfd_read(wake_fd, &wakes);
    return inputs[0].revents != 0;
}

/// False when the device is gone.
bool at_proxy::pass_on_input()
{
    std::array<char, 4096> bytes;
    const ssize_t count = at_device_read(device, bytes);
    if (count > 0)
        framing.feed({bytes.data(), static_cast<size_t>(count)}, monotonic_ms());
    return count >= 0;
}

/// The modem that was to answer is gone: its command ends here, if it still waits, and what came of the answer does
/// not become the start of the next one. False when none was lost.
bool at_proxy::end_lost_command()
{
    if (!answer_due.exchange(false))
        return false;
    deliver(LOST_ANSWER);
    return true;
}

/// Until the modem is ready the final results are answers to ATE0, and a prompt is the rest of an exchange that
/// another program began; later only an echo is kept back.
bool at_proxy::swallow(std::string_view text)
{
    if (ready) {
        if (last_sent.take_echo(text))
            return true;
        if (text == ">")
            prompt_due = false;
        if (at_is_final_result(text))
            note_end_of_command(text);
        return false;
    }
    if (text == ">") {
        echo_off.escape = true;
        return true;
    }
    if (trimmed(text).ends_with(trimmed(ECHO_OFF)))
        return true;
    if (!at_is_final_result(text))
        return false;
    if (echo_off.asked == 0) // answers somebody else
        return true;
    ++echo_off.answered;
    if (text != "OK" && ++echo_off.refused < REFUSALS_ACCEPTED) {
        echo_off.ask_at = monotonic_ms();
        return true;
    }
    if (echo_off.refused == REFUSALS_ACCEPTED)
        PROXY_TRACE(2, "the modem on %s refuses ATE0: its echo stays on", host_settings().device);
    const int64_t settled_at = monotonic_ms() + (echo_off.answered < echo_off.asked ? SETTLE_MS : 0);
    echo_off.settled_at = std::max(settled_at, echo_off.not_before);
    return true;
}

void at_proxy::note_end_of_command(std::string_view final_result)
{
    prompt_due = false;
    answer_ends = true;
    if (answer_due || reported_stray_result)
        return;
    reported_stray_result = true;
    PROXY_TRACE(4, "the modem on %s sent \"%.*s\", which no command asked for", host_settings().device,
                static_cast<int>(std::min<size_t>(final_result.size(), 40)), final_result.data());
}

void at_proxy::report_once(bool &reported, const char *what)
{
    if (!reported)
        PROXY_TRACE(4, "the modem on %s sent %s", host_settings().device, what);
    reported = true;
}

/// What is left without a line that fills a delivery. That is no report: while nobody waits for an answer it would
/// only get into the next one.
std::string_view at_proxy::without_noise(std::string_view text)
{
    const size_t end = text.find(LINE_END);
    const bool fills_delivery = end == text.npos && text.size() == AT_DELIVERY_MAX;
    if (fills_delivery)
        report_once(reported_noise, "a line of more than 1499 bytes");
    const bool is_noise = !answer_due && (in_noise || fills_delivery);
    in_noise = is_noise && end == text.npos;
    if (is_noise)
        text.remove_prefix(in_noise ? text.size() : end + LINE_END.size());
    return text;
}

/// A full queue holds the modem back instead of losing its text, as long as somebody empties it.
void at_proxy::deliver(std::string_view text)
{
    if (text.find('\0') != text.npos)
        report_once(reported_nul, "NUL bytes");
    text = without_noise(text);
    if (std::exchange(answer_ends, false))
        answer_due = false;
    if (text.empty())
        return;
    int64_t end = -1; // asked for only when it is not taken at once
    int pause_ms = 1;
    while (!stopping) {
        if (data_proc.load()(channel, text.data(), static_cast<uint32_t>(text.size())) == 0) {
            reported_loss = false;
            return;
        }
        const int64_t now = monotonic_ms();
        end = end < 0 ? now + (handed_out ? DELIVERY_LIMIT_MS : 0) : end;
        if (now >= end)
            break;
        VLK_sleep(static_cast<uint32_t>(pause_ms));
        pause_ms = std::min(pause_ms * 2, DELIVERY_PAUSE_MAX_MS);
    }
    if (!stopping && !reported_loss)
        PROXY_TRACE(2, "nobody takes the modem's text: %zu bytes are lost", text.size());
    reported_loss = true;
}
} // namespace

int K7_APP_RegCallBack(uint32_t channel, k7_data_proc data_proc, k7_send_proc *send_proc)
{
    return proxy.register_client(channel, data_proc, send_proc);
}

void at_proxy_asker_gone(uint32_t) {} // the wait goes on for its whole time limit

int K7_App_Ungister(void)
{
    proxy.unregister();
    return 0;
}

// The AT proxy: owns the modem's device. One thread, started by the first registration, opens the device, reads, and
// opens it again when it is lost; any thread sends. What goes in and out is the AT link's business (at_link.h); here
// are the device, the thread and the back pressure.
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
#include <sched.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "at_device.h"
#include "at_link.h"
#include "at_proxy.h"
#include "host_condition.h"
#include "host_counters.h"
#include "host_log.h"
#include "host_start.h"
#include "modem_state.h"
#include "msgq_plain.h"
#include "report_lines.h"
#include "served_request.h"
#include "vlk_msgq.h"
#include "vlk_queues.h"
#include "vlk_task.h"

namespace
{
constexpr int REGISTRATION_WAIT_MS = 900;     // the daemon asks again once a second
constexpr int64_t RETRY_MS = 1000;            // until the next try to open the device
constexpr int64_t HOPELESS_RETRY_MS = 60'000; // when it is no AT port at all
constexpr int SEND_LIMIT_MS = 2000;
constexpr int LINK_WRITE_LIMIT_MS = 200;
constexpr int DELIVERY_LIMIT_MS = 2000; // the main thread may be busy writing a command for that long
constexpr int DELIVERY_PAUSE_MAX_MS = 50;
constexpr size_t SHOWN_RESULT_MAX = 40;
constexpr const char *NO_ANSWER_REASON =
    "it does not answer: check its power, its cable, and that this is its AT port";

/// Texts one after the other, each with its kind. Pages of it are used only once a long answer comes.
class delivery_buffer
{
public:
    void put(std::string_view text, bool is_answer)
    {
        if (end + 2 + text.size() > bytes.size())
            return;
        const size_t head = text.size() | (is_answer ? ANSWER : 0);
        bytes[end++] = static_cast<char>(head >> 8U);
        bytes[end++] = static_cast<char>(head & 0xFFU);
        end += text.copy(&bytes[end], text.size());
    }

    bool is_empty() const { return begin == end; }

    /// The oldest one; an empty text, and the buffer is empty, after the last.
    std::string_view take(bool &is_answer)
    {
        if (begin == end) {
            begin = end = 0;
            return {};
        }
        const size_t head = static_cast<unsigned char>(bytes[begin]) * size_t{256} +
                            static_cast<unsigned char>(bytes[begin + 1]);
        is_answer = (head & ANSWER) != 0;
        const std::string_view text(&bytes[begin + 2], head & ~ANSWER);
        begin += 2 + text.size();
        return text;
    }

private:
    static constexpr size_t ANSWER = 0x8000;
    // A whole answer, what a feed may add to it, and two bytes for each delivery.
    std::array<char, AT_ANSWER_MAX + 12 * AT_FEED_MAX> bytes{};
    size_t begin = 0;
    size_t end = 0;
};

/// What the link wants written, in its order.
struct write_buffer {
    std::array<char, 4 * AT_LINE_MAX> bytes{};
    size_t count = 0;

    void put(std::string_view text)
    {
        if (count + text.size() <= bytes.size())
            count += text.copy(&bytes[count], text.size());
    }
};

/// Which deliveries the daemon has not read yet. It reads them when it next waits, whoever it waits for by then: an
/// answer among them would go to the wrong one. Under the link's mutex but for what says otherwise.
class unread_deliveries
{
public:
    /// Nothing is unread now. Without such a queue nothing ever is.
    void watch(int32_t new_queue)
    {
        queue = new_queue;
        base = plain_queue_taken(queue) + lost - made;
        last_answer = made;
    }

    uint32_t note_made(bool is_answer)
    {
        ++made;
        kinds[made % kinds.size()] = is_answer;
        if (is_answer)
            last_answer = made;
        return made;
    }

    /// The reader's thread, without the mutex, around each push. False: it is stale, do not push it.
    bool begin_push(uint32_t ticket, bool is_answer)
    {
        pushing = true;
        const bool is_stale = is_answer && static_cast<int32_t>(ticket - stale_until) <= 0;
        if (is_stale)
            end_push(false);
        return !is_stale;
    }
    void end_push(bool is_queued)
    {
        if (!is_queued)
            ++lost;
        pushing = false;
    }
    void end_failed_push() { pushing = false; } ///< it is tried again

    bool are_some() const { return queue >= 0 && read() != made; }

    /// Takes the answers away. Called by the only one who reads the queue, so none gets in between.
    void drop_answers()
    {
        if (queue < 0 || static_cast<int32_t>(last_answer - read()) <= 0)
            return;
        stale_until = last_answer;
        while (pushing)
            sched_yield(); // never longer than it takes to queue a record
        const uint32_t first = read() + 1;
        const int32_t waiting = VLK_msgQ_num(queue);
        uint64_t which = 0;
        for (int32_t place = 0; place < std::min(waiting, 64); ++place)
            which |= uint64_t{kinds[(first + static_cast<uint32_t>(place)) % kinds.size()]} << place;
        plain_queue_drop(queue, which);
        kinds.fill(false);
        last_answer = read();
    }

private:
    /// The number of the latest delivery that has been read.
    uint32_t read() const { return plain_queue_taken(queue) + lost - base; }

    int32_t queue = -1;
    uint32_t base = 0;
    uint32_t made = 0; ///< deliveries are numbered from 1
    uint32_t last_answer = 0;
    std::array<bool, 64> kinds{}; ///< true for an answer
    std::atomic<uint32_t> lost{0};
    std::atomic<uint32_t> stale_until{0};
    std::atomic<bool> pushing{false};
};

class at_proxy final : public at_link_port
{
public:
    int register_client(uint32_t new_channel, k7_data_proc new_data_proc, k7_send_proc *send_proc);
    void unregister();
    int send(uint32_t to_channel, std::string_view text);
    void asker_gone(uint32_t request);

    void write(std::string_view text) override { to_write.put(text); }
    void deliver(std::string_view text, bool is_answer) override;
    void tell(at_notice what, std::string_view detail) override;
    void tell_debt(std::string_view name) override;
    void hang_up() override { wants_hang_up = true; }
    void reopen() override { wants_reopen = true; }

private:
    int start_reader();
    void stop_reader();
    static void *reader_thread(void *self);
    void read_until_stopped();
    bool open_device();
    void report(const std::array<char, 512> &message);
    void close_device();
    void serve_device();
    int64_t next_due();
    bool wait_for_input(int64_t wait_ms);
    bool pass_on_input();
    void run_link(std::string_view bytes);
    void do_what_link_wants(std::unique_lock<std::mutex> link_lock);
    void push(std::string_view text, bool is_answer, uint32_t ticket);
    at_sent ask_link(std::string_view text);
    void wake_reader() const;
    void set_modem(host_modem_state state, const char *reason);

    // Registration and stopping: one at a time.
    std::mutex registration;
    pthread_t reader{};
    bool reader_runs = false;
    std::atomic<int> wake_fd{-1};

    std::atomic<uint32_t> channel{0};
    std::atomic<k7_data_proc> data_proc{nullptr};
    std::atomic<pthread_t> commands_thread{}; ///< the one that registers: it runs the commands
    std::atomic<bool> stopping{false};
    std::atomic<bool> handed_out{false}; ///< the daemon has its send function, so it takes deliveries
    std::atomic<bool> broken{false};     ///< a send left the modem in the middle of a line: start afresh
    std::atomic<uint32_t> gone_request{0};
    std::atomic<bool> somebody_gone{false};

    // The link and what it wants done. Taken before device_mutex, when both are.
    std::mutex link_mutex;
    host_condition ready_changed;
    at_link link{*this};
    unread_deliveries unread;
    write_buffer to_write;
    bool was_ready = false; ///< as it was told last
    bool wants_hang_up = false;
    bool wants_reopen = false;

    // Writing to the device; the reader alone opens and closes it.
    std::mutex device_mutex;
    at_device device;

    // The reader's own.
    delivery_buffer to_deliver;
    uint32_t first_ticket = 0;       ///< of what is in to_deliver
    std::array<char, 512> trouble{}; ///< what was last reported; empty once the modem is ready
    bool hopeless = false;           ///< the device can never work as it is
    bool reported_loss = false;
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
    commands_thread = pthread_self();
    {
        const std::scoped_lock lock(registration);
        if (start_reader() != 0)
            return -1;
    }
    std::unique_lock lock(link_mutex);
    const int64_t deadline = deadline_after(REGISTRATION_WAIT_MS);
    while (!link.is_ready() && ready_changed.wait(lock, deadline)) {}
    if (link.is_ready()) {
        handed_out = true;
        *send_proc = send_to_modem;
    }
    return 0;
}

void at_proxy::unregister()
{
    const std::scoped_lock lock(registration);
    stop_reader();
    handed_out = false;
    set_modem(HOST_MODEM_RELEASED, "the daemon was told to let go of the modem: start it again");
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
    {
        const std::scoped_lock lock(link_mutex);
        unread.watch(plain_queue_id(VLK_QUEUE_NAS_DATA));
    }
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

void at_proxy::set_modem(host_modem_state state, const char *reason)
{
    modem_state_set(state, reason);
}

// ---- Sends

int at_proxy::send(uint32_t to_channel, std::string_view text)
{
    if (text.empty() || to_channel != channel || stopping)
        return -1;
    const bool runs_commands = pthread_equal(commands_thread, pthread_self()) != 0;
    std::unique_lock link_lock(link_mutex);
    const at_sent result = runs_commands ? ask_link(text) : link.send_beside(text);
    if (result != at_sent::WRITE) {
        link_lock.unlock();
        wake_reader(); // the link may have something to write
        return result == at_sent::HELD ? 0 : -1;
    }
    std::unique_lock device_lock(
        device_mutex); // before the other is released: the link's own writes come later
    link_lock.unlock();
    const at_write written = at_device_write(device, text, SEND_LIMIT_MS);
    if (written == at_write::WRITTEN)
        return 0;
    device_lock.unlock();
    if (written == at_write::BROKEN)
        broken = true;
    if (runs_commands) {
        link_lock.lock();
        link.unsent();
    }
    wake_reader();
    return -1;
}

at_sent at_proxy::ask_link(std::string_view text)
{
    const at_asker asker{host_served_request, host_served_limit_ms, unread.are_some()};
    if (asker.request != 0 && asker.request == gone_request)
        return at_sent::REFUSED;
    unread.drop_answers();
    return link.send(text, asker, link.is_free() ? 0 : monotonic_ms());
}

void at_proxy::wake_reader() const
{
    [[maybe_unused]] const int written = eventfd_write(wake_fd, 1);
}

void at_proxy::asker_gone(uint32_t request)
{
    gone_request = request;
    somebody_gone = true;
    wake_reader();
}

// ---- The reader's thread

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
        const int64_t retry_at = monotonic_ms() + (hopeless ? HOPELESS_RETRY_MS : RETRY_MS);
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
        result = at_device_open(opened, path, host_settings().line, message);
    hopeless = result == AT_DEVICE_NEVER;
    if (result != 0) {
        report(message);
        set_modem(HOST_MODEM_ABSENT, message.data());
        return false;
    }
    const std::scoped_lock lock(device_mutex);
    device = opened;
    broken = false;
    set_modem(HOST_MODEM_SILENT, "it has just been opened and has not answered yet");
    return true;
}

void at_proxy::close_device()
{
    std::array<char, 512> message{};
    snprintf(message.data(), message.size(), "%s the modem on %s: opening it again",
             broken ? "cannot write whole lines to" : "lost", host_settings().device);
    const bool is_own_wish = std::exchange(wants_reopen, false);
    if (!stopping && !is_own_wish)
        report(message);
    {
        std::unique_lock link_lock(link_mutex);
        counters.modem_losses += was_ready && !stopping && !is_own_wish ? 1 : 0;
        was_ready = false;
        to_write.count = 0;
        if (stopping)
            link.forget();
        else
            link.closed();
        if (!stopping)
            set_modem(HOST_MODEM_ABSENT, message.data());
        do_what_link_wants(std::move(link_lock));
    }
    const std::scoped_lock lock(device_mutex);
    at_device_close(device);
    if (stopping)
        set_modem(HOST_MODEM_RELEASED, "");
}

/// Logs each trouble once until another one comes, or the modem has been ready in between.
void at_proxy::report(const std::array<char, 512> &message)
{
    if (message != trouble)
        host_log(hopeless ? LOG_ERR : LOG_WARNING, "%s", message.data());
    trouble = message;
}

void at_proxy::serve_device()
{
    {
        std::unique_lock link_lock(link_mutex);
        link.opened(monotonic_ms());
        do_what_link_wants(std::move(link_lock));
    }
    while (!stopping && !broken && !wants_reopen) {
        const int64_t due = next_due();
        // While there is input the modem is not silent: this thread was late.
        if (!wait_for_input(due < 0 ? -1 : std::max<int64_t>(due - monotonic_ms(), 0)))
            run_link({});
        else if (!pass_on_input())
            return;
    }
}

int64_t at_proxy::next_due()
{
    const std::scoped_lock link_lock(link_mutex);
    return link.due();
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
    std::string_view text(bytes.data(), count > 0 ? static_cast<size_t>(count) : 0);
    while (!text.empty()) {
        run_link(text.substr(0, AT_FEED_MAX));
        text.remove_prefix(std::min(text.size(), AT_FEED_MAX));
    }
    return count >= 0;
}

/// Feeds the link, or tells it the time when there are no bytes.
void at_proxy::run_link(std::string_view bytes)
{
    std::unique_lock link_lock(link_mutex);
    const int64_t now = monotonic_ms();
    if (bytes.empty()) {
        if (somebody_gone.exchange(false))
            link.asker_gone(gone_request, now);
        link.tick(now);
    } else {
        link.feed(bytes, now);
    }
    do_what_link_wants(std::move(link_lock));
}

void at_proxy::do_what_link_wants(std::unique_lock<std::mutex> link_lock)
{
    if (link.is_ready() != was_ready) {
        was_ready = link.is_ready();
        set_modem(was_ready ? HOST_MODEM_READY : HOST_MODEM_SILENT, was_ready ? "" : NO_ANSWER_REASON);
        ready_changed.notify_all();
    }
    const bool hangs_up = std::exchange(wants_hang_up, false);
    if (to_write.count > 0) {
        const write_buffer texts = to_write;
        to_write.count = 0;
        const std::scoped_lock device_lock(device_mutex);
        link_lock.unlock();
        if (at_device_write(device, {texts.bytes.data(), texts.count}, LINK_WRITE_LIMIT_MS) ==
            at_write::BROKEN)
            broken = true;
    } else {
        link_lock.unlock();
    }
    if (hangs_up)
        at_device_hang_up(device);
    bool is_answer = false;
    for (std::string_view text; !(text = to_deliver.take(is_answer)).empty();)
        push(text, is_answer, first_ticket++);
}

/// Called under the link's mutex, by the reader.
void at_proxy::deliver(std::string_view text, bool is_answer)
{
    if (!is_answer) {
        count_reports(text);
        report_lines_delivery(text);
    }
    const uint32_t ticket = unread.note_made(is_answer);
    if (to_deliver.is_empty())
        first_ticket = ticket;
    to_deliver.put(text, is_answer);
}

/// A full queue holds the modem back instead of losing its text, as long as somebody empties it.
void at_proxy::push(std::string_view text, bool is_answer, uint32_t ticket)
{
    int64_t end = -1; // asked for only when it is not taken at once
    int pause_ms = 1;
    while (!stopping) {
        if (!unread.begin_push(ticket, is_answer))
            return;
        if (data_proc.load()(channel, text.data(), static_cast<uint32_t>(text.size())) == 0) {
            reported_loss = false;
            return unread.end_push(true);
        }
        unread.end_failed_push();
        const int64_t now = monotonic_ms();
        end = end < 0 ? now + (handed_out ? DELIVERY_LIMIT_MS : 0) : end;
        if (now >= end)
            break;
        VLK_sleep(static_cast<uint32_t>(pause_ms));
        pause_ms = std::min(pause_ms * 2, DELIVERY_PAUSE_MAX_MS);
    }
    unread.end_push(false);
    counters.text_lost += stopping ? 0 : 1;
    if (!stopping && !std::exchange(reported_loss, true))
        host_log(LOG_WARNING, "nobody takes the modem's text: %zu bytes are lost", text.size());
}

// ---- What the operator is told

struct notice_row {
    at_notice what;
    int priority;
    const char *text; ///< behind "the modem on DEVICE"
};

constexpr notice_row NOTICES[] = {
    {at_notice::READY, LOG_NOTICE, "is ready"},
    {at_notice::BACK, LOG_NOTICE, "answers again"},
    {at_notice::NO_ANSWER, LOG_WARNING, "does not answer: check its power, its cable, the speed of the port"},
    {at_notice::ASKED_AGAIN, LOG_WARNING, "still owes an answer: asking it again"},
    {at_notice::TEXT_LEFT, LOG_WARNING, "does not answer: sending ESC, in case it waits for a text"},
    {at_notice::DATA_MODE_LEFT, LOG_WARNING, "does not answer: sending +++, in case it is in data mode"},
    {at_notice::SETTINGS_SENT_AGAIN, LOG_WARNING, "does not answer: setting its line up again"},
    {at_notice::HUNG_UP, LOG_WARNING, "does not answer: hanging up"},
    {at_notice::OPENED_ANEW, LOG_WARNING, "does not answer: closing its port and opening it again"},
    {at_notice::ECHO_STAYS, LOG_NOTICE, "refuses ATE0: its echo stays on and is dropped"},
    {at_notice::SETTINGS_PUT_RIGHT, LOG_NOTICE, "had its line settings changed: they are put right"},
    {at_notice::RESTARTED, LOG_WARNING, "has restarted: setting its line up again"},
    {at_notice::PROMPT_ANSWERED, LOG_NOTICE, "asked for a text that nobody has: sent ESC"},
    {at_notice::STRAY_RESULT, LOG_NOTICE, "sent a final result that no command asked for, it is dropped"},
    {at_notice::LONG_LINE, LOG_NOTICE, "sent a line of more than 1499 bytes"},
    {at_notice::NUL_BYTES, LOG_NOTICE, "sent NUL bytes"},
    {at_notice::LONG_ANSWER, LOG_NOTICE, "sent an answer of more than 32 KiB: its last lines were dropped"},
};

void at_proxy::tell(at_notice what, std::string_view detail)
{
    if (what == at_notice::READY || what == at_notice::BACK)
        trouble.fill(0);
    if (what == at_notice::SETTINGS_PUT_RIGHT || what == at_notice::RESTARTED)
        ++counters.restorations;
    char shown[SHOWN_RESULT_MAX + 8] = "";
    if (!detail.empty())
        snprintf(shown, sizeof shown, " (%.*s)", static_cast<int>(std::min(detail.size(), SHOWN_RESULT_MAX)),
                 detail.data());
    const notice_row &row = NOTICES[static_cast<size_t>(what)];
    host_log(row.priority, "the modem on %s %s%s", host_settings().device, row.text, shown);
}

void at_proxy::tell_debt(std::string_view name)
{
    char text[32];
    snprintf(text, sizeof text, "%.*s", static_cast<int>(name.size()), name.data());
    modem_debt_set(text);
}
} // namespace

int K7_APP_RegCallBack(uint32_t channel, k7_data_proc data_proc, k7_send_proc *send_proc)
{
    return proxy.register_client(channel, data_proc, send_proc);
}

int K7_App_Ungister(void)
{
    proxy.unregister();
    return 0;
}

void at_proxy_asker_gone(uint32_t request)
{
    proxy.asker_gone(request);
}

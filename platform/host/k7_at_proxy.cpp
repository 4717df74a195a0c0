// The AT proxy: owns the modem's device. One thread, started by the first registration, opens the device, reads, and
// opens it again when it is lost; any thread sends. While the thread that runs commands waits for an answer it reads
// itself, so that no other thread stands between it and the modem. What goes in and out is the AT link's business
// (at_link.h); here are the device, the threads and the back pressure.
#include "k7_at_proxy.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <string_view>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "at_device.h"
#include "at_link.h"
#include "at_proxy.h"
#include "host_condition.h"
#include "host_counters.h"
#include "host_log.h"
#include "host_start.h"
#include "hub.h"
#include "main_wait.h"
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
constexpr size_t READ_MAX = 4096;
constexpr int SEND_LIMIT_MS = 2000;
constexpr int LINK_WRITE_LIMIT_MS = 200;
constexpr int DELIVERY_LIMIT_MS = 2000; // the main thread may be busy writing a command for that long
constexpr int DELIVERY_PAUSE_MAX_MS = 50;
constexpr size_t SHOWN_RESULT_MAX = 40;

/// Texts one after the other, each with its kind. Most of its memory is only touched when a long answer comes.
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

    /// The oldest text; the buffer must not be empty.
    std::string_view first() const { return {&bytes[begin + 2], head() & ~ANSWER}; }
    bool first_is_answer() const { return (head() & ANSWER) != 0; }
    void drop_first()
    {
        begin += 2 + first().size();
        if (begin == end)
            begin = end = 0;
    }

private:
    static constexpr size_t ANSWER = 0x8000;

    size_t head() const
    {
        return static_cast<unsigned char>(bytes[begin]) * size_t{256} +
               static_cast<unsigned char>(bytes[begin + 1]);
    }

    // A whole answer, what a feed may add to it, and two bytes for each delivery.
    std::array<char, AT_ANSWER_MAX + 12 * AT_FEED_MAX> bytes;
    size_t begin = 0;
    size_t end = 0;
};

/// What the link wants written, in its order.
struct write_buffer {
    std::array<char, 4 * AT_LINE_MAX> bytes;
    size_t count = 0;

    void put(std::string_view text)
    {
        if (count + text.size() <= bytes.size())
            count += text.copy(&bytes[count], text.size());
    }
};

/// Which deliveries the daemon has not read yet. It reads them when it next waits, for whichever client that is: an
/// answer among them would go to the wrong one. Under the link's mutex, except where said otherwise.
class unread_deliveries
{
public:
    /// Begins with nothing unread. Without such a queue nothing ever is.
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

    /// Called around each push by the thread that reads, without the mutex. False: the text is stale, do not push it.
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

    /// Drops the unread answers. Called by the only thread that reads the queue, so none is read meanwhile.
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

/// What to say of a modem that is silent, and what to do about it.
std::array<char, 200> silence_text(uint32_t speed)
{
    std::array<char, 200> text{};
    if (speed == 0)
        snprintf(text.data(), text.size(), "does not answer: check its power and that this is its AT port");
    else
        snprintf(text.data(), text.size(),
                 "does not answer at %u bit/s: check its power, its cable, that this is its AT port, and its "
                 "speed (VLK_AT_SPEED)",
                 speed);
    return text;
}

class at_proxy final : public at_link_port
{
public:
    int register_client(uint32_t new_channel, k7_data_proc new_data_proc, k7_send_proc *send_proc);
    void unregister();
    int send(uint32_t to_channel, std::string_view text);
    void asker_gone(uint32_t request);
    bool read_here(int64_t deadline);
    void input();
    void before_sleep() const;
    void read_there();

    void write(std::string_view text) override { to_write.put(text); }
    void deliver(std::string_view text, bool is_answer) override;
    void drop_unknown() override { ++counters.unknown_lines; }
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
    void wait_for_input(int64_t wait_ms) const;
    void take_wakes() const;
    bool pass_on_input(size_t limit);
    bool pass_on(const char *bytes, ssize_t count);
    void run_link(std::string_view bytes);
    void do_what_link_wants(std::unique_lock<std::mutex> link_lock);
    void tell_asker(std::string_view text, bool is_answer) const;
    void push_deliveries();
    bool push(std::string_view text, bool is_answer, uint32_t ticket);
    at_sent ask_link(std::string_view text);
    void wake_reader() const;
    bool runs_commands() const { return pthread_equal(commands_thread, pthread_self()) != 0; }
    int watch(int fd, int operation) const;
    bool take_over_reading(const std::unique_lock<std::mutex> &lock);
    bool wait_here(int64_t deadline) const;
    bool goes_on_here(bool can_go_on, std::unique_lock<std::mutex> lock);
    void give_back_reading();
    void set_modem(host_modem_state state, const char *reason);
    void set_silent();

    // Registration and stopping: one at a time.
    std::mutex registration;
    pthread_t reader{};
    bool reader_runs = false;
    std::atomic<int> wake_fd{-1};
    int input_set = -1; ///< epoll: what the reader's thread waits for, wake_fd and the device if it reads

    std::atomic<uint32_t> channel{0};
    std::atomic<k7_data_proc> data_proc{nullptr};
    std::atomic<pthread_t> commands_thread{}; ///< the one that registers: it runs the commands
    std::atomic<bool> stopping{false};
    std::atomic<bool> mute{false};       ///< it is known that the modem does not answer
    std::atomic<uint32_t> speed{0};      ///< of the open device in bits per second, 0 when it has none
    std::atomic<bool> handed_out{false}; ///< the daemon has its send function, so it takes deliveries
    std::atomic<bool> broken{false};     ///< a send left the modem in the middle of a line: start afresh
    std::atomic<uint32_t> gone_request{0};
    std::atomic<bool> somebody_gone{false};

    // The link and what it wants done. Its mutex is taken before device_mutex when both are.
    std::mutex link_mutex;
    host_condition ready_changed;
    at_link link{*this};
    unread_deliveries unread;
    write_buffer to_write;
    served_asker asked_by;
    std::atomic<int64_t> due{-1};        ///< as link.due()
    std::atomic<int64_t> reader_due{-1}; ///< until when the reader's thread sleeps at most, -1: without limit
    bool was_ready = false;              ///< as last reported
    bool wants_hang_up = false;
    std::atomic<bool> wants_reopen{false};

    // Writing to the device, and who reads it; the reader's thread alone opens and closes it.
    std::mutex device_mutex;
    at_device device;
    std::atomic<bool> reads_here{false}; ///< the thread that runs commands reads, not the reader's

    // For the thread that reads. Taken before the other two; the thread that runs commands only tries to take it, and
    // while it has it sleeps for nothing but the modem.
    std::mutex reading;
    bool is_served = false; ///< the device is open
    delivery_buffer to_deliver;
    uint32_t first_ticket = 0;       ///< of what is in to_deliver
    std::array<char, 512> trouble{}; ///< what was last reported; empty once the modem is ready
    bool hopeless = false;           ///< the device can never work as it is
    bool reported_loss = false;
};

at_proxy proxy; // its buffers stay in .bss, of which only what is used takes memory
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
    if (input_set < 0)
        input_set = epoll_create1(EPOLL_CLOEXEC);
    if (watch(wake_fd, EPOLL_CTL_ADD) != 0 && errno != EEXIST)
        return -1;
    stopping = false;
    {
        const std::scoped_lock lock(link_mutex);
        unread.watch(plain_queue_id(VLK_QUEUE_NAS_DATA));
    }
    reader_runs = pthread_create(&reader, nullptr, reader_thread, this) == 0;
    return reader_runs ? 0 : -1;
}

/// When the data callback itself calls it, it only notifies the reader, which ends after that callback.
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

/// For an open device. The thread that reads.
void at_proxy::set_silent()
{
    std::array<char, 256> reason{};
    snprintf(reason.data(), reason.size(), "it %s",
             mute ? silence_text(speed).data() : "has just been opened and has not answered yet");
    set_modem(HOST_MODEM_SILENT, reason.data());
}

// ---- Sends

int at_proxy::send(uint32_t to_channel, std::string_view text)
{
    if (text.empty() || to_channel != channel || stopping)
        return -1;
    std::unique_lock link_lock(link_mutex);
    const at_sent result = runs_commands() ? ask_link(text) : link.send_beside(text);
    if (result != at_sent::WRITE) {
        link_lock.unlock();
        wake_reader(); // the link may have something to write
        return result == at_sent::HELD ? 0 : -1;
    }
    std::unique_lock device_lock(
        device_mutex); // before the other is released: the link's own writes come later
    link_lock.unlock();
    // A modem that takes no more may do so once somebody reads what it says.
    const auto before_wait = runs_commands() ? +[] { proxy.give_back_reading(); } : nullptr;
    const at_write written = at_device_write(device, text, SEND_LIMIT_MS, before_wait);
    if (written == at_write::WRITTEN)
        return 0;
    device_lock.unlock();
    if (written == at_write::BROKEN)
        broken = true;
    if (runs_commands()) {
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
    const at_sent result = link.send(text, asker, link.is_free() ? 0 : monotonic_ms());
    due = link.due();
    asked_by = host_served_asker; // an answer that came before belongs to the client before
    return result;
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
        while (!stopping && monotonic_ms() < retry_at) {
            wait_for_input(retry_at - monotonic_ms());
            take_wakes();
        }
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
    if (result == AT_DEVICE_OPENED && watch(opened.fd, EPOLL_CTL_ADD) != 0) {
        snprintf(message.data(), message.size(), "%s is no AT port: there is no waiting for its input", path);
        at_device_close(opened);
        result = AT_DEVICE_NEVER;
    }
    hopeless = result == AT_DEVICE_NEVER;
    if (result != AT_DEVICE_OPENED) {
        report(message);
        set_modem(HOST_MODEM_ABSENT, message.data());
        return false;
    }
    const std::scoped_lock lock(device_mutex);
    device = opened;
    speed = device.speed;
    broken = false;
    set_silent();
    return true;
}

void at_proxy::close_device()
{
    const std::scoped_lock reading_lock(reading);
    is_served = false;
    std::array<char, 512> message{};
    snprintf(message.data(), message.size(), "%s the modem on %s: opening it again",
             broken ? "cannot write whole lines to" : "lost", host_settings().device);
    const bool is_own_wish = wants_reopen.exchange(false);
    if (!stopping && !is_own_wish) {
        mute = false;
        report(message);
    }
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
        push_deliveries();
    }
    const std::scoped_lock lock(device_mutex);
    if (!reads_here.exchange(false))
        watch(device.fd, EPOLL_CTL_DEL);
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
        const std::scoped_lock lock(reading);
        std::unique_lock link_lock(link_mutex);
        link.opened(monotonic_ms());
        do_what_link_wants(std::move(link_lock));
        push_deliveries();
        is_served = true;
    }
    while (!stopping && !broken && !wants_reopen) {
        reader_due = -1; // first: a time that is set now is seen by this thread or tells it so
        const int64_t until = due;
        reader_due = until;
        wait_for_input(until < 0 ? -1 : std::max<int64_t>(until - monotonic_ms(), 0));
        const std::scoped_lock lock(reading);
        take_wakes(); // not before: the other thread, if it reads now, must see them, too
        push_deliveries();
        if (!pass_on_input(READ_MAX))
            return;
    }
}

void at_proxy::take_wakes() const
{
    eventfd_t wakes = 0;
    eventfd_read(wake_fd, &wakes);
}

/// Makes the reader's thread wait for a descriptor's input, or no longer wait for it.
int at_proxy::watch(int fd, int operation) const
{
    epoll_event input{.events = EPOLLIN, .data = {}};
    return epoll_ctl(input_set, operation, fd, &input);
}

void at_proxy::wait_for_input(int64_t wait_ms) const
{
    epoll_event came{};
    epoll_wait(input_set, &came, 1, static_cast<int>(wait_ms));
}

/// Passes on what the device says now, at most limit bytes, or that it says nothing. False when it is gone.
bool at_proxy::pass_on_input(size_t limit)
{
    std::array<char, READ_MAX> bytes;
    return pass_on(bytes.data(), at_device_read(device, {bytes.data(), limit}));
}

/// The bytes of a read; count as at_device_read returned it.
bool at_proxy::pass_on(const char *bytes, ssize_t count)
{
    if (count < 0)
        return false;
    std::string_view text(bytes, static_cast<size_t>(count));
    do {
        run_link(text.substr(0, AT_FEED_MAX));
        push_deliveries();
        text.remove_prefix(std::min(text.size(), AT_FEED_MAX));
    } while (!text.empty());
    return true;
}

/// Feeds the link; without bytes gives it the time only, because a modem that sends bytes is not silent.
void at_proxy::run_link(std::string_view bytes)
{
    std::unique_lock link_lock(link_mutex);
    const int64_t now = monotonic_ms();
    if (somebody_gone.exchange(false))
        link.asker_gone(gone_request, now);
    if (bytes.empty())
        link.tick(now);
    else
        link.feed(bytes, now);
    do_what_link_wants(std::move(link_lock));
}

void at_proxy::do_what_link_wants(std::unique_lock<std::mutex> link_lock)
{
    due = link.due();
    if (link.is_ready() != was_ready) {
        was_ready = link.is_ready();
        mute = !was_ready;
        if (was_ready)
            set_modem(HOST_MODEM_READY, "");
        else
            set_silent();
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
}

/// The reader's thread pushes them all; the thread that empties the queue leaves those that find no room.
void at_proxy::push_deliveries()
{
    for (; !to_deliver.is_empty(); to_deliver.drop_first(), ++first_ticket)
        if (!push(to_deliver.first(), to_deliver.first_is_answer(), first_ticket))
            return;
}

/// The record that answers a command has room for 1500 bytes, and none for lines that look like reports: its client
/// may take the whole answer from the hub.
void at_proxy::tell_asker(std::string_view text, bool is_answer) const
{
    host_packet packet{};
    packet.kind = HOST_ANSWER_TEXT;
    packet.module = asked_by.process;
    packet.code = asked_by.seq;
    packet.value1 = asked_by.id;
    packet.value2 = (is_answer ? HOST_ANSWER_OWN : 0) | (link.has_lost_lines() ? HOST_ANSWER_CUT : 0);
    packet.length = static_cast<uint32_t>(text.size());
    hub_post(packet, text.data());
}

/// Called under the link's mutex, by the thread that reads.
void at_proxy::deliver(std::string_view text, bool is_answer)
{
    if (!is_answer) {
        count_reports(text);
        report_lines_delivery(text);
    }
    if (hub_takes_answers() && (is_answer || link.awaits_answer()))
        tell_asker(text, is_answer);
    std::array<char, AT_DELIVERY_MAX> room;
    if (is_answer && link.asks_for_names()) {
        text = without_report_names(text, room.data());
        if (text.empty())
            return;
    }
    const uint32_t ticket = unread.note_made(is_answer);
    if (to_deliver.is_empty())
        first_ticket = ticket;
    to_deliver.put(text, is_answer);
}

/// A full queue holds the modem back instead of losing its text, as long as somebody empties it. False when it is full
/// and this is the thread that empties it.
bool at_proxy::push(std::string_view text, bool is_answer, uint32_t ticket)
{
    int64_t end = -1; // set only when the text is not taken at once
    int pause_ms = 1;
    while (!stopping) {
        if (!unread.begin_push(ticket, is_answer))
            return true;
        if (data_proc.load()(channel, text.data(), static_cast<uint32_t>(text.size())) == 0) {
            reported_loss = false;
            unread.end_push(true);
            return true;
        }
        unread.end_failed_push();
        if (runs_commands())
            return false;
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
    return true;
}

// ---- The thread that runs commands, while it waits

bool at_proxy::read_here(int64_t deadline)
{
    if (!runs_commands())
        return false;
    std::unique_lock lock(reading, std::try_to_lock);
    if (!take_over_reading(lock))
        return false;
    std::array<char, AT_FEED_MAX> bytes;
    ssize_t count = at_device_read(device, bytes); // before the wait: a quick modem has answered by now
    const bool has_waited = count == 0 && wait_here(deadline);
    if (has_waited)
        count = at_device_read(device, bytes);
    return goes_on_here((count != 0 || has_waited) && pass_on(bytes.data(), count), std::move(lock));
}

/// False when the reader's thread was woken, which has something to do then.
bool at_proxy::wait_here(int64_t deadline) const
{
    int wait_ms = poll_time(deadline);
    if (const int64_t until = due; until >= 0) {
        const int left = static_cast<int>(std::max<int64_t>(until - monotonic_ms(), 0));
        wait_ms = wait_ms < 0 ? left : std::min(wait_ms, left);
    }
    pollfd inputs[] = {{device.fd, POLLIN, 0}, {wake_fd, POLLIN, 0}};
    poll(inputs, 2, wait_ms);
    return inputs[1].revents == 0;
}

void at_proxy::input()
{
    std::unique_lock lock(reading, std::try_to_lock);
    if (take_over_reading(lock))
        goes_on_here(pass_on_input(AT_FEED_MAX), std::move(lock));
}

void at_proxy::before_sleep() const
{
    const int64_t until = due;
    if (until >= 0 && reads_here && (reader_due < 0 || until < reader_due))
        wake_reader();
}

/// False when the reader's thread has to read: it is at work, or has something else to do first.
bool at_proxy::take_over_reading(const std::unique_lock<std::mutex> &lock)
{
    if (!lock || !is_served || !to_deliver.is_empty() || stopping || broken || wants_reopen) {
        read_there();
        return false;
    }
    if (reads_here)
        return true;
    if (main_wait_add_modem(device.fd) != 0 && errno != EEXIST)
        return false;
    watch(device.fd, EPOLL_CTL_DEL);
    reads_here = true;
    return true;
}

/// False when the reader's thread has to go on: it is told so.
bool at_proxy::goes_on_here(bool can_go_on, std::unique_lock<std::mutex> lock)
{
    if (can_go_on && to_deliver.is_empty() && !broken && !wants_reopen)
        return true;
    lock.unlock();
    read_there();
    wake_reader();
    return false;
}

void at_proxy::read_there()
{
    if (!reads_here || !runs_commands())
        return;
    const std::scoped_lock lock(device_mutex);
    give_back_reading();
}

/// Under the device's mutex.
void at_proxy::give_back_reading()
{
    if (!reads_here.exchange(false))
        return;
    main_wait_remove_modem(device.fd);
    watch(device.fd, EPOLL_CTL_ADD);
    if (due >= 0)
        wake_reader(); // it sleeps without knowing that time
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
    {at_notice::NO_ANSWER, LOG_WARNING, ""}, // silence_text says it
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
    if (what == at_notice::NO_ANSWER) {
        mute = true;
        set_silent();
        host_log(LOG_WARNING, "the modem on %s %s", host_settings().device, silence_text(speed).data());
        return;
    }
    if (what == at_notice::SETTINGS_PUT_RIGHT || what == at_notice::RESTARTED)
        ++counters.restorations;
    char shown[SHOWN_RESULT_MAX + 8] = "";
    if (what == at_notice::READY && speed != 0)
        snprintf(shown, sizeof shown, " at %u bit/s", speed.load());
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

bool at_proxy_read_here(int64_t deadline)
{
    return proxy.read_here(deadline);
}

void at_proxy_input()
{
    proxy.input();
}

void at_proxy_before_sleep()
{
    proxy.before_sleep();
}

void at_proxy_read_there()
{
    proxy.read_there();
}

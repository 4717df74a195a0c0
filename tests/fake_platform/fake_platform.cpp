#include "fake_platform.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <dirent.h>
#include <filesystem>
#include <map>
#include <mutex>
#include <sstream>
#include <sys/stat.h>
#include <utility>

#include "at_cmd_msg.h"
#include "vlk_queues.h"

namespace
{

constexpr int32_t FIRST_QUEUE_ID = 100; // that of key 0

struct queue {
    uint32_t capacity; // 0: the queue does not exist
    uint32_t record_size;
    std::deque<std::string> records;
};

struct failure {
    int times;
    int after;
};

struct registration {
    uint32_t channel = 0;
    k7_data_proc data_proc = nullptr; // while the daemon is registered
};

struct platform {
    fake::record seen;
    bool recording = true;
    std::map<std::string, failure, std::less<>> failures;
    int64_t clock_ms = 1'000'000;

    std::map<int32_t, queue> queues; // by id

    registration registered;
    k7_send_proc *send_slot = nullptr;
    std::map<std::string, std::function<void()>, std::less<>> scripts; // by written text
    std::multimap<int64_t, std::string> schedule;                      // deliveries by time

    qep_msg_proc bus_proc = nullptr;
    std::vector<qep_msg> bus_packets;
};

std::atomic<int> blocks_held = 0;
std::recursive_mutex mutex;
platform state; // guarded by mutex

/// The state, locked while this lives. No function of the daemon is called meanwhile.
struct locked_state {
    std::lock_guard<std::recursive_mutex> lock{mutex};
    platform *operator->() const { return &state; }
};

/// The folder that stands for /, made when first needed.
struct scratch_folder {
    ~scratch_folder() { remove(); }

    std::string path(const std::string &original)
    {
        if (root.empty()) {
            root = (std::filesystem::temp_directory_path() / "fake_platform.XXXXXX").string();
            if (mkdtemp(root.data()) == nullptr)
                std::abort();
            std::filesystem::create_directories(root + "/var/run");
        }
        return root + original;
    }
    void remove()
    {
        std::error_code ignored;
        std::filesystem::remove_all(std::exchange(root, ""), ignored); // of "" there is nothing
    }

    std::string root;
} scratch;

std::string format_text(const char *format, va_list arguments) __attribute__((format(printf, 1, 0)));
std::string format_text(const char *format, va_list arguments)
{
    std::array<char, 4096> text;
    std::vsnprintf(text.data(), text.size(), format, arguments);
    return text.data();
}

std::string_view bytes_of(const void *data, std::size_t length)
{
    return data == nullptr ? std::string_view{} : std::string_view(static_cast<const char *>(data), length);
}

/// Whether a failure of this name is to happen now.
bool is_due(std::string_view name)
{
    const auto found = state.failures.find(name);
    if (found == state.failures.end())
        return false;
    auto &[times, after] = found->second;
    if (after > 0) {
        after--;
        return false;
    }
    return times == fake::ALWAYS || (times > 0 && times-- > 0);
}

/// Whether a call, known by its name or as it is recorded, is to fail now.
bool fails(std::string_view name, std::string_view what = "none")
{
    const locked_state now;
    if (now->failures.empty() || (!is_due(fake::ANY_CALL) && !is_due(name) && !is_due(what)))
        return false;
    now->seen.failed = name;
    return true;
}

/// Records a call and its payload. Returns 0, or -1 when it is to fail.
template <typename... types>
int call_with(std::string_view payload, const char *name, const types &...arguments)
{
    const locked_state now;
    if (!now->recording && now->failures.empty())
        return 0;
    std::ostringstream what;
    [[maybe_unused]] const char *comma = "";
    what << name << "(";
    ((what << std::exchange(comma, ", ") << arguments), ...);
    what << ")";
    if (now->recording)
        now->seen.calls.push_back({what.str(), std::string(payload)});
    return fails(name, what.str()) ? -1 : 0;
}

template <typename... types>
int call(const char *name, const types &...arguments)
{
    return call_with({}, name, arguments...);
}

/// Steps the clock to the next scheduled delivery and hands it over. False when none is due by the deadline.
bool deliver_next(int64_t deadline_ms)
{
    std::string bytes;
    {
        const locked_state now;
        const auto next = now->schedule.begin();
        if (next == now->schedule.end() || next->first > deadline_ms)
            return false;
        now->clock_ms = std::max(now->clock_ms, next->first);
        bytes = std::move(next->second);
        now->schedule.erase(next);
    }
    fake::deliver(bytes);
    return true;
}

int send_to_modem(uint32_t channel, const char *text, uint16_t length)
{
    std::function<void()> action;
    {
        const locked_state now;
        if (now->registered.data_proc == nullptr || channel != now->registered.channel || fails("k7_send"))
            return -1;
        const std::string_view bytes(text, length);
        if (now->recording)
            now->seen.written.emplace_back(bytes);
        const auto found = now->scripts.find(bytes);
        if (found != now->scripts.end())
            action = found->second;
    }
    if (action)
        action();
    return 0;
}

int32_t id_of(uint32_t key)
{
    return FIRST_QUEUE_ID + static_cast<int32_t>(key);
}

int32_t create_queue(const char *name, uint32_t key, uint32_t capacity, uint32_t record_size)
{
    if (call(name, key, capacity, record_size) != 0)
        return -1;
    locked_state()->queues[id_of(key)] = {capacity, record_size, {}};
    return id_of(key);
}

int delete_queue(const char *name, int32_t id)
{
    if (call(name, "id of " + std::to_string(id - FIRST_QUEUE_ID)) != 0)
        return -1;
    return locked_state()->queues.erase(id) == 1 ? 0 : -1;
}

int32_t count_records(const char *name, int32_t id)
{
    const locked_state now;
    return fails(name) ? -1 : static_cast<int32_t>(now->queues[id].records.size());
}

bool append_record(int32_t id, const void *record, std::size_t size)
{
    const locked_state now;
    queue &to = now->queues[id];
    if (size > to.record_size || to.records.size() >= to.capacity)
        return false;
    to.records.emplace_back(bytes_of(record, size));
    return true;
}

/// Takes the oldest record into size bytes; the number stored, -1 when there is none.
int take_record(int32_t id, void *record, std::size_t size)
{
    const locked_state now;
    std::deque<std::string> &records = now->queues[id].records;
    if (records.empty())
        return -1;
    const std::size_t stored = records.front().copy(static_cast<char *>(record), size);
    records.pop_front();
    return static_cast<int>(stored);
}

} // namespace

namespace fake
{

void reset()
{
    const locked_state now;
    if (now->send_slot != nullptr)
        *now->send_slot = nullptr;
    state = {};
    blocks_held = 0;
    scratch.remove();
}

void forget()
{
    locked_state()->seen = {};
}

void stop_recording()
{
    locked_state()->recording = false;
}

const record &seen()
{
    return state.seen;
}

std::vector<std::string> calls()
{
    const locked_state now;
    std::vector<std::string> names;
    for (const platform_call &each : now->seen.calls)
        names.push_back(each.what);
    return names;
}

void fail(const std::string &call, int times, int after)
{
    locked_state()->failures[call] = {times, after};
}

int64_t now_ms()
{
    return locked_state()->clock_ms;
}

void on_write(const std::string &text, std::function<void()> action)
{
    locked_state()->scripts[text] = std::move(action);
}

void on_write(const std::string &text, std::vector<delivery> answer)
{
    on_write(text, [answer = std::move(answer)] {
        for (const delivery &piece : answer)
            deliver_later(piece.seconds, piece.bytes);
    });
}

int deliver(std::string_view bytes)
{
    const auto [channel, proc] = locked_state()->registered;
    return proc == nullptr ? -1 : proc(channel, bytes.data(), static_cast<uint32_t>(bytes.size()));
}

void deliver_later(int32_t seconds, std::string bytes)
{
    const locked_state now;
    now->schedule.emplace(now->clock_ms + seconds * 1000, std::move(bytes));
}

std::vector<std::string> queued(uint32_t key)
{
    const locked_state now;
    const std::deque<std::string> &records = now->queues[id_of(key)].records;
    return {records.begin(), records.end()};
}

void put(uint32_t key, std::string record)
{
    const locked_state now;
    now->queues[id_of(key)].records.push_back(std::move(record));
    now->seen.events |= key == VLK_QUEUE_CLIENT_REQUEST ? VLK_EVENT_CLIENT_REQUEST : 0;
}

int blocks()
{
    return blocks_held;
}

std::string path(const std::string &original)
{
    const locked_state now;
    return scratch.path(original);
}

void send_on_bus(std::vector<qep_msg> packets)
{
    state.bus_packets = std::move(packets);
}

} // namespace fake

// ---- Trace and log

void QEP_TRACE_PrintInfo(const char *file, int, int, const char *module, int level, const char *format, ...)
{
    const locked_state now;
    if (!now->recording)
        return;
    va_list arguments;
    va_start(arguments, format);
    now->seen.traces.push_back({file, module, level, format_text(format, arguments)});
    va_end(arguments);
}

void mlog_print(const char *module, int level, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    call(__func__, module, level, format_text(format, arguments));
    va_end(arguments);
}

// ---- Privileges

int QEP_UTIL_ForceSetPrivileges(const char *process)
{
    return call(__func__, process);
}

int QEP_UTIL_RemoveAndroidWPerm(const char *path, const char *mode)
{
    return call(__func__, path, mode);
}

int QEP_UTIL_DropAndroidRootPrivileges(void)
{
    return call(__func__);
}

// ---- Message bus and notify service

int QEP_MSG_Init(const char *process)
{
    return call(__func__, process);
}

int QEP_MSG_RegisterMsgProc(qep_msg_proc proc)
{
    state.bus_proc = proc;
    return call(__func__);
}

int QEP_UTIL_SockBaseStart(int reserved)
{
    call(__func__, reserved);
    for (const qep_msg &packet : state.bus_packets)
        state.bus_proc(&packet);
    return 0;
}

int QEP_MSG_DefaultMsgProc(const qep_msg *packet)
{
    return call(__func__, packet->type);
}

int QEP_MSG_SendSimpleMsg(const char *destination, uint32_t type, int32_t parameter)
{
    return call(__func__, destination, type, parameter);
}

int QEP_MSG_SendMsgData(const char *destination, uint32_t type, const void *data, uint32_t length)
{
    return call_with(bytes_of(data, length), __func__, destination, type, length);
}

int QEP_NOTIFYCLT_Init(int32_t module)
{
    return call(__func__, module);
}

int QEP_NOTIFYCLT_RegSyncMsgProc(uint32_t message, qep_sync_proc proc)
{
    state.seen.sync_proc = proc;
    return call(__func__, message);
}

int VLK_post_notify(int32_t module, int32_t event, int32_t value1, int32_t value2)
{
    return call(__func__, module, event, value1, value2);
}

int VLK_post_notify_ex(int32_t module, int32_t event, const void *data, uint32_t length, int32_t reserved1,
                       int32_t reserved2)
{
    return call_with(bytes_of(data, length), __func__, module, event, length, reserved1, reserved2);
}

// ---- Threads, events, time

uintptr_t VLK_pthread_create(int reserved1, int reserved2, int reserved3, vlk_thread_proc proc,
                             void *argument)
{
    state.seen.thread_proc = proc;
    const char *passed = argument == nullptr ? "none" : "argument";
    return call(__func__, reserved1, reserved2, reserved3, passed) == 0 ? 1 : 0;
}

int32_t VLK_task_getid(void)
{
    call(__func__);
    return fake::TASK_ID;
}

int VLK_event_init(uint32_t mask)
{
    return call(__func__, mask);
}

int VLK_event_send(int32_t task, uint32_t events)
{
    if (task != fake::TASK_ID || fails(__func__))
        return -1;
    locked_state()->seen.events |= events;
    return 0;
}

/// Knows waits without a limit only; one that nothing could end any more fails instead of lasting for ever.
int VLK_event_recv(uint32_t mask, int32_t wait_ms, uint32_t *events)
{
    if (wait_ms >= 0 || fails(__func__))
        return 0;
    do {
        const locked_state now;
        *events = now->seen.events & mask;
        now->seen.events &= ~mask;
        if (*events != 0)
            return 1;
    } while (deliver_next(INT64_MAX));
    return 0;
}

void VLK_sleep(uint32_t milliseconds)
{
    call(__func__, milliseconds);
    locked_state()->clock_ms += milliseconds;
}

int32_t VLK_elapse(void)
{
    return static_cast<int32_t>(fake::now_ms() / 1000);
}

// ---- Queues

int32_t VLK_get_msgQ_id(uint32_t key)
{
    const bool failed = call(__func__, key) != 0;
    return !failed && locked_state()->queues[id_of(key)].capacity != 0 ? id_of(key) : -1;
}

int32_t VLK_msgQ_create(uint32_t key, uint32_t capacity, uint32_t record_size)
{
    return create_queue(__func__, key, capacity, record_size);
}

int VLK_msgQ_delete(int32_t id)
{
    return delete_queue(__func__, id);
}

int32_t VLK_msgQ_num(int32_t id)
{
    return count_records(__func__, id);
}

int VLK_msgQ_send(int32_t id, const void *record, uint32_t size)
{
    return !fails(__func__) && append_record(id, record, size) ? 1 : 0;
}

int VLK_msgQ_recv(int32_t id, void *record, uint32_t size, int32_t wait_ms)
{
    int64_t deadline_ms = 0;
    if (fails(__func__))
        return -1;
    {
        const locked_state now;
        if (now->recording)
            now->seen.waits.push_back(wait_ms);
        deadline_ms = now->clock_ms + std::max(wait_ms, 0);
    }
    do {
        const int stored = take_record(id, record, size);
        if (stored >= 0)
            return stored;
    } while (deliver_next(deadline_ms));
    const locked_state now;
    now->clock_ms = std::max(now->clock_ms, deadline_ms);
    return -1;
}

int32_t VLK_msgQex_create(uint32_t key, uint32_t capacity, uint32_t record_size)
{
    return create_queue(__func__, key, capacity, record_size);
}

int VLK_msgQex_delete(int32_t id)
{
    return delete_queue(__func__, id);
}

int32_t VLK_msgQex_num(int32_t id)
{
    return count_records(__func__, id);
}

int read_from_msgqueue(int32_t id, at_cmd_msg *record, int32_t, int *retcode)
{
    const bool taken = !fails(__func__) && take_record(id, record, sizeof *record) >= 0;
    *retcode = taken ? 0 : 61; // no data
    return taken ? 0 : -1;
}

int send_to_msgqueue(int32_t id, const at_cmd_msg *record, int *retcode)
{
    const bool sent = !fails(__func__) && append_record(id, record, sizeof *record);
    *retcode = sent ? 0 : 11; // try again
    return sent ? 0 : -1;
}

// ---- AT proxy

/// Failing means that the modem cannot be written to yet.
int K7_APP_RegCallBack(uint32_t channel, k7_data_proc data_proc, k7_send_proc *send_proc)
{
    const bool ready = call(__func__, channel) == 0;
    const locked_state now;
    now->send_slot = send_proc;
    if (!ready)
        return 0;
    now->registered = {channel, data_proc};
    *send_proc = send_to_modem;
    return 0;
}

int K7_App_Ungister(void)
{
    locked_state()->registered = {};
    return call(__func__);
}

// ---- The C library, where the linker sends the daemon's calls

extern "C" {
void *__real_malloc(std::size_t size);
void __real_free(void *block);
FILE *__real_fopen(const char *path, const char *mode);
int __real_mkdir(const char *path, mode_t mode);
DIR *__real_opendir(const char *path);

void *__wrap_malloc(std::size_t size);
void __wrap_free(void *block);
FILE *__wrap_fopen(const char *path, const char *mode);
int __wrap_mkdir(const char *path, mode_t mode);
DIR *__wrap_opendir(const char *path);
}

/// Other paths are not the daemon's and pass through.
static bool is_redirected(const char *path)
{
    return path != nullptr && std::string_view(path).starts_with("/var/");
}

void *__wrap_malloc(std::size_t size)
{
    void *block = fails("malloc") ? nullptr : __real_malloc(size);
    blocks_held += block != nullptr ? 1 : 0;
    return block;
}

void __wrap_free(void *block)
{
    blocks_held -= block != nullptr ? 1 : 0;
    __real_free(block);
}

FILE *__wrap_fopen(const char *path, const char *mode)
{
    if (!is_redirected(path))
        return __real_fopen(path, mode);
    return call("fopen", path, mode) == 0 ? __real_fopen(fake::path(path).c_str(), mode) : nullptr;
}

int __wrap_mkdir(const char *path, mode_t mode)
{
    if (!is_redirected(path))
        return __real_mkdir(path, mode);
    std::ostringstream octal;
    octal << std::showbase << std::oct << mode;
    return call("mkdir", path, octal.str()) == 0 ? __real_mkdir(fake::path(path).c_str(), mode) : -1;
}

DIR *__wrap_opendir(const char *path)
{
    if (!is_redirected(path))
        return __real_opendir(path);
    return call("opendir", path) == 0 ? __real_opendir(fake::path(path).c_str()) : nullptr;
}

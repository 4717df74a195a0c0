// Measures what a client's command through the real daemon costs with a modem that answers at once, and next to it the
// same through bench/relay, the floor; also commands per second, memory and time to start. bench/run calls it
// and removes what it leaves. Prints lines of a name, a number and its unit.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <csignal>
#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "host_wire.h"
#include "vlk_client.h"

namespace
{

using clock_type = std::chrono::steady_clock;

constexpr char USAGE[] = R"(Usage: latency FOLDER PART
Started by bench/run, which says what the numbers mean. FOLDER: an empty one
PART:
  pinned    microseconds a command, everything on one CPU, beside the floor
  unpinned  the same on all CPUs
  pty       through a pty in place of a socket, without the floor
  clients   commands a second with 1, 4, 16 and 64 client processes and the slowest of them, everything on one CPU,
            beside the floor
  memory    of the daemon after 10,000 and after 50,000 commands, KiB; of one that is linked statically and of the
            floor, too
  start     milliseconds until the modem is ready
)";

constexpr int ROUNDS = 31;                 ///< of each measurement, in turns; results are their medians
constexpr int COMMANDS = 2000;             ///< of a single client in a round
constexpr std::size_t ALL_COMMANDS = 3200; ///< of several clients together in a round
constexpr int32_t LIMIT_MS = 10'000;

[[noreturn]] void fail(const char *what, const char *why)
{
    fprintf(stderr, "latency: %s: %s\n", what, why);
    exit(EXIT_FAILURE); // children end with this process
}

void check(bool good, const char *what)
{
    if (!good)
        fail(what, strerror(errno));
}

double microseconds_since(clock_type::time_point start)
{
    return std::chrono::duration<double, std::micro>(clock_type::now() - start).count();
}

/// The value that this share of the values does not exceed.
double quantile(std::vector<double> values, double share)
{
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size()));
    std::ranges::nth_element(values, at);
    return *at;
}

double median(const std::vector<double> &values)
{
    return quantile(values, 0.5);
}

// ---- Processes

/// A child process, which ends with this object or this process.
class child
{
public:
    template <typename Work>
    explicit child(const Work &work) : pid(fork())
    {
        check(pid >= 0, "fork");
        if (pid > 0)
            return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        work();
        _exit(EXIT_FAILURE);
    }
    child(child &&other) noexcept : pid(std::exchange(other.pid, -1)) {}
    child(const child &) = delete;
    ~child()
    {
        if (pid > 0 && kill(pid, SIGKILL) == 0)
            waitpid(pid, nullptr, 0);
    }

    void wait_for_success()
    {
        int status = 0;
        waitpid(std::exchange(pid, -1), &status, 0);
        if (status != 0)
            fail("a client", "it failed");
    }

    pid_t pid;
};

/// Where a server is, daemon or relay, and what it is told.
struct place {
    std::string folder; ///< its runtime folder
    std::string device;
};

child start_server(const char *program, const place &where)
{
    return child([&] {
        setenv("VLK_RUNTIME_DIR", where.folder.c_str(), 1);
        setenv("VLK_AT_DEVICE", where.device.c_str(), 1);
        execl(program, program, nullptr);
        perror(program);
    });
}

void pin_to_last_cpu()
{
    cpu_set_t cpus;
    check(sched_getaffinity(0, sizeof cpus, &cpus) == 0, "sched_getaffinity");
    std::size_t last = CPU_SETSIZE - 1;
    while (!CPU_ISSET(last, &cpus))
        --last;
    CPU_ZERO(&cpus);
    CPU_SET(last, &cpus);
    check(sched_setaffinity(0, sizeof cpus, &cpus) == 0, "sched_setaffinity");
}

// ---- The modem: answers every line at once

void answer_lines(int fd)
{
    constexpr std::string_view answer = "\r\n+CSQ: 20,99\r\n\r\nOK\r\n";
    std::array<char, 4096> bytes;
    for (;;) {
        const ssize_t count = read(fd, bytes.data(), bytes.size());
        if (count <= 0)
            return;
        for (auto lines = std::count(bytes.begin(), bytes.begin() + count, '\r'); lines > 0; --lines)
            check(write(fd, answer.data(), answer.size()) > 0, "the modem's answer");
    }
}

child start_modem_on_socket(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    unlink(path.c_str());
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    check(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
              listen(listener, 8) == 0,
          path.c_str());
    child modem([listener] {
        signal(SIGCHLD, SIG_IGN);
        for (int fd = 0; (fd = accept(listener, nullptr, nullptr)) >= 0; close(fd)) {
            if (fork() == 0) {
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                answer_lines(fd);
                _exit(EXIT_SUCCESS);
            }
        }
    });
    close(listener);
    return modem;
}

/// Stores the path of the pty's other end in *path.
child start_modem_on_pty(std::string *path)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    check(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0, "a pty");
    *path = ptsname(master);
    const int slave = open(path->c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC); // held, so that it never hangs up
    termios settings{};
    check(tcgetattr(slave, &settings) == 0, path->c_str());
    cfmakeraw(&settings);
    tcsetattr(slave, TCSANOW, &settings);
    child modem([master] { answer_lines(master); });
    close(slave);
    close(master);
    return modem;
}

// ---- Clients

void wait_until_ready(const place &where)
{
    const vlk_place at{where.folder.c_str()};
    vlk_status status{};
    while (vlk_get_status(&at, &status) != VLK_OK || status.modem != VLK_MODEM_READY)
        usleep(100);
}

/// A client of the daemon.
class daemon_client
{
public:
    explicit daemon_client(const place &where)
    {
        wait_until_ready(where);
        const vlk_place at{where.folder.c_str()};
        if (vlk_open(&client, &at) != VLK_OK)
            fail("vlk_open", vlk_last_error());
        vlk_fill_command(&request, "AT+CSQ", "+CSQ:", VLK_PLAIN, 5);
    }
    daemon_client(const daemon_client &) = delete;
    ~daemon_client() { vlk_close(client); }

    void exchange()
    {
        if (vlk_exchange(client, &request, &reply, LIMIT_MS) != VLK_OK)
            fail("vlk_exchange", vlk_last_error());
        if (reply.snd_rcv_msg.ret_val != AT_OK)
            fail("the daemon's answer", vlk_final_result(reply.snd_rcv_msg.ret_val));
    }

private:
    vlk_client *client = nullptr;
    at_cmd_msg request{};
    at_cmd_msg reply{};
};

/// A client of the relay: the two system calls that an exchange needs.
class relay_client
{
public:
    explicit relay_client(const place &where)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (where.folder + "/" + HOST_COMMANDS_NAME).copy(address.sun_path, sizeof address.sun_path - 1);
        while (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            usleep(1000); // until the relay has made it
        strcpy(request.snd_rcv_msg.cmd, "AT+CSQ");
    }
    relay_client(const relay_client &) = delete;
    ~relay_client() { close(fd); }

    void exchange()
    {
        check(send(fd, &request, sizeof request, MSG_NOSIGNAL) == sizeof request, "send");
        check(recv(fd, &reply, sizeof reply, 0) == sizeof reply, "recv");
    }

private:
    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    at_cmd_msg request{};
    at_cmd_msg reply{};
};

// ---- The parts

struct round_trip {
    std::vector<double> medians;
    std::vector<double> slowest; ///< 99th percentiles
};

template <typename Client>
void measure_round(Client &client, round_trip &result)
{
    std::vector<double> times;
    for (int i = 0; i < COMMANDS; ++i) {
        const auto start = clock_type::now();
        client.exchange();
        times.push_back(microseconds_since(start));
    }
    result.medians.push_back(quantile(times, 0.5));
    result.slowest.push_back(quantile(times, 0.99));
}

void print_round_trip(const std::string &name, const round_trip &result)
{
    printf("%s/median %.2f us\n%s/99th %.2f us\n", name.c_str(), median(result.medians), name.c_str(),
           median(result.slowest));
}

/// The daemon's figure of each round divided by its floor: the median over the rounds.
double ratio(const std::vector<double> &daemon, const std::vector<double> &floor)
{
    std::vector<double> ratios;
    std::ranges::transform(daemon, floor, std::back_inserter(ratios), std::divides());
    return median(ratios);
}

void measure_round_trips(const std::string &part, const place &daemon_place)
{
    const place relay_place{daemon_place.folder + "-relay", daemon_place.device};
    const child modem = start_modem_on_socket(daemon_place.device);
    const child daemon = start_server(VORLINK, daemon_place);
    const child relay = start_server(RELAY, relay_place);
    daemon_client to_daemon(daemon_place);
    relay_client to_relay(relay_place);

    round_trip warm_up, through_daemon, through_relay;
    measure_round(to_daemon, warm_up);
    measure_round(to_relay, warm_up);
    for (int round = 0; round < ROUNDS; ++round) {
        measure_round(to_daemon, through_daemon);
        measure_round(to_relay, through_relay);
    }
    print_round_trip("command/" + part, through_daemon);
    print_round_trip("command_floor/" + part, through_relay);
    printf("command_ratio/%s/median %.2f x\n", part.c_str(),
           ratio(through_daemon.medians, through_relay.medians));
    printf("command_ratio/%s/99th %.2f x\n", part.c_str(),
           ratio(through_daemon.slowest, through_relay.slowest));
}

void measure_pty(place where)
{
    const child modem = start_modem_on_pty(&where.device);
    const child daemon = start_server(VORLINK, where);
    daemon_client client(where);
    round_trip warm_up, result;
    measure_round(client, warm_up);
    for (int round = 0; round < ROUNDS; ++round)
        measure_round(client, result);
    print_round_trip("command/pty", result);
}

/// What clients that start together see.
struct crowd {
    double rate;    ///< commands a second
    double slowest; ///< 99th percentile of a command of any of them, microseconds
};

template <typename Client>
crowd measure_clients(std::size_t clients, const place &where)
{
    std::array<int, 2> gate{};
    check(pipe(gate.data()) == 0, "pipe");
    std::array<int, 2> arrivals{};
    check(pipe(arrivals.data()) == 0, "pipe");
    const std::size_t commands = ALL_COMMANDS / clients;
    const std::size_t size = sizeof(double) * commands * clients;
    void *const shared = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    check(shared != MAP_FAILED, "mmap");
    auto *const times = static_cast<double *>(shared);
    std::vector<child> all;
    char byte = 0;
    for (std::size_t i = 0; i < clients; ++i) {
        all.emplace_back([&] {
            close(gate[1]);
            Client client(where);
            client.exchange();
            check(write(arrivals[1], &byte, 1) == 1, "pipe");
            check(read(gate[0], &byte, 1) == 0, "pipe"); // until the gate opens
            for (std::size_t k = 0; k < commands; ++k) {
                const auto start = clock_type::now();
                client.exchange();
                times[i * commands + k] = microseconds_since(start);
            }
            _exit(EXIT_SUCCESS);
        });
    }
    for (std::size_t i = 0; i < clients; ++i)
        check(read(arrivals[0], &byte, 1) == 1, "pipe");
    const auto start = clock_type::now();
    close(gate[1]); // opens the gate
    for (child &client : all)
        client.wait_for_success();
    const double seconds = microseconds_since(start) / 1e6;
    for (const int fd : {gate[0], arrivals[0], arrivals[1]})
        close(fd);
    const double slowest = quantile({times, times + commands * clients}, 0.99);
    munmap(shared, size);
    return {static_cast<double>(commands * clients) / seconds, slowest};
}

constexpr std::array<std::size_t, 4> CROWDS = {1, 4, 16, 64};

struct crowd_figures {
    std::array<std::vector<double>, CROWDS.size()> rates;
    std::array<std::vector<double>, CROWDS.size()> slowest;
};

template <typename Client>
void measure_crowds(const place &where, crowd_figures &result)
{
    for (std::size_t i = 0; i < CROWDS.size(); ++i) {
        const crowd seen = measure_clients<Client>(CROWDS[i], where);
        result.rates[i].push_back(seen.rate);
        result.slowest[i].push_back(seen.slowest);
    }
}

void print_crowds(const char *name, const crowd_figures &result)
{
    for (std::size_t i = 0; i < CROWDS.size(); ++i) {
        printf("%s/%zu %.0f /s\n", name, CROWDS[i], median(result.rates[i]));
        printf("%s/%zu/99th %.2f us\n", name, CROWDS[i], median(result.slowest[i]));
    }
    printf("%s_ratio/16_to_4 %.2f x\n", name, ratio(result.rates[2], result.rates[1]));
    printf("%s_ratio/64_to_4 %.2f x\n", name, ratio(result.rates[3], result.rates[1]));
}

void measure_throughputs(const place &where)
{
    const place relay_place{where.folder + "-relay", where.device};
    const child modem = start_modem_on_socket(where.device);
    const child daemon = start_server(VORLINK, where);
    const child relay = start_server(RELAY, relay_place);
    crowd_figures warm_up, through_daemon, through_relay;
    measure_crowds<daemon_client>(where, warm_up);
    measure_crowds<relay_client>(relay_place, warm_up);
    for (int round = 0; round < ROUNDS; ++round) {
        measure_crowds<daemon_client>(where, through_daemon);
        measure_crowds<relay_client>(relay_place, through_relay);
    }
    print_crowds("clients", through_daemon);
    print_crowds("clients_floor", through_relay);
    for (std::size_t i = 0; i < CROWDS.size(); ++i) {
        printf("clients_ratio/%zu %.2f x\n", CROWDS[i],
               ratio(through_daemon.rates[i], through_relay.rates[i]));
        printf("clients_ratio/%zu/99th %.2f x\n", CROWDS[i],
               ratio(through_daemon.slowest[i], through_relay.slowest[i]));
    }
}

void print_memory(pid_t pid, const char *program, const char *when)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string name; status >> name; status.ignore(1000, '\n')) {
        long size = 0;
        if (name == "VmRSS:" && status >> size)
            printf("%s/resident/%s %ld KiB\n", program, when, size);
        else if (name == "RssAnon:" && status >> size)
            printf("%s/anonymous/%s %ld KiB\n", program, when, size);
    }
    std::ifstream shares("/proc/" + std::to_string(pid) + "/smaps_rollup");
    for (std::string name; shares >> name; shares.ignore(1000, '\n'))
        if (long size = 0; name == "Pss:" && shares >> size)
            printf("%s/proportional/%s %ld KiB\n", program, when, size);
}

template <typename Client>
void measure_memory_of(const char *program, const char *name, const place &where)
{
    const child server = start_server(program, where);
    Client client(where);
    for (int command = 1; command <= 50'000; ++command) {
        client.exchange();
        if (command == 10'000)
            print_memory(server.pid, name, "10000_commands");
    }
    print_memory(server.pid, name, "50000_commands");
}

void measure_memory(const place &where)
{
    const child modem = start_modem_on_socket(where.device);
    measure_memory_of<daemon_client>(VORLINK, "memory", where);
    measure_memory_of<daemon_client>(VORLINK_STATIC, "memory_static", where);
    measure_memory_of<relay_client>(RELAY, "memory_floor", where);
}

void measure_start(const place &where)
{
    const child modem = start_modem_on_socket(where.device);
    std::vector<double> times;
    for (int i = 0; i < 20; ++i) {
        const auto start = clock_type::now();
        const child daemon = start_server(VORLINK, where);
        wait_until_ready(where);
        times.push_back(microseconds_since(start) / 1000);
    }
    printf("start %.2f ms\n", median(times));
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 3) {
        fputs(USAGE, stderr);
        return 2;
    }
    const std::string folder = argv[1];
    const place where{folder + "/run", folder + "/modem"};
    const std::string part = argv[2];
    if (part == "pinned" || part == "clients")
        pin_to_last_cpu();
    if (part == "pinned" || part == "unpinned")
        measure_round_trips(part, where);
    else if (part == "pty")
        measure_pty(where);
    else if (part == "clients")
        measure_throughputs(where);
    else if (part == "memory")
        measure_memory(where);
    else if (part == "start")
        measure_start(where);
    else
        fail(argv[2], "no such part");
    return EXIT_SUCCESS;
}

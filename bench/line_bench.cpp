// What a modem line costs: (a) through the core, (b) read from a socket and cut at its line ends, nothing else,
// (c) the search of the report table alone. Times are the thread's CPU time per modem line; bench/run compares
// them. The host layer is the real one with nobody listening and traces off: a router that nobody watches.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "host_start.h"
#include "nas_data_queue.h"
#include "service_ids.h"
#include "vlk_msgq.h"
#include "vlk_queues.h"
#include "vlk_register.h"
#include "vlk_report_callback/report_table.h"
#include "vlk_task.h"
#include "vorlink/engine/line_texts.h"
#include "vorlink/engine/response_assembly.h"

namespace
{

constexpr int LINES = 200'000;
constexpr int REPETITIONS = 11;

// ---- The transcript: from the 4th row of the report table to one of the last, in random order.

/// Rows without a handler: recognised, nothing else happens.
constexpr const char *recognised_lines[] = {
    "RING",
    "+CLIP: \"+4915112345678\",145,,,,0",
    "^CEND: 1,0,25,16,0,\"1234567\",129",
    "^CONN: 1,0,\"+4915112345678\",145,0",
    "^CONF: 1,0,\"+4915112345678\",145,0",
    "^ORIG: 1,0,\"+4915112345678\",145,0",
    "^ECLSTAT: 1,0,\"4915112345678\",2,1",
    "^EARST: 0,\"recovered\",12345,67890",
    "+CCWA: \"+4915112345678\",145,1,,0",
    "+COLP: \"+4915112345678\",145,\"\",0",
    "^APDHCP: \"192.168.8.1\",\"255.255.0\"",
    "^APDIALM: 1,\"internet\",\"user\",123",
    "^APCURPROF: 1,\"internet\",\"*99#\",0",
    "^APPROFRD: 3,\"internet\",\"user\",12",
    "^APWIFIBS: 1,\"network\",\"00:11:22\"",
    "^APWIFISEC: 1,\"WPA2-PSK\",\"AES\",00",
    "^TIME: \"26/05/31,10:20:30\",+08,01",
    "+CTZV: +08,\"26/05/31,10:20:30\",01",
    "^CARDLOCKNTY: 2,10,\"SIM LOCKED\",3",
    "^CCALLSTATE: 1,2,\"4915112345678\",0",
    "^IMSIREFRESH: \"262011234567890\",01",
    "^CCWA: \"+4915112345678\",145,1,,0,1",
    "^CSCHANNELINFO: 6300,24300,800,1000",
};

/// Rows whose handlers parse and notify. Not among them: those that write to standard output or the maintenance log.
constexpr const char *handled_lines[] = {
    "+CDS: 24\n07914356060013F1065A0981363",
    "^SMMEMFULL: \"SM\",\"storage full\",20",
    "^SRVST: 2",
    "^MODE: 5,4",
    "^DSFLOWRPT: 0000003C,00000A28,000007D0,0000000001",
    "+CREG: 1,\"84CD\",\"00D30156\",7,,,\"00\"",
    "+CUSD: 1,\"Balance 12.34 EUR, tariff M\",15",
    "^DCONN: 3,\"IPV4\",\"internet.apn\",1",
    "^DEND: 3,\"IPV6\",33,\"regular end\"",
    "+CGREG: 1,\"1422\",\"00000142\",7,\"00\"",
    "+C5GREG: 1,\"1F00\",\"0079D903\",11",
    "^NWTIME: 26/05/31,10:20:30+08,01",
    "^APROAMRPT: 1",
    "^HCMGSS: 42",
    "^HCMGSF: 500",
    "^ANLEVEL: 3,-80,-9,-70,-95,-11,0,0",
    "^TEMPPRT: 2,85",
    "^STIN: 37,0,0",
    "^HCSQ: \"LTE\",50,40,90,20,\"NR\",61,17",
    "^CERSSI: -61,-82,-9,-95,-11,12,2,9,10,1,-95,-96,-97,-98,12,13,14,15",
    "^EONS: 1,26201,\"Network\",\"Net\",0",
    "^HFREQINFO: 0,6,1,300,2110,18300,100,20000",
    "^WAKEUPIN: 1",
    "^NDISSTATEX: 1,1,0,,\"IPV4\",\"internet\"",
    "^NDISSTAT: 1,0,,\"IPV4\",\"internet\"",
    "^REJINFO: \"26201\",1,2,3,4,5,1A2B,01,0012AB34,6",
    "^MMIENTER: 1",
    "^LCACELLURC: 1,2,3,1300,5,1850,100,20",
    "^SIMREFRESH: 2",
    "^CPBREADY",
    "^LENDC: 1,1,0,1",
    "^NETSCAN: -95,12",
    "^RRCSTAT: 1",
    "^REPORTLINERPLMN: 26201",
    "^REPORTLINEINDEX: \"line\",4,5,9,11,12",
    "^HSRCELLINFO: 5,1,345678901,1234,26201",
    "^CSERSSI: -90,-11,25",
};

struct transcript {
    std::string text;
    std::vector<std::string_view> lines;      ///< deliveries of one line
    std::vector<std::string_view> deliveries; ///< whole lines, as many as a delivery takes
};

std::vector<std::string_view> cut_deliveries(std::string_view text, std::span<const std::string_view> lines)
{
    std::vector<std::string_view> deliveries;
    std::size_t length = 0;
    for (const std::string_view line : lines) {
        if (length + line.size() > NAS_DATA_MAX) {
            deliveries.push_back(text.substr(0, length));
            text.remove_prefix(length);
            length = 0;
        }
        length += line.size();
    }
    deliveries.push_back(text);
    return deliveries;
}

transcript make_transcript(std::span<const char *const> kinds)
{
    std::minstd_rand random(1);
    std::uniform_int_distribution<std::size_t> any(0, kinds.size() - 1);
    transcript made;
    std::vector<std::size_t> lengths;
    for (int i = 0; i < LINES; ++i) {
        const std::string line = std::string(kinds[any(random)]) + "\r\n";
        made.text += line;
        lengths.push_back(line.size());
    }
    std::string_view rest = made.text;
    for (const std::size_t length : lengths) {
        made.lines.push_back(rest.substr(0, length));
        rest.remove_prefix(length);
    }
    made.deliveries = cut_deliveries(made.text, made.lines);
    return made;
}

// ---- Time

double cpu_seconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <typename Work>
double seconds_of(const Work &work)
{
    const double start = cpu_seconds();
    work();
    return cpu_seconds() - start;
}

/// Measures passes over a whole transcript, so that an iteration is one line of it.
template <typename Pass>
void add(const std::string &name, const Pass &pass)
{
    const auto run = [pass](benchmark::State &state) {
        while (state.KeepRunningBatch(LINES))
            state.SetIterationTime(pass());
    };
    benchmark::RegisterBenchmark(name.c_str(), run)
        ->UseManualTime()
        ->Iterations(LINES)
        ->Repetitions(REPETITIONS)
        ->ReportAggregatesOnly();
}

// ---- (a) Through the core

using pieces = std::span<const std::string_view>;

/// What the proxy's thread does with a delivery, then what the main thread does with it.
void take_delivery(std::string_view text)
{
    int retcode = 0;
    vlk_get_data_from_nas(0, text.data(), static_cast<uint32_t>(text.size()));
    at_process_nas_msg(&retcode);
}

double through_core(pieces deliveries)
{
    return seconds_of([&] {
        for (const std::string_view text : deliveries)
            take_delivery(text);
    });
}

/// The same with an event set: raising its bit is a system call that wakes nobody. Without a set it is refused.
double through_core_with_wake(pieces deliveries)
{
    VLK_event_init(VLK_EVENT_MASK);
    g_vlkTaskId = VLK_task_getid();
    const double seconds = through_core(deliveries);
    g_vlkTaskId = -1;
    return seconds;
}

/// A delivery from the heap through the modem-data queue, and nothing else.
double through_queue(pieces deliveries)
{
    return seconds_of([&] {
        for (const std::string_view text : deliveries) {
            auto *const record = static_cast<nas_data_rec *>(malloc(sizeof(nas_data_rec)));
            if (record == nullptr)
                abort();
            record->length = static_cast<uint16_t>(text.copy(record->data, NAS_DATA_MAX));
            VLK_msgQ_send(g_nasDataQid, record, sizeof *record);
            free(record);
            nas_data_rec taken;
            VLK_msgQ_recv(g_nasDataQid, &taken, sizeof taken, 0);
            benchmark::DoNotOptimize(taken.length);
        }
    });
}

// ---- (b) The floor

std::size_t count_lines(std::string_view text)
{
    std::size_t lines = 0;
    for (std::size_t end = text.find('\n'); end != text.npos; end = text.find('\n', end + 1))
        ++lines;
    return lines;
}

/// Reads the pieces from a socket and takes them. Only that is timed, some pieces at a time.
template <typename Take>
double from_socket(pieces deliveries, const Take &take)
{
    constexpr std::size_t AT_A_TIME = 50; // fit in the socket
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0)
        abort();
    double seconds = 0;
    while (!deliveries.empty()) {
        const pieces some = deliveries.first(std::min(AT_A_TIME, deliveries.size()));
        deliveries = deliveries.subspan(some.size());
        for (const std::string_view text : some) {
            if (write(ends[0], text.data(), text.size()) != static_cast<ssize_t>(text.size()))
                abort();
        }
        seconds += seconds_of([&] {
            std::array<char, NAS_DATA_MAX> bytes;
            for (const std::string_view text : some) {
                const ssize_t count = read(ends[1], bytes.data(), text.size());
                take({bytes.data(), static_cast<std::size_t>(count)});
            }
        });
    }
    close(ends[0]);
    close(ends[1]);
    return seconds;
}

void search_line_ends(std::string_view text)
{
    benchmark::DoNotOptimize(count_lines(text));
}

double line_ends_alone(pieces deliveries)
{
    return seconds_of([&] {
        for (const std::string_view text : deliveries)
            search_line_ends(text);
    });
}

// ---- (c) The table search alone

const vlk_report_row *plain_walk(const char *line)
{
    for (const vlk_report_row &row : vlk_report_table) {
        if (row.prefix == nullptr)
            break;
        if (strstr(line, row.prefix) != nullptr)
            return &row;
    }
    return nullptr;
}

const vlk_report_row *core_search(const char *line)
{
    return look_for_texts(line, strlen(line)).report;
}

/// No row names these lines, so a walk makes all of its 78 searches.
constexpr const char *answer_lines[] = {
    "+CSQ: 20,99",
    "+COPS: 0,0,\"Network operator\",7",
    "^SYSINFOEX: 2,3,0,1,,6,\"LTE\",101,\"LTE\"",
    "+CPMS: \"SM\",3,20,\"SM\",3,20,\"SM\",3,20",
    "^CARDMODE: 2",
};

template <typename Search>
double search_table(std::span<const char *const> kinds, const Search &search)
{
    return seconds_of([&] {
        std::size_t kind = 0;
        for (int i = 0; i < LINES; ++i) {
            benchmark::DoNotOptimize(search(kinds[kind]));
            kind = kind + 1 < kinds.size() ? kind + 1 : 0;
        }
    });
}

void add_searches(const std::string &name, std::span<const char *const> kinds)
{
    add("table/core/" + name, [=] { return search_table(kinds, core_search); });
    add("table/plain_walk/" + name, [=] { return search_table(kinds, plain_walk); });
}

// ---- All of it

/// Every line of a transcript must do what it stands for, or the numbers mean nothing.
void check_lines(std::span<const char *const> kinds, bool has_handler)
{
    for (const char *line : kinds) {
        const vlk_report_row *row = plain_walk(line);
        if (row != nullptr && (row->callback != nullptr) == has_handler && core_search(line) == row)
            continue;
        fprintf(stderr, "line_bench: \"%s\" is not the report that it is meant to be\n", line);
        exit(EXIT_FAILURE);
    }
}

void prepare_host()
{
    setenv("VLK_RUNTIME_DIR", "/nonexistent", 1); // nothing is opened there
    setenv("VLK_TRACE_LEVEL", "0", 1);
    char error[HOST_ERROR_SIZE];
    if (host_load_settings(error, sizeof error) != 0) {
        fprintf(stderr, "line_bench: %s\n", error);
        exit(EXIT_FAILURE);
    }
    g_nasDataQid = VLK_msgQ_create(VLK_QUEUE_NAS_DATA, VLK_QUEUE_CAPACITY, VLK_NAS_DATA_SIZE_LIMIT);
}

void add_transcript(const std::string &rows, const transcript &all)
{
    for (const bool full : {false, true}) {
        const pieces deliveries = full ? all.deliveries : all.lines;
        const std::string name = rows + (full ? "/full" : "/line");
        add("core/" + name, [=] { return through_core(deliveries); });
        add("socket/" + name, [=] { return from_socket(deliveries, take_delivery); });
        add("floor/" + name, [=] { return from_socket(deliveries, search_line_ends); });
        add("line_ends/" + name, [=] { return line_ends_alone(deliveries); });
    }
}

} // namespace

int main(int argc, char *argv[])
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return EXIT_FAILURE;
    prepare_host();
    check_lines(recognised_lines, false);
    check_lines(handled_lines, true);

    std::vector<const char *> all_lines(std::begin(recognised_lines), std::end(recognised_lines));
    all_lines.insert(all_lines.end(), std::begin(handled_lines), std::end(handled_lines));

    const transcript recognised = make_transcript(recognised_lines);
    const transcript handled = make_transcript(handled_lines);
    add_transcript("recognised", recognised);
    add_transcript("handled", handled);
    add("core_with_wake/recognised/line", [&] { return through_core_with_wake(recognised.lines); });
    add("queue_pass", [&] { return through_queue(recognised.lines); });
    add_searches("reports", all_lines);
    add_searches("answers", answer_lines);
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}

// The subcommands of vlkctl. Each does its work, prints and returns the exit code.
#ifndef VLK_CTL_COMMANDS_H
#define VLK_CTL_COMMANDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vlk_client.h"

struct common_options {
    std::string runtime_dir; // empty: the environment's
    bool json = false;

    vlk_place place() const { return {runtime_dir.empty() ? nullptr : runtime_dir.c_str()}; }
};

struct request_options {
    int32_t timeout = 10;       // seconds for the modem
    std::optional<double> wait; // seconds for everything; none: long enough
    double wait_modem = 0;      // seconds until the modem is ready
};

struct at_options {
    std::string command;
    std::string expected;
    bool multi_line = false;
    bool raw = false;
};

struct monitor_options {
    std::vector<int32_t> modules;
    std::vector<std::string> names;
    std::optional<uint64_t> count;
    std::optional<double> seconds;
    bool look = false;      // ask the modem for its registration when a notification says that it changed
    bool reconnect = false; // wait for the next daemon when this one ends
};

struct signal_options {
    bool watch = false;
    std::optional<uint64_t> count; // of readings that --watch shows
};

int run_at(const common_options &common, const request_options &limits, const at_options &options);
int run_rssi(const common_options &common);
int run_signal(const common_options &common, const signal_options &options);
int run_network(const common_options &common);
int run_sim(const common_options &common);
/// Reads the PIN from standard input and tries it once; with one try left only when last_try is set.
int run_sim_unlock(const common_options &common, bool last_try);
int run_modem(const common_options &common);
/// vendor: AT^NETSCAN in place of AT+COPS=?.
int run_scan(const common_options &common, int32_t timeout, bool vendor);
int run_stop_scan(const common_options &common);
int run_ussd(const common_options &common, const std::string &code, int32_t timeout);
int run_list(const common_options &common);
int run_metrics(const common_options &common);
int run_monitor(const common_options &common, const monitor_options &options);

#endif

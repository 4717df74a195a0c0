// What the subcommands of vlkctl sms do. Each prints and returns the exit code.
#ifndef VLK_SMS_COMMANDS_H
#define VLK_SMS_COMMANDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ctl_commands.h"

struct sms_options {
    request_options limits;
    std::string text;               // of send and save: the message, or without `to` its PDU
    bool has_text = false;          // else standard input has it
    std::string to;                 // empty: the text is a PDU
    std::string smsc;               // empty: the modem's own
    int max_parts = 10;             // of one text
    std::optional<int> valid_hours; // none: the network decides
    bool flash = false;
    bool report = false;
    bool dry_run = false;
    bool all = false;              // list: what it does anyway
    bool unread = false;           // list
    bool all_read = false;         // delete
    std::vector<int> indexes;      // read, delete
    std::optional<uint64_t> count; // watch
    std::optional<double> seconds; // watch
};

int run_sms_put(const common_options &common, const sms_options &options, vlk_sms action);
int run_sms_list(const common_options &common, const sms_options &options);
int run_sms_read(const common_options &common, const sms_options &options);
int run_sms_delete(const common_options &common, const sms_options &options);
int run_sms_watch(const common_options &common, const sms_options &options);

#endif

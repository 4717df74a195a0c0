/* Client library of vorlink: AT commands through the daemon, and everything that it reports to services.
 * C and C++; link with vlkclient.
 *
 *     struct vlk_client *client;
 *     struct at_cmd_msg record;
 *     if (vlk_open(&client, NULL) != VLK_OK)
 *         return complain(vlk_last_error());
 *     if (vlk_fill_command(&record, "AT+CSQ", "+CSQ:", VLK_PLAIN, 10) == VLK_OK &&
 *         vlk_exchange(client, &record, &record, 30000) == VLK_OK)
 *         printf("%.*s\n", (int)vlk_response_length(&record), record.snd_rcv_msg.rmsg);
 *     vlk_close(client);
 *
 * Results: functions that return int return a vlk_result; vlk_last_error() then says what went wrong.
 * Limits: milliseconds for the whole call, 0 to try once, negative to wait for as long as the daemon lives. A wait
 * sleeps in the kernel and ends at once when the daemon does.
 * Threads: a vlk_client or vlk_hub belongs to one thread at a time; different ones may be used at the same time. The
 * library starts no thread, touches no signal and goes on waiting when a signal handler has run. A child process
 * opens its own. */
#ifndef VLK_CLIENT_H
#define VLK_CLIENT_H

#include <stddef.h>
#include <stdint.h>

#include "at_cmd_msg.h"

#ifdef __cplusplus
extern "C" {
#endif

enum vlk_result {
    VLK_OK = 0,
    VLK_NOT_RUNNING = 1, /* no daemon, or it ended or was restarted: close, and open again later */
    VLK_DENIED = 2,      /* the daemon's sockets are not for this user; the text names the group */
    VLK_MISMATCH = 3,    /* another version of the daemon */
    VLK_TIMEOUT = 4,     /* the limit has passed */
    VLK_INVALID = 5,     /* an argument was refused; nothing was sent */
    VLK_SYSTEM = 6,      /* the system refused; the text has its reason */
    VLK_NO_MODEM = 7 /* the modem is absent, silent or released; the text has the reason. Nothing was sent */
};

/// Cause and cure of the last failure in the calling thread, one sentence; valid until its next call.
const char *vlk_last_error(void);

/* ---- The daemon ---- */

/// Which daemon. NULL in place of this structure stands for {NULL}.
struct vlk_place {
    const char *runtime_dir; /* its runtime folder; NULL: VLK_RUNTIME_DIR, else that of the one daemon
                                there is ($XDG_RUNTIME_DIR/vlk, /run/vlk, /run/vlk-NAME) */
};

enum vlk_modem {
    VLK_MODEM_ABSENT = 0,  /* the device cannot be opened */
    VLK_MODEM_SILENT = 1,  /* open, but nothing has answered yet: requests wait */
    VLK_MODEM_READY = 2,   /* the modem has answered */
    VLK_MODEM_RELEASED = 3 /* the daemon has let go of the modem, commands cannot be written */
};

enum {
    VLK_STATUS_TEXT_SIZE = 4097 /* bytes for the whole status, terminator included */
};

struct vlk_status {
    char runtime_dir[100];
    int32_t pid;            /* of the daemon */
    uint32_t modem;         /* vlk_modem */
    uint32_t modem_seconds; /* how long it has been so */
    uint32_t waiting;       /* clients whose requests wait */
    char device[256];
    char reason[256]; /* why the modem is not ready, and what to do; empty when it is */
    char running[32]; /* the name of the command that runs, empty for none */
};

/// Asks the daemon, which answers also while a command runs. Without a daemon the result is VLK_NOT_RUNNING and the
/// runtime folder is all that is filled in.
int vlk_get_status(const struct vlk_place *place, struct vlk_status *status);

/// The same with the daemon's whole status as text: lines of a name, a blank and a value, terminated.
/// VLK_STATUS_TEXT_SIZE bytes are always enough.
int vlk_get_status_text(const struct vlk_place *place, struct vlk_status *status, char *text, size_t size);

/// "absent", "silent", "ready", "released", or "unknown".
const char *vlk_modem_text(uint32_t modem);

/* ---- Requests ---- */

enum vlk_mode {
    VLK_PLAIN = 0,      /* response lines joined without separator */
    VLK_MULTI_LINE = 1, /* expected lines, each followed by CR LF; nothing unless the result is OK */
    VLK_RAW = 2         /* line ends and final result kept */
};

enum vlk_sms {
    VLK_SMS_SEND = 0, /* AT+CMGS */
    VLK_SMS_SAVE = 1  /* AT+CMGW */
};

/// Makes *record an AT command. command: begins with AT, no line end or other control character, at most 1539 bytes;
/// expected: prefix of its response lines, at most 63 bytes, NULL or empty for none; timeout: seconds that the modem
/// is given. VLK_INVALID says what is wrong, then *record is all zero.
int vlk_fill_command(struct at_cmd_msg *record, const char *command, const char *expected, enum vlk_mode mode,
                     int32_t timeout);

/// Makes *record the question for the last ^RSSI report, which the daemon answers itself.
int vlk_fill_rssi(struct at_cmd_msg *record);

/// Makes *record the two-phase exchange that sends or saves a message. pdu: hexadecimal text that begins with the
/// SMSC part (00: the modem's own service centre); the length that the modem wants is worked out here. Both
/// phases together may take twice the timeout. Refusals as above.
int vlk_fill_sms(struct at_cmd_msg *record, enum vlk_sms action, const char *pdu, int32_t timeout);

/// Bytes of response text in a reply's rmsg, at most MAX_ATCMD_REPORT_SIZE. The text has no terminator of its own.
size_t vlk_response_length(const struct at_cmd_msg *reply);

/// The final result code of a reply as the modem writes it ("OK", "+CME ERROR", ...); "NONE" for AT_NONE and 0.
const char *vlk_final_result(int32_t ret_val);

struct vlk_client; /* a connection to the daemon */

/// Finds the daemon and connects. On failure *client is NULL.
int vlk_open(struct vlk_client **client, const struct vlk_place *place);

/// Withdraws the requests that wait, ends the one that runs, and frees the client. NULL does nothing. The end of the
/// process does the same.
void vlk_close(struct vlk_client *client);

/// Waits until the modem is ready. Without this call, commands are refused with VLK_NO_MODEM until the modem has once
/// been ready since the client connected.
int vlk_wait_modem(struct vlk_client *client, int32_t limit_ms);

/// Sends *request after filling in its seq; its Id is the caller's own and comes back as it was. Any number of requests
/// may be under way: they are served in order. Waits for room when too many are.
int vlk_send(struct vlk_client *client, struct at_cmd_msg *request, int32_t limit_ms);

/// Waits for the reply to the request that vlk_send gave this seq. Replies come in the order of the requests: those to
/// earlier requests are dropped; when a later request is answered first, this one never will be, so the result is
/// VLK_TIMEOUT at once and the later reply stays for its own wait. After VLK_TIMEOUT the request is still under way.
int vlk_wait(struct vlk_client *client, uint32_t seq, struct at_cmd_msg *reply, int32_t limit_ms);

/// For poll(): readable when a reply has come or the daemon has gone; then vlk_wait with limit 0. Valid until the next
/// vlk_exchange or vlk_close; -1 while not connected.
int vlk_client_fd(const struct vlk_client *client);

/// vlk_send and vlk_wait within one limit; request and reply may be one record. Allow for the requests of others that
/// may be ahead. VLK_TIMEOUT withdraws the request, and everything else that this client has under way: what has not
/// reached the modem by then never does. Requests that the daemon never answers (ACTIVE_REPORT, AT_UNANSWERED) are
/// VLK_INVALID here.
int vlk_exchange(struct vlk_client *client, struct at_cmd_msg *request, struct at_cmd_msg *reply,
                 int32_t limit_ms);

/// The modem as the daemon sees it now: a vlk_modem, VLK_MODEM_ABSENT also without a daemon. Asks the daemon.
uint32_t vlk_client_modem(const struct vlk_client *client);

/* ---- Answers as a terminal shows them ---- */

/// Makes *record the question that gets command (one, not several joined by ;) answered whole and without the reports
/// that come meanwhile: expected prefix and mode are worked out from the command's name and form. Raw answers have
/// their final result at the end. A network list is given 240 seconds at least. Refusals as those of vlk_fill_command.
int vlk_fill_query(struct at_cmd_msg *record, const char *command, int32_t timeout);

/// Takes one line of an answer, terminated, without line end; valid during the call.
typedef void vlk_line_function(void *context, const char *line);

enum vlk_cut {
    VLK_WHOLE = 0,
    VLK_TOO_LONG = 1, /* lines are missing: the answer had more than 32 KiB, or nobody read it in time */
    VLK_ENDED_BY_TEXT =
        2 /* a line of text that begins like a final result ended it for the daemon; that line is the
                             last one, and what came behind it is missing */
};

struct vlk_answer {
    int32_t ret_val;        /* final result code of the last command that was sent */
    int cut;                /* vlk_cut */
    char final_result[128]; /* its line, with the cause where the modem gives one: "OK", "+CME ERROR: 10" */
};

/// Asks a command line, which may hold several commands joined by ;, one request each until one fails, and hands out
/// the lines of the answers in order, up to 32 KiB of each command; longer lists are asked for in pieces where the
/// modem can do that. timeout: seconds that the modem is given for each request (a network list:
/// at least 240). Even when it fails, lines may have been handed out.
int vlk_ask(struct vlk_client *client, const char *command, int32_t timeout, int32_t limit_ms,
            vlk_line_function *take_line, void *context, struct vlk_answer *answer);

/* ---- Notifications, bus messages, synchronous requests ---- */

enum vlk_packet_kind {
    VLK_PACKET_EVENT = 1,      /* module, code = event, value1, value2 */
    VLK_PACKET_EVENT_DATA = 2, /* module, code = event, data */
    VLK_PACKET_BUS = 3,        /* name = destination, code = message type, data */
    VLK_PACKET_SYNC_REPLY =
        4, /* module, code = message, value1 = result of the handler, 0 for success, data */
    VLK_PACKET_ANSWER =
        8, /* code, value1 = seq and Id of a request of this process; value2 = vlk_answer_flags;
                              data = text of the modem as it came, without a terminator */
    VLK_PACKET_LINE =
        7 /* data = an unsolicited line of the modem, without its line end and without a terminator */
};

enum vlk_answer_flags {
    VLK_ANSWER_OWN = 1, /* the command's answer; without it, reports that came meanwhile */
    VLK_ANSWER_CUT = 2  /* the answer is longer than 32 KiB: lines of it were dropped */
};

struct vlk_packet {
    uint32_t kind; /* vlk_packet_kind */
    int32_t module;
    uint32_t code;
    int32_t value1;
    int32_t value2;
    uint32_t missed;  /* packets that this listener lost just before this one by not reading in time */
    char name[32];    /* terminated */
    uint32_t length;  /* bytes of data, at most 4096 */
    const void *data; /* bytes without alignment, valid until the next call with the same vlk_hub */
};

struct vlk_hub; /* a connection to the daemon's hub */

/// Connects. Nothing is delivered before a subscription. On failure *hub is NULL.
int vlk_hub_open(struct vlk_hub **hub, const struct vlk_place *place);
void vlk_hub_close(struct vlk_hub *hub);

/// Each call adds a subscription and returns when it is in force: events of one module, bus messages to one name (at
/// most 31 bytes), or all there is. One connection has at most 32 modules and 8 names; the daemon closes it at the
/// next one.
/// Packets that come in the meantime are kept for vlk_hub_receive.
int vlk_hub_take_module(struct vlk_hub *hub, int32_t module, int32_t limit_ms);
int vlk_hub_take_name(struct vlk_hub *hub, const char *name, int32_t limit_ms);
int vlk_hub_take_all(struct vlk_hub *hub, int32_t limit_ms);

/// Asks for the modem's unsolicited lines as they are, beside the events that the daemon makes of them. No
/// subscription above includes them. A report of two lines has CR LF between them.
int vlk_hub_take_lines(struct vlk_hub *hub, int32_t limit_ms);

/// Asks for what the modem says while commands of this process run, the final result included, which a record cannot
/// hold in full. All of it has come when the reply is there. No subscription above includes it.
int vlk_hub_take_answers(struct vlk_hub *hub, int32_t limit_ms);

/// The next packet, in the order in which the daemon sent them. VLK_NOT_RUNNING when the daemon has gone.
int vlk_hub_receive(struct vlk_hub *hub, struct vlk_packet *packet, int32_t limit_ms);

/// For poll(): readable when a packet has come. Packets may also be kept inside: before polling, receive with limit 0
/// until VLK_TIMEOUT.
int vlk_hub_fd(const struct vlk_hub *hub);

/// Sends the daemon a bus message of at most 4096 bytes (data may be NULL when length is 0). Not answered. This and
/// every other send of a vlk_hub waits at most 5 seconds for a daemon that does not read.
int vlk_hub_send(struct vlk_hub *hub, uint32_t type, const void *data, uint32_t length);

/// The daemon's state: lines of a name, a blank and a value, terminated. VLK_STATUS_TEXT_SIZE bytes are always enough.
int vlk_hub_status(struct vlk_hub *hub, char *text, size_t size, int32_t limit_ms);

/// Synchronous request of at most 4096 bytes: returns when its reply is in *reply. Packets that come in the meantime
/// are kept; a reply that comes after the limit is dropped.
int vlk_hub_request(struct vlk_hub *hub, int32_t module, uint32_t message, const void *data, uint32_t length,
                    struct vlk_packet *reply, int32_t limit_ms);

/// What the daemon serves. Stop-scan is a vlk_hub_request without data: it ends a running network scan (^NETSCAN).
/// Its reply is a uint32_t: 1 stopped, or no scan was running; 0 the modem did not take it.
/// Uninstall-datacard is a vlk_hub_send without data: the daemon lets go of the modem until it is started again. Only
/// root and the daemon's own user may send it.
enum {
    VLK_STOP_SCAN_MODULE = 31,
    VLK_STOP_SCAN_MESSAGE = 31008,
    VLK_UNINSTALL_DATACARD = 34821
};

#ifdef __cplusplus
}
#endif

#endif

/* The AT request and response record: what clients queue, what transactions work on, what clients get back.
 * Little-endian, byte-exact, the same on both queues. C and C++. */
#ifndef AT_CMD_MSG_H
#define AT_CMD_MSG_H

#include <stddef.h>
#include <stdint.h>

#define MAX_ATCMD_REPORT_SIZE 1500 /* bytes of response text */
#define AT_MATCH_STR_SIZE     64
#define AT_CMD_STR_SIZE       1540

/* req_type: what is asked. Every other value is unsupported. */
enum {
    AT_COMMAND = 0,       /* a command; sending and saving an SMS takes two phases */
    ACTIVE_REPORT = 1,    /* take pending modem data; never answered */
    AT_STORED_REPORT = 2, /* the report that rep_type names */
    AT_UNANSWERED = 3,    /* unsupported and never answered */
    AT_RAW_COMMAND = 5    /* a command whose response keeps its line ends */
};

/* rep_type: the only stored report. */
enum {
    AT_REPORT_RSSI = 2
};

/* ret_val: how the command ended. */
enum {
    AT_NONE = -1, /* no final result in time */
    AT_OK = 2,
    AT_CME_ERROR = 3,
    AT_CMS_ERROR = 4,
    AT_ERROR = 5,
    AT_NO_CARRIER = 6,
    AT_NO_ANSWER = 7,
    AT_COMMAND_NOT_SUPPORT = 8, /* also: the command could not be written, the request type is unsupported */
    AT_TOO_MANY_PARAMETERS = 9,
    AT_ATE0 = 10,
    AT_CONNECT = 11,
    AT_NO_DIALTONE = 12,
    AT_BUSY = 13
};

struct at_cmd_msg {
    int32_t Id;         /* the client; returned unchanged */
    uint32_t req_type;  /* see above */
    uint32_t rep_type;  /* see above; read for AT_STORED_REPORT only */
    uint32_t reserved;  /* returned unchanged */
    uint32_t seq;       /* the client's number for this request; returned unchanged */
    int32_t multi_line; /* 1: lines kept apart by CR LF; 0: joined; else response lines are dropped */
    int32_t timeout;    /* seconds allowed; the reply holds what was left */
    char at_match_str[AT_MATCH_STR_SIZE]; /* prefix of the expected response lines, or empty; terminated */
    union {
        char cmd[AT_CMD_STR_SIZE];            /* request: the command without line end, terminated */
        __extension__ struct {                /* reply */
            char rmsg[MAX_ATCMD_REPORT_SIZE]; /* response text */
            int32_t ret_val;                  /* see above */
            uint32_t rsp_len;                 /* bytes of text in rmsg */
        };
    } snd_rcv_msg;
    int32_t cmd_len; /* request: bytes to send when greater than 0, else the length of the text */
};

/* The response block: at_match_str to rsp_len, cleared and copied as one piece. */
struct at_response_block {
    char at_match_str[AT_MATCH_STR_SIZE];
    char rmsg[MAX_ATCMD_REPORT_SIZE];
    int32_t ret_val;
    uint32_t rsp_len;
};

#ifdef __cplusplus
#define AT_LAYOUT(condition) static_assert(condition, #condition)
#else
#define AT_LAYOUT(condition) _Static_assert(condition, #condition)
#endif

AT_LAYOUT(sizeof(struct at_cmd_msg) == 1636);
AT_LAYOUT(offsetof(struct at_cmd_msg, Id) == 0);
AT_LAYOUT(offsetof(struct at_cmd_msg, req_type) == 4);
AT_LAYOUT(offsetof(struct at_cmd_msg, rep_type) == 8);
AT_LAYOUT(offsetof(struct at_cmd_msg, reserved) == 12);
AT_LAYOUT(offsetof(struct at_cmd_msg, seq) == 16);
AT_LAYOUT(offsetof(struct at_cmd_msg, multi_line) == 20);
AT_LAYOUT(offsetof(struct at_cmd_msg, timeout) == 24);
AT_LAYOUT(offsetof(struct at_cmd_msg, at_match_str) == 28);
AT_LAYOUT(offsetof(struct at_cmd_msg, snd_rcv_msg) == 92);
AT_LAYOUT(offsetof(struct at_cmd_msg, snd_rcv_msg.rmsg) == 92);
AT_LAYOUT(offsetof(struct at_cmd_msg, snd_rcv_msg.ret_val) == 1592);
AT_LAYOUT(offsetof(struct at_cmd_msg, snd_rcv_msg.rsp_len) == 1596);
AT_LAYOUT(offsetof(struct at_cmd_msg, cmd_len) == 1632);
AT_LAYOUT(sizeof(struct at_response_block) == 1572);
AT_LAYOUT(offsetof(struct at_response_block, rmsg) == 64);
AT_LAYOUT(offsetof(struct at_response_block, ret_val) == 1564);
AT_LAYOUT(offsetof(struct at_response_block, rsp_len) == 1568);
#undef AT_LAYOUT

#endif

/* Keys, sizes and events of the daemon's queues, shared with its clients. */
#ifndef VLK_QUEUES_H
#define VLK_QUEUES_H

enum {
    VLK_QUEUE_CLIENT_REPLY = 1,   /* extended: at_cmd_msg, daemon to clients */
    VLK_QUEUE_CLIENT_REQUEST = 2, /* extended: at_cmd_msg, clients to daemon */
    VLK_QUEUE_NAS_DATA = 3,       /* plain: nas_data_rec, modem link to main thread */

    VLK_QUEUE_CAPACITY = 10,        /* records, each queue */
    VLK_CLIENT_RECORD_SIZE = 1636,  /* bytes */
    VLK_NAS_DATA_SIZE_LIMIT = 1516, /* bytes; records of 1502 are used */

    VLK_EVENT_CLIENT_REQUEST = 1, /* a client request was queued */
    VLK_EVENT_NAS_DATA = 2,       /* modem data was queued */
    VLK_EVENT_OTHER = 4,          /* taken and dropped */
    VLK_EVENT_MASK = 7
};

#endif

// The ids that start-up obtains from the platform. Written by start-up before any other thread uses them.
#ifndef SERVICE_IDS_H
#define SERVICE_IDS_H

#include <cstdint>

extern int32_t g_clientReqQid; ///< extended queue, client requests; -1 until created
extern int32_t g_clientRspQid; ///< extended queue, client replies
extern int32_t g_nasDataQid;   ///< plain queue, modem data
extern int32_t g_vlkTaskId;    ///< the main thread as target of VLK_event_send

#endif

#include "service_ids.h"

int32_t g_clientReqQid = -1;
int32_t g_clientRspQid = -1;
int32_t g_nasDataQid = -1;
int32_t g_vlkTaskId = -1;

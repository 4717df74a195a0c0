#include "nas_data_queue.h"

#include <cstdlib>

#include "bounded.h"
#include "service_ids.h"
#include "vlk_msgq.h"
#include "vlk_queues.h"
#include "vlk_task.h"
#include "vorlink_trace.h"

int vlk_queue_nas_data(const char *data, uint32_t length)
{
    if (data == nullptr || length > NAS_DATA_MAX) {
        trace(ERROR, "Error: NAS Response length is too big!\n");
        return 0;
    }
    auto *record = static_cast<nas_data_rec *>(malloc(sizeof(nas_data_rec)));
    if (record == nullptr) {
        trace(ERROR, "Error: NAS Response malloc fail!\n");
        return 0;
    }
    record->length = static_cast<uint16_t>(length);
    if (memcpy_s(record->data, sizeof record->data, data, length) != 0) {
        free(record);
        return 0;
    }
    memset_s(record->data + length, sizeof record->data - length, 0, sizeof record->data - length);
    const int sent = VLK_msgQ_send(g_nasDataQid, record, sizeof *record);
    free(record);
    if (sent == 0) {
        trace(ERROR, "QueueSend Error\n");
        return 0;
    }
    VLK_event_send(g_vlkTaskId, VLK_EVENT_NAS_DATA);
    return sent;
}

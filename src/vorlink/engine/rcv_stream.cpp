#include "rcv_stream.h"

#include <algorithm>
#include <cstring>

#include "bounded.h"
#include "nas_data_queue.h"
#include "vorlink_trace.h"

static_assert(sizeof(nas_data_rec) <= sizeof(at_sm_stream::rcv_buf));

at_sm_stream g_atSmStream = {{}, g_atSmStream.rcv_buf, g_atSmStream.rcv_buf};

namespace
{

constexpr char CR = '\r';
constexpr char LF = '\n';

enum line_state_value : int32_t {
    LINE_ENDED = 0,
    CR_AT_END_OF_CHUNK = 1, // a LF at the start of the next data completes the pair
    INSIDE_LINE = 2
};
int32_t line_state = INSIDE_LINE; // carries over from chunk to chunk
bool holds_whole_record = true;   // only its text and its length can differ from zero

/// Takes a line at once when the first CR of the unread data ends it. Returns 0, or -1 when there is none: nothing is
/// taken then.
int take_whole_line(char *rcv_buffer, uint32_t *pos)
{
    char *const start = g_atSmStream.p_cur;
    const auto unread = static_cast<std::size_t>(g_atSmStream.p_end - start);
    const auto *const cr = static_cast<const char *>(memchr(start, CR, unread));
    if (cr == nullptr || cr + 1 == g_atSmStream.p_end || cr[1] != LF)
        return -1;
    const auto length = static_cast<std::size_t>(cr - start);
    memcpy(rcv_buffer, start, length);
    rcv_buffer[length] = '\0';
    memset(start, 0, length + 2);
    g_atSmStream.p_cur += length + 2;
    *pos += static_cast<uint32_t>(length);
    line_state = LINE_ENDED;
    return 0;
}

} // namespace

void at_sm_reset()
{
    memset_s(g_atSmStream.rcv_buf, sizeof g_atSmStream.rcv_buf, 0, sizeof g_atSmStream.rcv_buf);
    g_atSmStream.p_cur = g_atSmStream.rcv_buf;
    g_atSmStream.p_end = g_atSmStream.rcv_buf;
}

void at_sm_drop_record()
{
    if (!holds_whole_record || g_atSmStream.p_cur != g_atSmStream.p_end)
        return at_sm_reset();
    memset(g_atSmStream.rcv_buf + offsetof(nas_data_rec, length), 0, sizeof(nas_data_rec::length));
    g_atSmStream.p_cur = g_atSmStream.rcv_buf;
    g_atSmStream.p_end = g_atSmStream.rcv_buf;
}

uint16_t at_sm_accept_record(int stored)
{
    holds_whole_record = stored == sizeof(nas_data_rec);
    uint16_t length = 0;
    memcpy(&length, g_atSmStream.rcv_buf + offsetof(nas_data_rec, length), sizeof length);
    length = static_cast<uint16_t>(std::min<uint32_t>(length, NAS_DATA_MAX));
    g_atSmStream.p_end = g_atSmStream.rcv_buf + length;
    return length;
}

int at_sm_is_rcv_buf_empty(at_sm_stream *p_strm)
{
    if (p_strm == nullptr) {
        trace(ERROR, "at_sm_is_rcv_buf_empty : error ,p_strm is NULL!\n");
        return -1;
    }
    if (p_strm->p_cur != p_strm->p_end)
        return -1;
    trace(PROGRESS, "p_strm->p_cur: pos = %d\n", static_cast<int>(p_strm->p_cur - p_strm->rcv_buf));
    return 0;
}

int at_sm_getchar(char *ch)
{
    if (ch == nullptr) {
        trace(ERROR, "at_sm_getchar : error ,ch is NULL!\n");
        return -1;
    }
    if (g_atSmStream.p_cur == g_atSmStream.p_end) {
        trace(PROGRESS, ": error ,return!\n");
        return -1;
    }
    *ch = *g_atSmStream.p_cur;
    *g_atSmStream.p_cur++ = '\0';
    return 0;
}

int at_sm_get_buf(char *msg_buf, int buf_length)
{
    if (msg_buf == nullptr || buf_length == 0) {
        trace(ERROR, "at_sm_getchar : error ,msg_buf is NULL or buf_length == 0\n");
        return -1;
    }
    for (int taken = 0; taken < buf_length; ++taken) {
        if (at_sm_getchar(msg_buf + taken) != 0) {
            trace(ERROR, "at_sm_getchar return error!\n");
            return -1;
        }
    }
    return 0;
}

int at_find_last_of_char(char c)
{
    for (const char *at = g_atSmStream.p_end; at != g_atSmStream.p_cur; --at) {
        if (at[-1] != c)
            continue;
        const int length = static_cast<int>(at - g_atSmStream.p_cur);
        trace(DETAIL, "at_find_last_of_char: have found [%c],length = %d \n", c, length);
        return length;
    }
    return 0;
}

int at_sm_getline(char *rcv_buffer, uint32_t *pos)
{
    if (rcv_buffer == nullptr || pos == nullptr) {
        trace(ERROR, "at_sm_getline: error ,rcv_buffer or pos is null!\n");
        return -1;
    }
    if (line_state != CR_AT_END_OF_CHUNK && take_whole_line(rcv_buffer, pos) == 0)
        return 0;
    uint32_t count = 0;
    for (;;) {
        char ch = '\0';
        if (at_sm_getchar(&ch) != 0) {
            *pos = count;
            return count == 0 ? -1 : 0;
        }
        if (ch == LF && line_state == CR_AT_END_OF_CHUNK) {
            rcv_buffer[count] = '\0';
            line_state = LINE_ENDED;
            return 0;
        }
        if (ch == CR) {
            if (at_sm_getchar(&ch) != 0) {
                line_state = CR_AT_END_OF_CHUNK;
                return -1;
            }
            if (ch == LF) {
                rcv_buffer[count] = '\0';
                line_state = LINE_ENDED;
                *pos += count;
                return 0;
            }
        }
        rcv_buffer[count++] = ch;
        line_state = INSIDE_LINE;
    }
}

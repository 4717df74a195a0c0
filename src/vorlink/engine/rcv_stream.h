// The receive stream and its line scanner: takes one modem-data record apart into CR LF framed lines.
// Main thread only. Every byte handed out is overwritten with 0.
#ifndef RCV_STREAM_H
#define RCV_STREAM_H

#include <cstddef>
#include <cstdint>

struct at_sm_stream {
    char rcv_buf[1532]; ///< a whole nas_data_rec is received into its start; only data bytes are scanned
    char *p_cur;        ///< the next byte to hand out; rcv_buf <= p_cur <= p_end
    char *p_end;        ///< one past the last data byte, at most rcv_buf + 1499
};
static_assert(sizeof(at_sm_stream::rcv_buf) == 1532 && offsetof(at_sm_stream, rcv_buf) == 0);

extern at_sm_stream g_atSmStream;

/// Empties the stream and zeroes its buffer.
void at_sm_reset();

/// The same in less time when a whole record was received and handed out: its text is zeroed by then, zeros follow.
void at_sm_drop_record();

/// Makes the record of `stored` bytes in rcv_buf readable; a length above 1499 counts as 1499. Returns the
/// length.
uint16_t at_sm_accept_record(int stored);

/// Returns 0 when the stream is empty, -1 when unread data remains or the argument is null.
int at_sm_is_rcv_buf_empty(at_sm_stream *p_strm);

/// Takes one byte. Returns 0, or -1 when the stream is empty or the argument is null.
int at_sm_getchar(char *ch);

/// Takes exactly buf_length bytes, without a terminator; none for a negative length. Returns 0, or -1 for a null
/// buffer, a length of 0, or a stream that runs dry: what it held is taken then.
int at_sm_get_buf(char *msg_buf, int buf_length);

/// Returns the number of unread bytes up to and including the last c, 0 when there is none. Takes nothing.
int at_find_last_of_char(char c);

/// Takes the next line into rcv_buffer (at least 1500 bytes, zeroed by the caller) and adds its length to *pos; a
/// line without an end is handed out as it is and its length stored in *pos. Returns 0 for a line, which may be
/// empty, -1 for none.
int at_sm_getline(char *rcv_buffer, uint32_t *pos);

#endif

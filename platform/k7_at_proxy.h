/* AT proxy: the owner of the modem's AT channels. The port turns the modem's bytes into deliveries. Where a
 * delivery ends matters to the daemon, so it must not depend on how the bytes were read.
 *
 * A delivery
 * - has 1 to 1499 bytes (K7_DELIVERY_MAX) of whole lines, each with CR LF behind it, as the modem sent them. A line
 *   that is longer, or that the modem does not end, comes in pieces that are deliveries of their own.
 * - ends behind a prompt for a message text, which is the two bytes "> " without a line end, at the start of a line;
 *   lines in front of an awaited prompt are part of its delivery.
 * - ends behind a line that ends a command (at_is_final_result in host/at_framing.h has the list). A second final
 *   result in one delivery would be judged as a report.
 * - has a +CMT or +CDS header and its PDU as one line, joined by a single LF; so are the lines of a quoted +CUSD text.
 * - has both the line of a +CBM header and the line of its PDU, or neither.
 * - consists, if it holds a ^HCMGR header, of that header and its body up to Ctrl-Z and a line end, nothing else.
 *
 * Echoes of commands are off, or the port drops them. host/at_framing does all of this without a system call, for
 * every port whose driver gives bytes. */
#ifndef K7_AT_PROXY_H
#define K7_AT_PROXY_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define K7_DELIVERY_MAX 1499 /* bytes */

/* Takes a delivery of length bytes; data is valid during the call only and may hold NULs. Called on one thread
 * at a time. 0: taken. Otherwise it was not, because too many deliveries wait: the
 * proxy keeps it, stops reading from the modem and tries again when the daemon has taken some. */
typedef int (*k7_data_proc)(uint32_t channel, const char *data, uint32_t length);

/* Writes length bytes, one command line with its CR or a message text with its Ctrl-Z, to the modem: whole or not at
 * all as far as the caller is concerned, within a bounded time, never between the bytes of another call. text may
 * hold NULs and is valid during the call only. Any thread. 0 when accepted. */
typedef int (*k7_send_proc)(uint32_t channel, const char *text, uint16_t length);

/* Registers the caller on a channel; from now on data_proc is called. When the modem can be written to, *send_proc is
 * set before the call returns. Otherwise it is left alone, and the caller registers again a second later.
 * Main thread. 0 on success. */
int K7_APP_RegCallBack(uint32_t channel, k7_data_proc data_proc, k7_send_proc *send_proc);

/* Ends every registration of this process: nothing is delivered any more and sends are refused. They do
 * not come back. Any thread. 0 on success. */
int K7_App_Ungister(void);

#ifdef __cplusplus
}
#endif

#endif

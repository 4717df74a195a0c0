/* AT proxy: the owner of the modem's AT channels. */
#ifndef K7_AT_PROXY_H
#define K7_AT_PROXY_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Takes length bytes of modem text; data is valid during the call only. Runs on a thread of the proxy. 0: taken. */
typedef int (*k7_data_proc)(uint32_t channel, const char *data, uint32_t length);

/* Writes length bytes to the modem, whole or not at all as far as the caller is concerned, within a bounded time.
 * Any thread. 0 when accepted. */
typedef int (*k7_send_proc)(uint32_t channel, const char *text, uint16_t length);

/* Registers the caller on a channel. *send_proc is set once the modem can be written to, before the call returns;
 * until then it is left alone and the caller registers again. 0 on success. */
int K7_APP_RegCallBack(uint32_t channel, k7_data_proc data_proc, k7_send_proc *send_proc);

/* Ends every registration of this process: nothing is delivered any more and sends are refused. 0 on success. */
int K7_App_Ungister(void);

#ifdef __cplusplus
}
#endif

#endif

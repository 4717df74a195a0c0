// The answer to a client's own command as the modem gave it, from the hub: the reply's record has room for 1500 bytes,
// and leaves out lines that look like reports. For the client's own thread.
#ifndef VLK_ANSWER_TEXT_H
#define VLK_ANSWER_TEXT_H

#include "at_question.h"
#include "vlk_client.h"

/// Makes the client ready to take the answer to this request, which is sent next: drops what came before, and gives the
/// request an Id that no other request of this process has. A vlk_result.
int begin_answer(vlk_client *client, at_cmd_msg &request);

/// The answer to the request of this reply, once the reply is there.
at_answer take_answer(vlk_client *client, const at_question &question, const at_cmd_msg &reply);

/// The client's connection to the hub, opened when it has none; it lives until it is dropped or the client is closed.
/// A vlk_result.
int open_answers_hub(vlk_client *client, vlk_hub **hub);
void drop_answers_hub(vlk_client *client);

#endif

/* Sends one AT command with the client library: command AT+CSQ [PREFIX]
 * Build: cc command.c $(pkg-config --cflags --libs vlkclient) */
#include <stdio.h>

#include "vlk_client.h"

int main(int argc, char **argv)
{
    struct vlk_client *client;
    struct at_cmd_msg record;
    int result = vlk_open(&client, NULL); /* NULL: the daemon that VLK_RUNTIME_DIR names */
    if (result == VLK_OK)
        result = vlk_fill_command(&record, argc > 1 ? argv[1] : "AT", argc > 2 ? argv[2] : "", VLK_PLAIN, 10);
    if (result == VLK_OK)
        result = vlk_exchange(client, &record, &record, 40000);
    vlk_close(client);
    if (result != VLK_OK) {
        fprintf(stderr, "command: %s\n", vlk_last_error());
        return 2;
    }
    printf("%.*s\n", (int)vlk_response_length(&record), record.snd_rcv_msg.rmsg);
    return record.snd_rcv_msg.ret_val == AT_OK ? 0 : 1;
}

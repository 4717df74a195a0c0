/* Sends one AT command without the client library, with its record alone: plain AT+CSQ [PREFIX]
 * Build: cc plain.c -I/usr/include/vlkclient */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "at_cmd_msg.h"

int main(int argc, char **argv)
{
    const char *folder = getenv("VLK_RUNTIME_DIR");
    struct sockaddr_un address = {AF_UNIX, ""};
    struct at_cmd_msg record = {0};
    int daemon = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    snprintf(address.sun_path, sizeof address.sun_path, "%s/commands", folder != NULL ? folder : "/run/vlk");
    if (connect(daemon, (const struct sockaddr *)&address, sizeof address) != 0) {
        perror(address.sun_path);
        return 2;
    }
    record.timeout = 10;
    snprintf(record.snd_rcv_msg.cmd, sizeof record.snd_rcv_msg.cmd, "%s", argc > 1 ? argv[1] : "AT");
    snprintf(record.at_match_str, sizeof record.at_match_str, "%s", argc > 2 ? argv[2] : "");
    if (send(daemon, &record, sizeof record, MSG_NOSIGNAL) < 0 ||
        recv(daemon, &record, sizeof record, 0) != (ssize_t)sizeof record) {
        perror("the daemon");
        return 2;
    }
    close(daemon);
    printf("%.*s\n", (int)record.snd_rcv_msg.rsp_len, record.snd_rcv_msg.rmsg);
    return record.snd_rcv_msg.ret_val == AT_OK ? 0 : 1;
}

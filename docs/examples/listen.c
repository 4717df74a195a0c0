/* Prints the events that go to one module, until the daemon ends, and reads a record: listen 19
 * Build: cc listen.c $(pkg-config --cflags --libs vlkclient) */
#include <stdio.h>
#include <stdlib.h>

#include "vlk_client.h"
#include "vlk_reports.h"

static void print_quality(const struct vlk_hcsq *quality)
{
    printf("system mode %d, values %d %d %d %d %d\n", quality->sysmode, quality->value1, quality->value2,
           quality->value3, quality->value4, quality->value5);
}

int main(int argc, char **argv)
{
    struct vlk_hub *hub;
    struct vlk_packet packet;
    int result = vlk_hub_open(&hub, NULL); /* NULL: the daemon that VLK_RUNTIME_DIR names */
    if (result == VLK_OK)
        result = vlk_hub_take_module(hub, argc > 1 ? atoi(argv[1]) : VLK_MODULE_RADIO, 5000);
    if (result == VLK_OK)
        fprintf(stderr, "listening\n");
    while (result == VLK_OK && (result = vlk_hub_receive(hub, &packet, -1)) == VLK_OK) {
        printf("event %u: %d %d, %u bytes of data, %u missed before\n", packet.code, packet.value1,
               packet.value2, packet.length, packet.missed);
        if (packet.code == VLK_EVT_SIGNAL_QUALITY && packet.length == sizeof(struct vlk_hcsq))
            print_quality(packet.data);
        fflush(stdout);
    }
    fprintf(stderr, "listen: %s\n", vlk_last_error());
    vlk_hub_close(hub);
    return result;
}

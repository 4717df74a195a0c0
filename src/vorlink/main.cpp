// The AT-command server daemon. An argument "1" keeps it off the message bus.
#include "startup.h"
#include "state_machine.h"

int main(int argc, char *argv[])
{
    bool noBus = false;
    if (vlk_startup(argc, argv, &noBus) != 0)
        return -1;
    vlk_state_machine(noBus);
}

// Starts as the daemon does and says so. With an argument it stays until it is killed, ten seconds at most.
#include <cstdio>

#include <unistd.h>

#include "platform.h"

int main(int argc, char **)
{
    QEP_UTIL_ForceSetPrivileges("vorlink");
    printf("%d started\n", static_cast<int>(getpid()));
    fflush(stdout);
    if (argc > 1) {
        alarm(10);
        pause();
    }
    return 0;
}

// Writes the time into a file and becomes a command, so that the command's start-up can be timed.
//   start_stamp FILE COMMAND [ARG...]
#include <stdio.h>
#include <time.h>
#include <unistd.h>

int main(int argc, char** argv) {
    FILE* const file = argc > 2 ? fopen(argv[1], "we") : NULL;
    struct timespec now;
    if (file == NULL || clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        return 1;
    }
    fprintf(file, "%lld%09ld\n", (long long)now.tv_sec, now.tv_nsec);
    if (fclose(file) != 0) {
        return 1;
    }
    execv(argv[2], argv + 2);
    return 127;
}

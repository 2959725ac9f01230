// Builds that count coverage.
#include "tests/support/process/coverage.h"

#ifdef MORVANE_COUNTS_COVERAGE
#include <sys/syscall.h>
#include <unistd.h>

extern "C" void __gcov_dump();

// For the tests instead of the C library's, which would throw the counters away.
extern "C" void _exit(int status) {
    __gcov_dump();
    for (;;) {
        syscall(SYS_exit_group, status);
    }
}
#endif

bool test_support::countsCoverage() {
#ifdef MORVANE_COUNTS_COVERAGE
    return true;
#else
    return false;
#endif
}

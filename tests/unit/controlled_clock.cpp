// Takes the place of time() and sleep() in a test program.
#include "tests/unit/controlled_clock.h"

#include <unistd.h>

using test_support::ControlledClock;

// A program's own definitions come before the C library's.
extern "C" {

time_t time(time_t* out) noexcept {
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    const ControlledClock* clock = ControlledClock::active;
    const time_t now = clock != nullptr ? clock->now().value_or(real.tv_sec) : real.tv_sec;
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

unsigned sleep(unsigned seconds) {
    if (ControlledClock* clock = ControlledClock::active) {
        clock->sleep(seconds);
        return 0;
    }
    timespec left{static_cast<time_t>(seconds), 0};
    return nanosleep(&left, &left) == 0 ? 0 : static_cast<unsigned>(left.tv_sec);
}
}

// time() and sleep() of the unit tests.
#include "tests/unit/controlled_clock.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace test_support {
namespace {

thread_local ControlledClock* activeClock = nullptr;

}  // namespace

ControlledClock::ControlledClock() {
    activeClock = this;
}

ControlledClock::~ControlledClock() {
    activeClock = nullptr;
}

ControlledClock* ControlledClock::current() {
    return activeClock;
}

void ControlledClock::sleep(unsigned seconds) {
    sleeps_.push_back(seconds);
    if (action_) {
        action_();
    }
}

TimeZone::TimeZone(const char* zone) {
    setenv("TZ", zone, 1);
}

TimeZone::~TimeZone() {
    unsetenv("TZ");
    tzset();
}

}  // namespace test_support

// A program's own definitions come before the C library's.
extern "C" {

time_t time(time_t* out) noexcept {
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    const auto* clock = test_support::ControlledClock::current();
    const time_t now = clock != nullptr && clock->now().has_value() ? *clock->now() : real.tv_sec;
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

unsigned sleep(unsigned seconds) {
    if (auto* clock = test_support::ControlledClock::current()) {
        clock->sleep(seconds);
        return 0;
    }
    timespec left{static_cast<time_t>(seconds), 0};
    return nanosleep(&left, &left) == 0 ? 0 : static_cast<unsigned>(left.tv_sec);
}
}

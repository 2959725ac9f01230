// time() and sleep() of the unit tests, in a test's hands.
#pragma once

#include <cstdlib>
#include <ctime>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace test_support {

// While it exists a sleep() of the thread that made it is noted and returns at once; one at a time.
// On other threads, and without one, both calls do what they always do.
class ControlledClock {
public:
    ControlledClock() { active = this; }
    ~ControlledClock() { active = nullptr; }
    ControlledClock(const ControlledClock&) = delete;
    ControlledClock& operator=(const ControlledClock&) = delete;

    // From now on time() answers this on that thread.
    void standAt(std::time_t now) { now_ = now; }

    // Runs in the place of every further sleep.
    void whileSleeping(std::function<void()> action) { action_ = std::move(action); }

    // The seconds of each sleep by now.
    const std::vector<unsigned>& sleeps() const { return sleeps_; }

    // For the functions that take the place of the calls.
    static inline thread_local ControlledClock* active = nullptr;
    void sleep(unsigned seconds) {
        sleeps_.push_back(seconds);
        if (action_) {
            action_();
        }
    }
    std::optional<std::time_t> now() const { return now_; }

private:
    std::optional<std::time_t> now_;
    std::function<void()> action_;
    std::vector<unsigned> sleeps_;
};

// A time zone in the TZ variable's own form, in force while it exists.
class TimeZone {
public:
    explicit TimeZone(const char* zone) { setenv("TZ", zone, 1); }
    ~TimeZone() {
        unsetenv("TZ");
        tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;
};

}  // namespace test_support

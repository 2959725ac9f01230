// The time limit of a command.
#pragma once

#include <chrono>

#include "transferctl/failure.h"

namespace transferctl {

class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    explicit Deadline(std::chrono::milliseconds limit) : end_(Clock::now() + limit) {}

    bool hasPassed() const { return Clock::now() >= end_; }

    // Milliseconds until then, as the time-out of a call. Throws Failure (time limit) once it has
    // passed.
    int remaining() const {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now());
        if (left.count() <= 0) {
            throw Failure(ExitStatus::kTimeLimit, "no answer within the time limit");
        }
        return static_cast<int>(left.count());
    }

private:
    Clock::time_point end_;
};

}  // namespace transferctl

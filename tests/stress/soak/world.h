// What comes and goes around the service: sticks and the device manager.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <random>

#include "tests/support/device/simulator.h"
#include "tests/support/device/stick.h"

namespace soak {

// Sticks 1 to 3, each plugged or not. Stick 4 is there all the time.
class Sticks {
public:
    explicit Sticks(unsigned seed);

    void plugOrPull();
    std::size_t changes() const { return changes_; }

private:
    std::mt19937 random_;
    test_support::Stick lasting_{4, {"16m", "/dev/sdd1", false}};
    std::array<std::optional<test_support::Stick>, 3> sticks_;
    std::size_t changes_ = 0;
};

// The device manager, which dies and comes back.
class DyingDeviceManager {
public:
    DyingDeviceManager() { start(); }

    // Lets it die or come back, if it is time to.
    void tick();
    std::size_t deaths() const { return deaths_; }

private:
    void start();

    std::optional<test_support::Simulator> simulator_;
    std::chrono::steady_clock::time_point next_;
    std::size_t deaths_ = 0;
};

}  // namespace soak

// What comes and goes around the service.
#include "tests/stress/soak/world.h"

#include <string>
#include <vector>

namespace soak {
namespace {

using namespace std::chrono_literals;

constexpr auto kDeviceManagerLives = 15s;
constexpr auto kDeviceManagerIsGone = 2s;

void fill(const test_support::Stick& stick) {
    for (int i = 0; i < 60; ++i) {
        stick.addFile("photos/" + std::to_string(i) + ".jpg");
    }
    stick.addFile("a.psb");
    stick.addFile("old/b.psb");
    stick.addFile("c.fwf");
}

}  // namespace

Sticks::Sticks(unsigned seed) : random_(seed) {
    fill(lasting_);
}

void Sticks::plugOrPull() {
    const std::size_t which = random_() % sticks_.size();
    const int number = static_cast<int>(which) + 1;
    ++changes_;
    if (sticks_.at(which)) {
        sticks_.at(which)->pull();
        sticks_.at(which).reset();
        return;
    }
    sticks_.at(which).emplace(
        number,
        test_support::StickOptions{"16m", "/dev/sd" + std::string(1, "abc"[which]) + "1", false});
    fill(*sticks_.at(which));
}

void DyingDeviceManager::tick() {
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) {
        return;
    }
    if (simulator_) {
        simulator_.reset();
        ++deaths_;
        next_ = now + kDeviceManagerIsGone;
    } else {
        start();
    }
}

void DyingDeviceManager::start() {
    simulator_.emplace("", std::vector<std::string>{"--job-seconds", "0"});
    static_cast<void>(simulator_->waitUntilListens());
    next_ = std::chrono::steady_clock::now() + kDeviceManagerLives;
}

}  // namespace soak

// One of many clients, which calls the methods of the service at random.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/bus/system_bus.h"

namespace soak {

using Durations = std::map<std::string, std::vector<std::chrono::microseconds>>;

struct Method;

// One client on a thread of its own, which calls until it is told to stop.
class Client {
public:
    Client(unsigned number, unsigned seed, const std::atomic<bool>& stop);

    void join() { thread_.join(); }

    std::size_t calls() const { return calls_; }
    const Durations& durations() const { return durations_; }  // once joined
    const std::vector<std::string>& errors() const { return errors_; }  // once joined

private:
    void callOne();
    const Method& chooseMethod();
    GVariant* arguments(const Method& method);
    std::string path(const Method& method);
    unsigned upTo(unsigned most);

    unsigned number_;
    std::mt19937 random_;
    test_support::SystemBus bus_;
    std::atomic<std::size_t> calls_{0};
    Durations durations_;
    std::vector<std::string> errors_;
    std::thread thread_;
};

}  // namespace soak

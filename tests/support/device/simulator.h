// The device-manager simulator, started by a test.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/process/child_process.h"

namespace test_support {

// Runs outside the PID namespaces, so it outlives a service's kill(-1). Ended with its owner.
class Simulator {
public:
    // `state` is the folder of the simulated device; "" takes the simulator's own default.
    explicit Simulator(const std::string& state = "",
                       const std::vector<std::string>& moreArguments = {});

    // Waits until the endpoint takes connections; says on failure what the simulator printed.
    testing::AssertionResult waitUntilListens();

    // What a crash of the device manager looks like.
    void kill() { process_.kill(); }

    ChildProcess& process() { return process_; }

private:
    ChildProcess process_;
};

// Whether something takes connections on the device manager's endpoint.
bool deviceManagerListens();

}  // namespace test_support

// Ends and restarts the sandbox's message bus.
#pragma once

#include <string>
#include <vector>

namespace test_support {

// While it exists the sandbox's system bus is down, unless start() was called; the destructor
// starts the bus again. Only inside the sandbox: throws std::runtime_error when there is no bus.
class BusOutage {
public:
    BusOutage();
    ~BusOutage();
    BusOutage(const BusOutage&) = delete;
    BusOutage& operator=(const BusOutage&) = delete;

    // Starts the bus again, as the sandbox had started it, and waits until it takes connections.
    void start();

private:
    std::vector<std::string> command_;
};

}  // namespace test_support

// The sandbox's message bus: its rules, its end and its restart.
#pragma once

#include <string>

#include "tests/support/files/files.h"

namespace test_support {

// While it exists the sandbox's system bus is down. The destructor starts the bus again, as the
// sandbox had started it, and waits until it takes connections. Only inside the sandbox: throws
// std::runtime_error when there is no bus.
class BusOutage {
public:
    BusOutage();
    ~BusOutage();
    BusOutage(const BusOutage&) = delete;
    BusOutage& operator=(const BusOutage&) = delete;

private:
    std::string command() const { return folder_.path("command"); }

    const TemporaryDirectory folder_;
};

// Makes the bus read its policy files and the user database again. Throws std::runtime_error when
// it does not.
void reloadBus();

// A further policy of the bus, in force while it exists.
class BusPolicy {
public:
    // `rules` is one <policy> element.
    explicit BusPolicy(const std::string& rules);
    ~BusPolicy();
    BusPolicy(const BusPolicy&) = delete;
    BusPolicy& operator=(const BusPolicy&) = delete;
};

// Root may send the service anything: for calls that the product's policy keeps from the service.
inline constexpr const char* kOpenBusPolicy =
    R"(<policy user="root"><allow send_destination="com.morvane.transfer"/></policy>)";

}  // namespace test_support

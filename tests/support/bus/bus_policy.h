// The rules of the sandbox's system bus, changed by a test.
#pragma once

namespace test_support {

// Makes the bus read its policy files and the user database anew. Throws std::runtime_error when it
// does not.
void reloadBus();

// While it exists root may send the service anything, so that a test sees what the service itself
// says to calls that the product's policy keeps away from it.
class OpenBusPolicy {
public:
    OpenBusPolicy();
    ~OpenBusPolicy();
    OpenBusPolicy(const OpenBusPolicy&) = delete;
    OpenBusPolicy& operator=(const OpenBusPolicy&) = delete;
};

}  // namespace test_support

// A limit on this process's open descriptors.
#pragma once

#include <sys/resource.h>

namespace test_support {

// While it exists, so many more descriptors can be opened and no others. Throws std::system_error
// when the limit cannot be set.
class DescriptorLimit {
public:
    explicit DescriptorLimit(int more);
    ~DescriptorLimit();
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    rlimit before_{};
};

// Lets this process open as many descriptors as the machine allows it; returns how many in all.
rlim_t raiseDescriptorLimit();

}  // namespace test_support

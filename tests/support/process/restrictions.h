// What a test takes away from code: system calls, descriptors, root's power over file modes.
#pragma once

#include <sys/resource.h>

#include <cstdint>
#include <optional>
#include <string>

namespace test_support {

// A system call, and optionally only with one value of one argument.
struct DeniedCall {
    struct Argument {
        unsigned index = 0;
        std::uint32_t value = 0;
    };

    long number = 0;  // SYS_... of <sys/syscall.h>
    std::optional<Argument> argument;
    int error = 0;  // the errno that the call sets from now on
};

// Makes the call fail in this process and all that it starts, for good: only in a ForkedProcess.
// Ends the process with status 125 when the kernel refuses.
void denyCall(const DeniedCall& call);

// Why this machine cannot deny calls (an emulator does not); empty when it can.
std::string whyCallsCannotBeDenied();

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

// While it exists, file modes count for this thread although it runs as root. Throws
// std::system_error when the power cannot be dropped.
class DroppedPowers {
public:
    DroppedPowers();
    ~DroppedPowers();
    DroppedPowers(const DroppedPowers&) = delete;
    DroppedPowers& operator=(const DroppedPowers&) = delete;
};

}  // namespace test_support

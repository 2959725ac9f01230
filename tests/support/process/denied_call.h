// Makes system calls fail that no ordinary circumstance makes fail.
#pragma once

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

// Why this machine cannot deny calls (an emulator does not); empty when it can.
std::string whyCallsCannotBeDenied();

// For this process and all that it starts, for the rest of their lives: only in a ForkedProcess.
// Ends the process with status 125 when the kernel refuses.
void denyCall(const DeniedCall& call);

}  // namespace test_support

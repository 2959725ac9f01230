// The real transferctl, run by a test.
#pragma once

#include <string>
#include <vector>

#include "tests/support/files/paths.h"
#include "tests/support/process/child_process.h"

namespace test_support {

inline std::vector<std::string> transferctlCommand(const std::vector<std::string>& arguments) {
    return runnable(buildPath("transferctl"), arguments);
}

inline CommandResult transferctl(const std::vector<std::string>& arguments,
                                 const ChildOptions& options = {}) {
    return runCommand(transferctlCommand(arguments), options);
}

// With standard output and standard error on one raw terminal, read as output.
CommandResult transferctlOnTerminal(const std::vector<std::string>& arguments);

}  // namespace test_support

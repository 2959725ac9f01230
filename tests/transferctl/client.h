// The real transferctl, run by a test.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/files/paths.h"
#include "tests/support/process/child_process.h"

namespace test_support {

using Words = std::vector<std::string>;

inline Words transferctlCommand(const Words& arguments) {
    return runnable(buildPath("transferctl"), arguments);
}

inline CommandResult transferctl(const Words& arguments, const Words& environment = {}) {
    return runCommand(transferctlCommand(arguments), environment);
}

// Runs a command that has to succeed, and returns what it prints.
inline std::string outputOf(const Words& arguments) {
    const CommandResult result = transferctl(arguments);
    EXPECT_EQ(result.end, exited(0)) << result.output << result.error;
    return result.output;
}

// Runs a command that has to end with this status and without output, and returns its message.
inline std::string errorOf(int status, const Words& arguments) {
    const CommandResult result = transferctl(arguments);
    EXPECT_EQ(result.end, exited(status)) << testing::PrintToString(arguments) << result.error;
    EXPECT_EQ(result.output, "");
    return result.error;
}

// Runs a command whose outputs a shell redirects, such as ">/dev/full", behind a `prefix`.
inline CommandResult redirected(const Words& arguments, const std::string& redirection,
                                Words prefix = {}) {
    const Words shell{"sh", "-c", "exec \"$@\" " + redirection, "sh"};
    prefix.insert(prefix.end(), shell.begin(), shell.end());
    return runCommand(runnableAfter(prefix, buildPath("transferctl"), arguments));
}

// What a command writes to the raw terminal that is its standard output and standard error.
inline std::string shownOnTerminal(const Words& arguments) {
    return redirected(arguments, "2>&1", runnable(buildPath("pid-namespace"), {"--terminal", "--"}))
        .output;
}

}  // namespace test_support

// Part of a test that runs in a child process, because it ends its process or changes it for good.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

#include "tests/support/files/files.h"
#include "tests/support/process/child_process.h"

namespace test_support {

// Runs a function in a copy of this process and collects what it writes. Code that uses the message
// bus needs a process that has not used it before: fork first, then make a SystemBus.
class ForkedProcess {
public:
    // The child ends with status 0 when `body` returns, and with this object. Its standard output
    // is a file, so it is flushed at its end only, unless `body` does it.
    explicit ForkedProcess(const std::function<void()>& body);
    ~ForkedProcess();
    ForkedProcess(const ForkedProcess&) = delete;
    ForkedProcess& operator=(const ForkedProcess&) = delete;

    pid_t id() const { return pid_; }

    // How it ended, once it has; nothing when it still runs after patience().
    std::optional<ProcessEnd> waitForEnd();
    bool hasEnded();

    // What has been flushed by now, by the child and whatever it has started.
    std::string standardOutput() const { return readFile(folder_.path("output")); }
    std::string standardError() const { return readFile(folder_.path("error")); }

private:
    TemporaryDirectory folder_;
    pid_t pid_ = -1;
    std::optional<ProcessEnd> end_;
};

// Runs `body` that way to its end.
CommandResult runForked(const std::function<void()>& body);

}  // namespace test_support

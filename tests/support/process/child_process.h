// A process that a test starts, with its output collected, ended with its owner.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/process/unique_fd.h"

namespace test_support {

// How a process ended, as failing tests show it.
using ProcessEnd = std::string;

inline ProcessEnd exited(int status) {
    return "exited with status " + std::to_string(status);
}
inline ProcessEnd killedBy(int signal) {
    return "killed by signal " + std::to_string(signal);
}

// One stream of a process, as a file in memory that grows as it writes.
class CollectedStream {
public:
    CollectedStream();
    int fd() const { return file_.get(); }
    std::string content() const;

private:
    UniqueFd file_;
};

// The process's standard input is /dev/null. It is killed when the thread that started it ends, so
// start processes from the main thread. `environment` is added to the test's own, as "NAME=value".
// Throws std::runtime_error when the process cannot be started.
class ChildProcess {
public:
    // Where the child finds the stream that is read as report().
    static constexpr int kReportFd = 3;

    explicit ChildProcess(const std::vector<std::string>& command,
                          const std::vector<std::string>& environment = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t id() const { return pid_; }

    // How it ended, once it has; nothing when it still runs after patience().
    std::optional<ProcessEnd> waitForEnd() const;
    bool hasEnded() const;

    // Ends it with SIGKILL and waits until it is gone.
    void kill();

    // What the process and everything that it started have written by now.
    std::string standardOutput() const { return output_.content(); }
    std::string standardError() const { return error_.content(); }
    // What it has written to kReportFd.
    std::string report() const { return report_.content(); }

    // Waits until the stream holds `text`, and says on failure what it holds instead.
    testing::AssertionResult waitForOutput(const std::string& text) const;
    testing::AssertionResult waitForError(const std::string& text) const;
    testing::AssertionResult waitForReport(const std::string& text) const;

protected:
    ChildProcess() = default;  // for a process that the derived class starts

    CollectedStream output_;
    CollectedStream error_;
    CollectedStream report_;
    pid_t pid_ = -1;

private:
    testing::AssertionResult waitFor(const CollectedStream& stream, const std::string& text) const;

    mutable std::optional<ProcessEnd> end_;
};

// Runs a function in a copy of this process: for code that ends its process or changes it for good.
// Code that uses the message bus needs a process that has not used it before: fork first, then make
// a SystemBus. The copy exits with status 0 when `body` returns. Its standard output is flushed at
// its end only, unless `body` does it.
class ForkedProcess : public ChildProcess {
public:
    explicit ForkedProcess(const std::function<void()>& body);
};

// Starts this test executable again with the current test alone: for code that needs a process
// which has used neither threads nor the bus. The test asks isFreshProcess() at its beginning to
// know which part it has. The other part sees its notes as the report, its output (next to
// GoogleTest's own) and its end.
ChildProcess freshProcess();
bool isFreshProcess();

// In a fresh process: a line of the report.
void note(const std::string& line);

// How a process ended, and all that it wrote.
struct CommandResult {
    std::optional<ProcessEnd> end;
    std::string output;
    std::string error;
};
CommandResult runCommand(const std::vector<std::string>& command,
                         const std::vector<std::string>& environment = {});
CommandResult runForked(const std::function<void()>& body);

}  // namespace test_support

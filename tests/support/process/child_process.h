// A process that a test starts, with its output collected, ended with its owner.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/types.h>

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/process/unique_fd.h"

namespace test_support {

// How a process ended: by exit with a status, or by a signal.
struct ProcessEnd {
    bool bySignal = false;
    int number = 0;

    bool operator==(const ProcessEnd& other) const {
        return bySignal == other.bySignal && number == other.number;
    }
    bool operator!=(const ProcessEnd& other) const { return !(*this == other); }
};

inline ProcessEnd exited(int status) {
    return {false, status};
}
inline ProcessEnd killedBy(int signal) {
    return {true, signal};
}
std::ostream& operator<<(std::ostream& out, const ProcessEnd& end);

struct ResourceLimit {
    int resource = 0;  // RLIMIT_NOFILE and so on
    rlim_t value = 0;  // soft and hard
};

struct ChildOptions {
    std::vector<std::string> environment{};  // "NAME=value", added to the test's own
    std::vector<ResourceLimit> limits{};
    std::optional<mode_t> umask{};
    bool terminal = false;  // standard output is a raw pseudo-terminal; takes the sandbox
};

// One stream of a process, as a file in memory that grows as it writes.
class CollectedStream {
public:
    CollectedStream();
    int fd() const { return file_.get(); }
    std::string text() const;

private:
    UniqueFd file_;
};

// The process's standard input is /dev/null. It is killed when the thread that started it ends, so
// start processes from the main thread. Throws std::runtime_error when it cannot be started.
class ChildProcess {
public:
    // Where the child finds the stream that is read as report().
    static constexpr int kReportFd = 3;

    explicit ChildProcess(const std::vector<std::string>& command,
                          const ChildOptions& options = {});
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
    std::string standardOutput() const { return output_.text(); }
    std::string standardError() const { return error_.text(); }
    std::string report() const { return report_.text(); }

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
// know which part it has. The other part sees its notes, its output (next to GoogleTest's own) and
// its end.
class FreshProcess : public ChildProcess {
public:
    FreshProcess();

    // All lines by now, each with its line end.
    std::string notes() const { return report(); }
    testing::AssertionResult waitForNote(const std::string& line) const {
        return waitForReport(line + "\n");
    }
};

// Whether a FreshProcess has started this process.
bool isFreshProcess();

// In a fresh process: a line for FreshProcess::notes() of the test that started it.
void note(const std::string& line);

// How a process ended, and all that it wrote.
struct CommandResult {
    std::optional<ProcessEnd> end;
    std::string output;
    std::string error;
};
CommandResult runCommand(const std::vector<std::string>& command, const ChildOptions& options = {});
CommandResult runForked(const std::function<void()>& body);

}  // namespace test_support

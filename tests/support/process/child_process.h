// A process that a test starts, with its output collected, ended with its owner.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/types.h>

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/process/stream_reader.h"

namespace test_support {

// The status of a child that could not become what it was to be, as shells have it.
constexpr int kCannotRun = 127;

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
    std::vector<std::string> environment;  // "NAME=value", added to the test's own
    std::vector<ResourceLimit> limits;
    std::optional<mode_t> umask;
    bool terminal = false;  // standard output is a raw pseudo-terminal instead of a pipe
};

// The process's standard input is /dev/null. It is killed when the thread that started it ends, so
// start processes from the main thread.
class ChildProcess {
public:
    // Where the child finds the write end of a third pipe, read as report().
    static constexpr int kReportFd = 3;
    static constexpr std::size_t kReportStream = 2;  // its number among streams()

    explicit ChildProcess(const std::vector<std::string>& command,
                          const ChildOptions& options = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t id() const { return pid_; }

    // How it ended, once it has; nothing when it still runs after patience().
    std::optional<ProcessEnd> waitForEnd();
    bool hasEnded();

    // Ends it with SIGKILL and waits until it is gone.
    void kill();

    std::string standardOutput() const { return reader_->text(0); }
    std::string standardError() const { return reader_->text(1); }
    std::string report() const { return reader_->text(kReportStream); }

    // Waits until the text has been written, and says on failure what was written instead.
    testing::AssertionResult waitForOutput(const std::string& text) const;
    testing::AssertionResult waitForError(const std::string& text) const;

    const StreamReader& streams() const { return *reader_; }

private:
    testing::AssertionResult waitForText(std::size_t stream, const std::string& text) const;

    pid_t pid_ = -1;
    std::optional<ProcessEnd> end_;
    std::unique_ptr<StreamReader> reader_;
};

// Runs a command to its end and returns its exit status and both outputs.
struct CommandResult {
    std::optional<ProcessEnd> end;
    std::string output;
    std::string error;
};
CommandResult runCommand(const std::vector<std::string>& command, const ChildOptions& options = {});

}  // namespace test_support

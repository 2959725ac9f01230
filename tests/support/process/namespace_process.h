// A command that a test runs in PID and mount namespaces of its own inside the sandbox.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/process/child_process.h"

namespace test_support {

// The end of one process of a namespace.
struct NamespaceEnd {
    pid_t insideId = 0;
    ProcessEnd end;
};

// Whatever may reach kill(-1) is run this way. Ids "inside" are those of the namespace, ids
// "outside" those that the test and the message bus see.
class NamespaceProcess {
public:
    explicit NamespaceProcess(const std::vector<std::string>& command,
                              const ChildOptions& options = {});

    // Id of the command inside; nothing when the program could not start it.
    std::optional<pid_t> commandInside();

    // Ids outside of everything in the namespace but its init; empty once the namespace has ended.
    std::vector<pid_t> processesOutside() const;

    // The id outside of the process that has the id `inside` in the namespace.
    std::optional<pid_t> outsideId(pid_t inside) const;

    // The ends that the namespace's init has reported by now, in order.
    std::vector<NamespaceEnd> ends() const;

    // How one process of the namespace ended, the command by default; nothing when it still runs
    // after patience().
    std::optional<ProcessEnd> waitForEndOf(pid_t inside);
    std::optional<ProcessEnd> waitForCommandEnd();

    // Waits until the namespace is empty. Returns what the command's status came to, as a shell has
    // it.
    std::optional<ProcessEnd> waitForEmpty() { return outer_.waitForEnd(); }

    // Waits until the namespace is empty and returns every end in it, in order. Fails the test when
    // the namespace does not end.
    std::vector<ProcessEnd> waitForAllEnds();

    // Another process in the same namespace; it counts as one of those inside, but its end is
    // waited for here and not reported by the namespace.
    std::unique_ptr<ChildProcess> enter(const std::vector<std::string>& command);

    // Enters a process that sleeps until a signal ends it, and waits until it runs.
    std::unique_ptr<ChildProcess> enterWitness();

    // Ends the namespace and all that is in it; returns when all of it is gone.
    void kill();

    std::string standardOutput() const { return outer_.standardOutput(); }
    std::string standardError() const { return outer_.standardError(); }
    testing::AssertionResult waitForOutput(const std::string& text) const {
        return outer_.waitForOutput(text);
    }
    testing::AssertionResult waitForError(const std::string& text) const {
        return outer_.waitForError(text);
    }

    // Waits until nothing in the namespace can write any more, so that the texts are whole.
    bool waitForOutputEnd() const { return outer_.streams().waitForEnd(); }
    bool hasEnded() { return outer_.hasEnded(); }

private:
    std::optional<pid_t> init() const;

    ChildProcess outer_;
};

}  // namespace test_support

// A command that a test runs in a PID and mount namespace of its own inside the sandbox.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/process/child_process.h"

namespace test_support {

// Whatever may reach kill(-1) is run this way. Ids "inside" are those of the namespace, ids
// "outside" those that the test and the message bus see.
class NamespaceProcess : public ChildProcess {
public:
    // With `terminal` its standard output is a raw pseudo-terminal.
    explicit NamespaceProcess(const std::vector<std::string>& command,
                              const std::vector<std::string>& environment = {},
                              bool terminal = false);
    ~NamespaceProcess() { kill(); }
    NamespaceProcess(const NamespaceProcess&) = delete;
    NamespaceProcess& operator=(const NamespaceProcess&) = delete;

    // Id of the command inside; nothing when it could not be started.
    std::optional<pid_t> commandInside() const;

    // Ids outside of every process in there but the init; empty once all have ended.
    std::vector<pid_t> processesOutside() const;

    // The id outside of the process that has the id `inside`.
    std::optional<pid_t> outsideId(pid_t inside) const;

    // The processes that have ended by now, in order: the id inside, and how.
    std::vector<std::pair<pid_t, ProcessEnd>> ends() const;

    // How one process ended, the command by default; nothing when it still runs after patience().
    std::optional<ProcessEnd> waitForEndOf(pid_t inside) const;
    std::optional<ProcessEnd> waitForCommandEnd() const;

    // Waits until every process has ended and all output is there. Returns every end, in order.
    // Fails the test when some process goes on. waitForEnd() waits for the same.
    std::vector<ProcessEnd> waitForAllEnds() const;

    // Another process in the same namespace. Its end is waited for here and not reported there.
    std::unique_ptr<ChildProcess> enter(const std::vector<std::string>& command) const;

    // Enters a process that sleeps until a signal ends it, and waits until it runs.
    std::unique_ptr<ChildProcess> enterWitness() const;

    // Ends every process in there; returns when all are gone.
    void kill();

private:
    std::optional<pid_t> init() const;
};

}  // namespace test_support

// A command that a test runs in a room: pid and mount namespaces of its own inside the sandbox.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/process/child_process.h"

namespace test_support {

// The end of one process of a room.
struct RoomEnd {
    pid_t insideId = 0;
    ProcessEnd end;
};

// Whatever may reach kill(-1) is run this way. Ids "inside" are those of the room, ids "outside"
// those that the test and the message bus see.
class RoomProcess {
public:
    explicit RoomProcess(const std::vector<std::string>& command, const ChildOptions& options = {});

    // Id of the command inside; nothing when the room could not start it.
    std::optional<pid_t> commandInside();

    // Ids outside of everything in the room but its init; empty once the room has ended.
    std::vector<pid_t> processesOutside() const;

    // The id outside of the process that has the id `inside` in the room.
    std::optional<pid_t> outsideId(pid_t inside) const;

    // The ends that the room's init has reported by now, in order.
    std::vector<RoomEnd> ends() const;

    // How one process of the room ended, the command by default; nothing when it still runs after
    // patience().
    std::optional<ProcessEnd> waitForEndOf(pid_t inside);
    std::optional<ProcessEnd> waitForCommandEnd();

    // Waits until the room is empty. Returns what the command's status came to, as a shell has it.
    std::optional<ProcessEnd> waitForEmpty() { return outer_.waitForEnd(); }

    // Waits until the room is empty and returns every end in it, in order. Fails the test when the
    // room does not end.
    std::vector<ProcessEnd> waitForAllEnds();

    // Another process in the same room; it counts as one of the room's, but its end is waited for
    // here and not reported by the room.
    std::unique_ptr<ChildProcess> enter(const std::vector<std::string>& command);

    // Enters a process that sleeps until a signal ends it, and waits until it runs.
    std::unique_ptr<ChildProcess> enterWitness();

    // Ends the room and all that is in it; returns when all of it is gone.
    void kill();

    std::string standardOutput() const { return outer_.standardOutput(); }
    std::string standardError() const { return outer_.standardError(); }
    testing::AssertionResult waitForOutput(const std::string& text) const {
        return outer_.waitForOutput(text);
    }
    testing::AssertionResult waitForError(const std::string& text) const {
        return outer_.waitForError(text);
    }

    // Waits until nothing in the room can write any more, so that the texts are whole.
    bool waitForOutputEnd() const { return outer_.streams().waitForEnd(); }
    bool hasEnded() { return outer_.hasEnded(); }

private:
    std::optional<pid_t> init() const;

    ChildProcess outer_;
};

}  // namespace test_support

// The room that keeps a kill(-1) to itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "tests/support/device/stick.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/room_process.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

std::vector<std::string> sh(const std::string& script) {
    return {"sh", "-c", script};
}

CommandResult runRoom(const std::vector<std::string>& arguments) {
    return runCommand(runnable(buildPath("room"), arguments));
}

TEST(Room, endsWithTheStatusOfItsCommand) {
    RoomProcess room(sh("exit 7"));
    EXPECT_EQ(room.waitForCommandEnd(), exited(7));
    EXPECT_EQ(room.waitForEmpty(), exited(7));
}

TEST(Room, endsWithASignalsNumberAsAShellDoes) {
    RoomProcess room(sh("kill -KILL $$"));
    EXPECT_EQ(room.waitForCommandEnd(), killedBy(SIGKILL));
    EXPECT_EQ(room.waitForEmpty(), exited(128 + SIGKILL));
}

TEST(Room, handsTheStreamsThrough) {
    const CommandResult result =
        runRoom({"--", "sh", "-c", "cat; echo to output; echo to error >&2"});
    EXPECT_EQ(result.output, "to output\n");
    EXPECT_EQ(result.error, "to error\n");
}

TEST(Room, passesOnUnchangedWhatGoesToATerminal) {
    const CommandResult result = runRoom(
        {"--terminal", "--", "sh", "-c", "test -t 1 && printf 'one\\ntwo\\tthree' && exit 4"});
    EXPECT_EQ(result.output, "one\ntwo\tthree");
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.end, exited(4));
}

TEST(Room, goesOnWhenNobodyReadsTheTerminalAnyMore) {
    const CommandResult result = runCommand(
        runnableAfter({"sh", "-c", "{ \"$@\"; echo \"status $?\" >&2; } | true", "sh"},
                      buildPath("room"), {"--terminal", "--", "sh", "-c", "seq 100000; exit 4"}));
    EXPECT_EQ(result.error, "status 4\n");
}

TEST(Room, saysWhatItCannotRun) {
    const CommandResult result = runRoom({"--", "/no/such/program"});
    EXPECT_EQ(result.end, exited(127));
    EXPECT_EQ(result.error, "room: cannot run /no/such/program: No such file or directory\n");
}

TEST(Room, refusesWrongArguments) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{},
                                               {"--"},
                                               {"true"},
                                               {"--report", "x", "--", "true"},
                                               {"--report", "99", "--", "true"}}) {
        const CommandResult result = runRoom(arguments);
        EXPECT_EQ(result.end, exited(125)) << testing::PrintToString(arguments);
        EXPECT_NE(result.error, "");
    }
}

TEST(Room, refusesOutsideTheSandbox) {
    // Another ipc namespace than the one that the sandbox's mark names.
    const CommandResult result = runCommand(
        runnableAfter({"unshare", "--ipc", "--"}, buildPath("room"), {"--", "echo", "ran"}));
    EXPECT_EQ(result.end, exited(125));
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error,
              "room: not inside the sandbox: /run/morvane-sandbox names another ipc namespace\n");
}

TEST(Room, reportsTheEndOfADaemon) {
    RoomProcess room(sh("(sleep 0.05; exit 9) & exit 4"));
    EXPECT_EQ(room.waitForEmpty(), exited(4));
    ASSERT_TRUE(room.waitForOutputEnd());
    ASSERT_EQ(room.ends().size(), 2U);
    EXPECT_EQ(room.ends()[0].end, exited(4));
    EXPECT_EQ(room.ends()[1].end, exited(9));
    EXPECT_EQ(room.ends()[0].insideId, room.commandInside());
}

TEST(Room, survivesASignalToEveryProcess) {
    ChildProcess outsider({"sleep", "infinity"});
    RoomProcess room(sh("sleep infinity & kill -TERM -1; wait; echo went on"));
    EXPECT_TRUE(room.waitForOutput("went on"));
    EXPECT_EQ(room.waitForCommandEnd(), exited(0));
    EXPECT_FALSE(outsider.hasEnded());
}

TEST(Room, seesMountsThatAreMadeAndTakenAwayLater) {
    RoomProcess room(
        sh("until [ -e /media/usb/USB_X60.3/file ]; do sleep 0.01; done; echo there;"
           "while [ -e /media/usb/USB_X60.3/file ]; do sleep 0.01; done; echo gone"));
    ASSERT_TRUE(room.commandInside());
    Stick stick(3);
    stick.addFile("file");
    ASSERT_TRUE(room.waitForOutput("there"));
    EXPECT_TRUE(stick.unmount());
    EXPECT_TRUE(room.waitForOutput("gone"));
}

TEST(Room, keepsItsOwnMountsToItself) {
    RoomProcess room(
        sh("mkdir -p /mnt/mine; mount -t tmpfs none /mnt/mine; touch /mnt/mine/file;"
           "echo mounted; sleep infinity"));
    ASSERT_TRUE(room.waitForOutput("mounted"));
    EXPECT_TRUE(exists("/mnt/mine"));
    EXPECT_FALSE(exists("/mnt/mine/file"));
}

TEST(Room, hasAProcessTableOfItsOwn) {
    RoomProcess room(sh("echo $$ sees $(ls -d /proc/1 /proc/$$ | wc -l); sleep infinity"));
    const std::optional<pid_t> inside = room.commandInside();
    ASSERT_TRUE(inside);
    EXPECT_TRUE(room.waitForOutput(std::to_string(*inside) + " sees 2\n"));
    const std::optional<pid_t> outside = room.outsideId(*inside);
    ASSERT_TRUE(outside);
    EXPECT_EQ(innermostId(*outside), inside);
}

TEST(Room, waitsForAWitnessThatEnteredIt) {
    RoomProcess room({"sleep", "infinity"});
    const std::unique_ptr<ChildProcess> witness = room.enterWitness();
    ASSERT_NE(witness, nullptr);
    const std::optional<pid_t> command = room.outsideId(room.commandInside().value_or(0));
    ASSERT_TRUE(command);
    ::kill(*command, SIGTERM);
    EXPECT_EQ(room.waitForCommandEnd(), killedBy(SIGTERM));
    EXPECT_EQ(room.processesOutside().size(), 1U);
    ::kill(room.processesOutside().at(0), SIGTERM);
    EXPECT_EQ(witness->waitForEnd(), killedBy(SIGTERM));
    EXPECT_EQ(room.waitForEmpty(), exited(128 + SIGTERM));
}

TEST(Room, diesAsAWholeWhenItIsKilled) {
    RoomProcess room(sh("setsid sleep infinity & echo started; sleep infinity"));
    ASSERT_TRUE(room.waitForOutput("started"));
    const std::vector<pid_t> all = room.processesOutside();
    ASSERT_GE(all.size(), 2U);
    room.kill();
    for (const pid_t pid : all) {
        EXPECT_TRUE(eventually([&] { return !isRunning(pid); }, "process ends with its room"));
    }
}

TEST(Room, diesWithItsCaller) {
    ChildProcess caller(runnableAfter({"sh", "-c", "\"$@\" & wait", "sh"}, buildPath("room"),
                                      {"--", "sh", "-c", "echo started; exec sleep infinity"}));
    ASSERT_TRUE(caller.waitForOutput("started"));
    const std::vector<pid_t> rooms = childrenOf(caller.id());
    ASSERT_EQ(rooms.size(), 1U);
    const std::vector<pid_t> inits = childrenOf(rooms[0]);
    ASSERT_EQ(inits.size(), 1U);
    caller.kill();
    EXPECT_TRUE(eventually([&] { return !isRunning(inits[0]); }, "the room ends with its caller"));
}

}  // namespace
}  // namespace test_support

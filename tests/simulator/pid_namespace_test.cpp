// The program that keeps a kill(-1) to a PID namespace.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/namespace_process.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

std::vector<std::string> sh(const std::string& script) {
    return {"sh", "-c", script};
}

CommandResult runProgram(const std::vector<std::string>& arguments) {
    return runCommand(runnable(buildPath("pid-namespace"), arguments));
}

TEST(PidNamespace, endsWith128PlusSignal) {
    NamespaceProcess process(sh("kill -KILL $$"));
    EXPECT_EQ(process.waitForCommandEnd(), killedBy(SIGKILL));
    EXPECT_EQ(process.waitForEnd(), exited(128 + SIGKILL));
}

TEST(PidNamespace, passesTerminalOutputUnchanged) {
    const CommandResult result = runProgram(
        {"--terminal", "--", "sh", "-c", "test -t 1 && printf 'one\\ntwo\\tthree' && exit 4"});
    EXPECT_EQ(result.output, "one\ntwo\tthree");
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.end, exited(4));
}

TEST(PidNamespace, namesCommandThatCannotRun) {
    const CommandResult result = runProgram({"--", "/no/such/program"});
    EXPECT_EQ(result.end, exited(127));
    EXPECT_EQ(result.error,
              "pid-namespace: cannot run /no/such/program: No such file or directory\n");
}

TEST(PidNamespace, refusesWrongArguments) {
    const std::vector<std::vector<std::string>> cases = {{},
                                                         {"--"},
                                                         {"--nonsense", "--", "true"},
                                                         {"--report", "x", "--", "true"},
                                                         {"--report", "99", "--", "true"}};
    for (const std::vector<std::string>& arguments : cases) {
        const CommandResult result = runProgram(arguments);
        EXPECT_EQ(result.end, exited(125)) << testing::PrintToString(arguments);
        EXPECT_NE(result.error, "");
    }
}

TEST(PidNamespace, refusesOutsideSandbox) {
    // Another ipc namespace than the one that the sandbox's mark names.
    const CommandResult result = runCommand(runnableAfter(
        {"unshare", "--ipc", "--"}, buildPath("pid-namespace"), {"--", "echo", "ran"}));
    EXPECT_EQ(result.end, exited(125));
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error,
              "pid-namespace: not inside the sandbox: /run/morvane-sandbox names another ipc "
              "namespace\n");
}

TEST(PidNamespace, reportsEndOfDaemon) {
    NamespaceProcess process(
        sh("(while kill -0 $$ 2>/dev/null; do sleep 0.01; done; exit 9) & exit 4"));
    EXPECT_EQ(process.waitForEnd(), exited(4));
    ASSERT_EQ(process.ends().size(), 2U);
    EXPECT_EQ(process.ends()[0].second, exited(4));
    EXPECT_EQ(process.ends()[1].second, exited(9));
    EXPECT_EQ(process.ends()[0].first, process.commandInside());
}

TEST(PidNamespace, survivesSignalToEveryProcess) {
    ChildProcess outsider({"sleep", "infinity"});
    NamespaceProcess process(sh("sleep infinity & kill -TERM -1; wait; echo went on"));
    EXPECT_TRUE(process.waitForOutput("went on"));
    EXPECT_EQ(process.waitForCommandEnd(), exited(0));
    EXPECT_FALSE(outsider.hasEnded());
}

TEST(PidNamespace, followsMountsOfSandbox) {
    NamespaceProcess process(
        sh("until [ -e /media/usb/USB_X60.3/file ]; do sleep 0.01; done; echo there;"
           "while [ -e /media/usb/USB_X60.3/file ]; do sleep 0.01; done; echo gone"));
    ASSERT_TRUE(process.commandInside());
    Stick stick(3);
    stick.addFile("file");
    ASSERT_TRUE(process.waitForOutput("there"));
    EXPECT_TRUE(stick.unmount());
    EXPECT_TRUE(process.waitForOutput("gone"));
}

TEST(PidNamespace, keepsItsMountsToItself) {
    NamespaceProcess process(
        sh("mkdir -p /mnt/mine; mount -t tmpfs none /mnt/mine; touch /mnt/mine/file;"
           "echo mounted; sleep infinity"));
    ASSERT_TRUE(process.waitForOutput("mounted"));
    EXPECT_TRUE(exists("/mnt/mine"));
    EXPECT_FALSE(exists("/mnt/mine/file"));
}

TEST(PidNamespace, hasItsOwnProcessTable) {
    NamespaceProcess process(sh("echo $$ sees $(ls -d /proc/1 /proc/$$ | wc -l); sleep infinity"));
    const std::optional<pid_t> inside = process.commandInside();
    ASSERT_TRUE(inside);
    EXPECT_TRUE(process.waitForOutput(std::to_string(*inside) + " sees 2\n"));
    const std::optional<pid_t> outside = process.outsideId(*inside);
    ASSERT_TRUE(outside);
    EXPECT_EQ(innermostId(*outside), inside);
}

TEST(PidNamespace, waitsForWitness) {
    NamespaceProcess process({"sleep", "infinity"});
    const std::unique_ptr<ChildProcess> witness = process.enterWitness();
    ASSERT_NE(witness, nullptr);
    const std::optional<pid_t> command = process.outsideId(process.commandInside().value_or(0));
    ASSERT_TRUE(command);
    ::kill(*command, SIGTERM);
    EXPECT_EQ(process.waitForCommandEnd(), killedBy(SIGTERM));
    EXPECT_EQ(process.processesOutside().size(), 1U);
    ::kill(process.processesOutside().at(0), SIGTERM);
    EXPECT_EQ(witness->waitForEnd(), killedBy(SIGTERM));
    EXPECT_EQ(process.waitForEnd(), exited(128 + SIGTERM));
}

TEST(PidNamespace, diesWhole) {
    NamespaceProcess process(sh("setsid sleep infinity & echo started; sleep infinity"));
    ASSERT_TRUE(process.waitForOutput("started"));
    const std::vector<pid_t> all = process.processesOutside();
    ASSERT_GE(all.size(), 2U);
    process.kill();
    for (const pid_t pid : all) {
        EXPECT_TRUE(eventually([&] { return !isRunning(pid); }, "process ends with its namespace"));
    }
}

TEST(PidNamespace, diesWithItsCaller) {
    ChildProcess caller(runnableAfter({"sh", "-c", "\"$@\" & wait", "sh"},
                                      buildPath("pid-namespace"),
                                      {"--", "sh", "-c", "echo started; exec sleep infinity"}));
    ASSERT_TRUE(caller.waitForOutput("started"));
    const std::vector<pid_t> programs = childrenOf(caller.id());
    ASSERT_EQ(programs.size(), 1U);
    const std::vector<pid_t> inits = childrenOf(programs[0]);
    ASSERT_EQ(inits.size(), 1U);
    caller.kill();
    EXPECT_TRUE(
        eventually([&] { return !isRunning(inits[0]); }, "the namespace ends with its caller"));
}

}  // namespace
}  // namespace test_support

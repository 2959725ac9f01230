// Daemonizing and its handshake, step by step: the set, the launcher, the daemon's side.
#include "service/daemonize.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>

#include "tests/support/process/child_process.h"
#include "tests/support/process/service_messages.h"
#include "tests/support/process/start_semaphores.h"
#include "tests/support/process/waiting.h"
#include "tests/unit/watched_calls.h"

namespace test_support {
namespace {

constexpr const char* kEndedEarly = "The service ended before it was ready.\n";

// daemonize() in a process that becomes the launcher, with `daemon` as what the daemon does.
CommandResult launch(const std::function<void()>& daemon) {
    return runForked([&] {
        daemonize();
        daemon();
        _exit(EXIT_SUCCESS);
    });
}

class StartSemaphore : public testing::Test {
protected:
    StartSemaphores set_;
};

TEST_F(StartSemaphore, hasTwoSemaphoresForEveryone) {
    const CommandResult result = runForked([] {
        umask(077);
        createSemaphore(2);
        std::printf("umask %o\n", umask(0));
    });
    EXPECT_EQ(result.end, exited(0));
    ASSERT_TRUE(set_.exists());
    EXPECT_EQ(result.output, setCreatedLine(set_.id()) + "umask 0\n");
    EXPECT_EQ(set_.status().sem_nsems, 2U);
    EXPECT_EQ(set_.status().sem_perm.mode, 0666U);
}

TEST_F(StartSemaphore, isReusedAsItIs) {
    const int made = set_.make({5, 6, 7});
    const CommandResult result = runForked([&] { std::exit(createSemaphore(2) == made ? 0 : 1); });
    EXPECT_EQ(result.end, exited(0));
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(set_.status().sem_nsems, 3U);
    EXPECT_EQ(set_.value(0), 5);
}

TEST_F(StartSemaphore, exits1WhenItCannotBeMade) {
    const CommandResult result = runForked([] {
        const WatchedCalls calls([](auto& /*call*/, auto i) { return i == 1 ? ENOSPC : 0; });
        createSemaphore(2);
    });
    EXPECT_EQ(result.end, exited(1));
    EXPECT_EQ(result.error, "Error while creating semaphore.: No space left on device\n");
}

TEST_F(StartSemaphore, undoesOperationsOfAnEndedProcess) {
    const int id = set_.make({1, 1});
    const CommandResult result = runForked([&] {
        semaphoreOp(id, kTakeReady);
        semaphoreOp(id, kGiveAcknowledged);
        std::printf("%d %d\n", semctl(id, 0, GETVAL), semctl(id, 1, GETVAL));
    });
    EXPECT_EQ(result.output, "0 2\n");
    EXPECT_EQ(set_.value(0), 1);
    EXPECT_EQ(set_.value(1), 1);
}

TEST_F(StartSemaphore, exits1WhenItIsGone) {
    const int id = set_.make({0, 0});
    set_.remove();
    const CommandResult result = runForked([&] { semaphoreOp(id, kGiveReady); });
    EXPECT_EQ(result.end, exited(1));
    EXPECT_EQ(result.error, "Error during semaphore operation!");
    EXPECT_EQ(result.output, "");
}

TEST_F(StartSemaphore, carriesTheHandshake) {
    const CommandResult result = launch([this] {
        const int id = set_.id();
        signalLauncher(id);
        endHandshake(id);
    });
    EXPECT_EQ(result.end, exited(0));
    EXPECT_EQ(result.error, "");
    EXPECT_TRUE(eventually([this] { return !set_.exists(); }, "the set is removed"));
}

// As an earlier start has left it, whose processes were killed.
TEST_F(StartSemaphore, isResetAndRemovedWhenStale) {
    const int id = set_.make({7, 3});
    const CommandResult result = launch([&] {
        if (set_.value(0) != 0 || set_.value(1) != 0) {
            _exit(EXIT_FAILURE);
        }
        signalLauncher(id);
        endHandshake(id);
    });
    EXPECT_EQ(result.end, exited(0)) << result.error;
    EXPECT_EQ(result.output.find("Semaphor created"), std::string::npos);
    EXPECT_TRUE(eventually([this] { return !set_.exists(); }, "the set is removed"));
}

TEST_F(StartSemaphore, exitsLauncherWith1WhenItIsGone) {
    const CommandResult result = launch([this] {
        const pid_t launcher = getppid();
        set_.remove();
        while (getppid() == launcher) {
            usleep(1000);
        }
    });
    EXPECT_EQ(result.end, exited(1));
    EXPECT_EQ(result.error, "Error during semaphore operation!");
}

TEST_F(StartSemaphore, isReleasedByADaemonThatCannotRun) {
    const int id = set_.make({0, 0});
    ForkedProcess daemon([&] { releaseStarterAndExit(id); });
    ASSERT_TRUE(
        eventually([this] { return set_.waiting(1) == 1; }, "the acknowledgement is awaited"));
    EXPECT_EQ(set_.value(0), 1);
    EXPECT_FALSE(daemon.hasEnded());
    set_.give(1);
    EXPECT_EQ(daemon.waitForEnd(), exited(2));
    EXPECT_FALSE(set_.exists());
}

struct EarlyEnd {
    const char* name;
    void (*daemon)();
    int launcherStatus;
};

class Launcher : public testing::TestWithParam<EarlyEnd> {
protected:
    StartSemaphores set_;
};

TEST_P(Launcher, noticesADaemonThatEndsEarly) {
    const CommandResult result = launch(GetParam().daemon);
    EXPECT_EQ(result.end, exited(GetParam().launcherStatus));
    EXPECT_EQ(result.output.find(kLauncherBegins), 0U) << result.output;
    if (GetParam().launcherStatus == 0) {
        EXPECT_EQ(result.error, "");
        EXPECT_NE(result.output.find(kLauncherEnds), std::string::npos);
    } else {
        EXPECT_EQ(result.error, kEndedEarly);
        EXPECT_EQ(result.output.find(kLauncherEnds), std::string::npos);
        EXPECT_FALSE(set_.exists());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Whose, Launcher,
    // A status of 0 is that of a daemon which was itself a launcher and has done its work.
    testing::Values(EarlyEnd{"daemonWasALauncherThatSucceeded", [] { _exit(0); }, 0},
                    EarlyEnd{"daemonFails", [] { _exit(2); }, 1},
                    EarlyEnd{"daemonIsKilled", [] { raise(SIGKILL); }, 1},
                    EarlyEnd{"daemonCrashes",
                             [] {
                                 signal(SIGABRT, SIG_DFL);
                                 abort();
                             },
                             1}),
    [](const auto& end) { return std::string(end.param.name); });

TEST_F(StartSemaphore, isRemovedByALauncherThatIgnoresSigchld) {
    const CommandResult result = runForked([] {
        signal(SIGCHLD, SIG_IGN);
        daemonize();
        _exit(2);
    });
    EXPECT_EQ(result.end, exited(1));
    EXPECT_EQ(result.error, kEndedEarly);
    EXPECT_FALSE(set_.exists());
}

TEST_F(StartSemaphore, isRemovedWhenItHasOneSemaphore) {
    set_.make({0});
    const CommandResult result = launch([] {});
    EXPECT_EQ(result.end, exited(1));
    EXPECT_EQ(result.output, asPrinted({kLauncherBegins}));
    EXPECT_EQ(result.error, "semctl didn't work.\n: Invalid argument\n");
    EXPECT_FALSE(set_.exists());
}

TEST_F(StartSemaphore, staysWhenForkFails) {
    const CommandResult result = runForked([] {
        const WatchedCalls calls(
            [](auto& call, auto /*index*/) { return call.name == "fork" ? EAGAIN : 0; });
        daemonize();
    });
    EXPECT_EQ(result.end, exited(1));
    EXPECT_EQ(result.error,
              "Error creating the child process\n: Resource temporarily unavailable\n");
    EXPECT_EQ(result.output.find(kLauncherEnds), std::string::npos);
    EXPECT_TRUE(set_.exists());
}

using DetachedDaemon = StartSemaphore;

// Making a set clears the umask as well, so here there is none to make.
TEST_F(DetachedDaemon, hasNoUmask) {
    set_.make({1, 1});
    const CommandResult result = runForked([] {
        umask(077);
        daemonize();
        _exit(static_cast<int>(umask(0)));
    });
    EXPECT_EQ(result.end, exited(0));
}

TEST_F(DetachedDaemon, flushesFirstLinesAsItsLauncherDoes) {
    set_.make({1, 1});
    const CommandResult result = launch([] {});
    EXPECT_EQ(result.output, asPrinted({kLauncherBegins, kLauncherBegins, kLauncherEnds}));
}

class Detaching : public testing::TestWithParam<const char*> {
protected:
    StartSemaphores set_;
};

TEST_P(Detaching, exits1WhenItFails) {
    const CommandResult result = runForked([] {
        const WatchedCalls calls(
            [](auto& call, auto /*index*/) { return call.name == GetParam() ? EPERM : 0; });
        daemonize();
        _exit(0);  // the launcher would take this for a success
    });
    EXPECT_EQ(result.end, exited(1));
    EXPECT_EQ(result.error, kEndedEarly);
    EXPECT_FALSE(set_.exists());
}

INSTANTIATE_TEST_SUITE_P(AtStep, Detaching, testing::Values("setsid", "chdir"),
                         [](const auto& step) { return std::string(step.param); });

}  // namespace
}  // namespace test_support

// The lock file: what the lock operation returns and leaves, and what it says when it fails.
#include "service/pid_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/files/files.h"
#include "tests/support/process/child_process.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/unique_fd.h"
#include "tests/support/process/waiting.h"
#include "tests/unit/watched_calls.h"

namespace test_support {
namespace {

constexpr const char* kPath = "/var/lock/a.name.pid";
pid_t pretendedId = 0;
constexpr int kLocked = 0;
constexpr int kRefused = 1;

bool fileIsOpen() {
    const std::vector<std::string> open =
        openDescriptorsOf(static_cast<pid_t>(syscall(SYS_getpid)));
    return std::count(open.begin(), open.end(), std::filesystem::canonical(kPath)) > 0;
}

// What a start does with the lock; the exit status is the answer.
void lockAndExit() {
    std::exit(lockPidFile("a.name") >= 0 ? kLocked : kRefused);
}

class PidFile : public testing::Test {
protected:
    ~PidFile() override { unlink(kPath); }
};

TEST_F(PidFile, holdsTheProcessIdForItsOwnerOnly) {
    ForkedProcess process([] {
        umask(0);
        lockAndExit();
    });
    EXPECT_EQ(process.waitForEnd(), exited(kLocked));
    EXPECT_EQ(std::filesystem::status(kPath).permissions(), std::filesystem::perms{0600});
    EXPECT_EQ(readFile(kPath), std::to_string(process.id()) + "\n");
    EXPECT_EQ(process.standardError(), "");
    EXPECT_EQ(process.standardOutput(), "");
}

TEST_F(PidFile, replacesALongerContent) {
    writeFile(kPath, "99999999\nand more that an earlier run has left\n");
    ForkedProcess process(lockAndExit);
    EXPECT_EQ(process.waitForEnd(), exited(kLocked));
    EXPECT_EQ(readFile(kPath), std::to_string(process.id()) + "\n");
}

TEST_F(PidFile, cutsTheIdAtNineCharacters) {
    for (const pid_t id : {12345678, 123456789}) {
        runForked([id] {
            pretendedId = id;
            lockAndExit();
        });
        EXPECT_EQ(readFile(kPath), (std::to_string(id) + "\n").substr(0, 9));
    }
}

TEST_F(PidFile, staysLockedWhileTheProcessRuns) {
    const TemporaryDirectory folder;
    ForkedProcess first([&] {
        lockPidFile("a.name");
        writeFile(folder.path("locked"), "");
        pause();
    });
    ASSERT_TRUE(eventually([&] { return exists(folder.path("locked")); }, "the file is locked"));

    const CommandResult second = runForked(lockAndExit);
    EXPECT_EQ(second.end, exited(kRefused));
    EXPECT_EQ(second.error, "PID-File already locked.\n: Resource temporarily unavailable\n");
    EXPECT_EQ(readFile(kPath), std::to_string(first.id()) + "\n");

    kill(first.id(), SIGKILL);
    EXPECT_EQ(first.waitForEnd(), killedBy(SIGKILL));
    EXPECT_EQ(runForked(lockAndExit).end, exited(kLocked));
}

TEST_F(PidFile, isClosedOnExec) {
    const CommandResult result = runForked([] {
        const int fd = lockPidFile("a.name");
        std::exit((fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0 ? kLocked : kRefused);
    });
    EXPECT_EQ(result.end, exited(kLocked));
}

TEST_F(PidFile, failsWithoutItsDirectory) {
    std::filesystem::rename("/run/lock", "/run/lock-away");
    const CommandResult result = runForked(lockAndExit);
    std::filesystem::rename("/run/lock-away", "/run/lock");
    EXPECT_EQ(result.end, exited(kRefused));
    EXPECT_EQ(result.error, "coudln't create lockfile.\n: No such file or directory\n");
}

TEST_F(PidFile, isLockedAlsoWhenItCannotBeWritten) {
    const UniqueFd sealed(memfd_create("sealed", MFD_ALLOW_SEALING | MFD_CLOEXEC));
    EXPECT_EQ(write(sealed.get(), "old\n", 4), 4);
    EXPECT_EQ(fcntl(sealed.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_WRITE), 0);
    const std::string path =
        "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(sealed.get());
    std::filesystem::create_symlink(path, kPath);
    const CommandResult result = runForked(lockAndExit);
    EXPECT_EQ(result.end, exited(kLocked));
    EXPECT_EQ(result.error,
              "Couldn't empty the PID-File!\n: Operation not permitted\n"
              "Couldn't write into PID-File.\n: Operation not permitted\n");
}

struct FailingStep {
    const char* name;
    int command;
    int error;
    const char* report;
    bool leavesOpen;
};

class PidFileStep : public PidFile, public testing::WithParamInterface<FailingStep> {};

TEST_P(PidFileStep, reportsAFailingStep) {
    const FailingStep& step = GetParam();
    const CommandResult result = runForked([&] {
        const WatchedCalls calls([&](auto& call, auto /*index*/) {
            return call.path == std::to_string(step.command) ? step.error : 0;
        });
        EXPECT_EQ(lockPidFile("a.name"), -1);
        std::puts(fileIsOpen() ? "open" : "closed");
    });
    EXPECT_EQ(result.output, step.leavesOpen ? "open\n" : "closed\n");
    EXPECT_EQ(result.error, step.report);
    EXPECT_EQ(readFile(kPath), "") << "written without the lock";
}

INSTANTIATE_TEST_SUITE_P(
    Of, PidFileStep,
    testing::Values(FailingStep{"readingTheFlags", F_GETFD, EBADF,
                                "Couldnt determine any flags.\n: Bad file descriptor\n", false},
                    FailingStep{"settingTheFlag", F_SETFD, EBADF,
                                "Couldnt set the FD_CLOEXEC flag.: Bad file descriptor\n", false},
                    FailingStep{"lockingAFileThatAnotherHas", F_SETLK, EACCES,
                                "PID-File already locked.\n: Permission denied\n", true},
                    FailingStep{"lockingForAnotherReason", F_SETLK, ENOLCK,
                                "Error locking this PID-file occured.\n: No locks available\n",
                                true}),
    [](const auto& step) { return std::string(step.param.name); });

}  // namespace
}  // namespace test_support

// Takes the place of the C library's in this executable: ids of eight digits are beyond what a
// machine gives out.
extern "C" pid_t getpid() noexcept {
    const pid_t pretended = test_support::pretendedId;
    return pretended != 0 ? pretended : static_cast<pid_t>(syscall(SYS_getpid));
}

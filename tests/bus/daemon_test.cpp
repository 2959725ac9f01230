// The service as a daemon: what its launcher says and waits for, and what becomes of the daemon.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/bus/fake_service.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/transfer_script.h"
#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/service_messages.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/start_semaphores.h"
#include "tests/support/process/syslog_socket.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

std::string printedWithNewSet(int id) {
    return kLauncherBegins + "\n" + setCreatedLine(id);
}

class Daemon : public testing::Test {
protected:
    static testing::AssertionResult setIsRemoved() {
        return eventually([] { return !StartSemaphores::exists(); }, "the set is removed");
    }

    SyslogSocket log_;
    const StartSemaphores set_{};
};

TEST_F(Daemon, keepsLauncherWaitingUntilItAnswers) {
    const HeldTransferScript script;
    ServiceProcess service{{{"-d"}, {}, withUmask("077")}};
    ASSERT_TRUE(script.waitUntilEntered());
    ASSERT_TRUE(StartSemaphores::exists());
    const int id = StartSemaphores::id();
    EXPECT_TRUE(eventually([this] { return set_.waiting(0) == 1; }, "the launcher waits"));
    EXPECT_THAT(service.ends(), IsEmpty());
    ASSERT_TRUE(service.waitForOutput(printedWithNewSet(id)));
    EXPECT_EQ(service.standardOutput(), printedWithNewSet(id));

    script.release();
    EXPECT_EQ(service.waitForCommandEnd(), exited(0));
    const SystemBus bus;
    EXPECT_EQ(bus.transfer("GetUSBStickDetails").error, "");
    EXPECT_EQ(bus.call(kControlPath, kControlInterface, "Init").error, "");
    EXPECT_TRUE(setIsRemoved());
    ASSERT_TRUE(service.waitForOutput(kLauncherEnds + "\n"));
    EXPECT_EQ(service.standardOutput(), printedWithNewSet(id) + kLauncherEnds + "\n");
    EXPECT_EQ(service.standardError(), "");
}

TEST_F(Daemon, isNotReadyWithoutItsObjects) {
    auto silent = std::make_unique<FakeService>(kAppletControlName);
    ServiceProcess service(kAsDaemon);
    ASSERT_TRUE(eventually([&] { return service.processId().has_value(); }, "the name is owned"));
    EXPECT_TRUE(eventually([this] { return set_.waiting(0) == 1; }, "the launcher waits"));
    EXPECT_THAT(service.ends(), IsEmpty());
    silent.reset();
    EXPECT_EQ(service.waitForCommandEnd(), exited(0));
    EXPECT_EQ(SystemBus().transfer("GetUSBStickDetails").error, "");
}

TEST_F(Daemon, logsToSystemLogAlone) {
    ServiceProcess service(kAsDaemon);
    EXPECT_EQ(service.waitForCommandEnd(), exited(0));
    ASSERT_TRUE(log_.waitFor(kLauncherEnds));
    std::vector<std::string> expected = startUpMessages({kLauncherEnds});
    expected.insert(expected.begin(), kLauncherBegins);
    EXPECT_THAT(log_.messages(), ElementsAreArray(expected));
    ASSERT_TRUE(service.waitForOutput(kLauncherEnds));
    EXPECT_EQ(service.standardOutput().find("Starting"), std::string::npos);
}

TEST_F(Daemon, hasOwnSessionRootDirectoryAndNoStreams) {
    const TemporaryDirectory elsewhere;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(elsewhere.path());
    ServiceProcess service{{{"-d"}, {}, withUmask("077")}};
    std::filesystem::current_path(before);
    ASSERT_TRUE(service.waitUntilAnswers());
    const pid_t daemon = *service.processId();

    EXPECT_EQ(lockHolder(kLockFile), daemon);
    EXPECT_EQ(readFile(kLockFile), std::to_string(*innermostId(daemon)) + "\n");
    EXPECT_EQ(getsid(daemon), daemon);
    EXPECT_EQ(getpgid(daemon), daemon);
    EXPECT_EQ(statusField(daemon, "Umask"), "0000");
    EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(daemon) + "/cwd"), "/");
    const std::vector<std::string> open = service.openDescriptors();
    ASSERT_GE(open.size(), 3U);
    EXPECT_THAT(std::vector<std::string>(open.begin(), open.begin() + 3), Each("/dev/null"));
    EXPECT_EQ(openFlagsOf(daemon, 0).value_or(-1) & O_ACCMODE, O_RDONLY);
    EXPECT_EQ(openFlagsOf(daemon, 1).value_or(-1) & O_ACCMODE, O_WRONLY);
    EXPECT_EQ(openFlagsOf(daemon, 2).value_or(-1) & O_ACCMODE, O_WRONLY);
    EXPECT_THAT(open, Not(Contains(testing::HasSubstr("/dev/pts"))));
}

TEST_F(Daemon, isMadeBehindOtherArguments) {
    ServiceProcess service(ServiceOptions{{"word", "-x", "-d"}});
    EXPECT_EQ(service.waitForCommandEnd(), exited(0));
    EXPECT_TRUE(service.processId().has_value());
    ASSERT_TRUE(service.waitForError("invalid option -- 'x'\n"));
    EXPECT_EQ(service.standardError(),
              buildPath("com-morvane-transfer-service") + ": invalid option -- 'x'\n");
}

// The second -d resets the set of the first: how the two launchers end is a matter of who is
// faster.
TEST_F(Daemon, isMadeOnceMoreByEachOption) {
    ServiceProcess service(ServiceOptions{{"-d", "-d"}});
    ASSERT_TRUE(service.waitUntilAnswers());
    ASSERT_TRUE(eventually([&] { return service.ends().size() == 2; }, "both launchers end"));
    EXPECT_EQ(lockHolder(kLockFile), service.processId());
    EXPECT_TRUE(setIsRemoved());
    EXPECT_TRUE(eventually(
        [this] {
            const std::vector<std::string> all = log_.messages();
            return std::count(all.begin(), all.end(), kLauncherBegins) == 2;
        },
        "both launchers log"));
}

// The second start finds the set by its key and resets it: the first launcher is let go too early,
// and the first daemon, although it alone has the lock, finds no set when it is ready.
TEST_F(Daemon, isEndedBySecondStartBeforeItIsReady) {
    const HeldTransferScript script;
    ServiceProcess service(kAsDaemon);
    ASSERT_TRUE(script.waitUntilEntered());
    ASSERT_TRUE(eventually([this] { return set_.waiting(0) == 1; }, "the launcher waits"));
    const pid_t daemon = innermostId(lockHolder(kLockFile).value()).value();
    const std::unique_ptr<ChildProcess> second =
        service.enter(runnable(buildPath("com-morvane-transfer-service"), {"-d"}));
    EXPECT_THAT(second->waitForEnd(), AnyOf(exited(0), exited(1)));
    EXPECT_THAT(service.waitForCommandEnd(), AnyOf(exited(0), exited(1)));
    ASSERT_TRUE(setIsRemoved());
    script.release();
    EXPECT_EQ(service.waitForEndOf(daemon), exited(1));
    service.waitForAllEnds();
    EXPECT_FALSE(SystemBus::hasOwner(kServiceName));
}

TEST_F(Daemon, releasesLauncherAsSecondInstance) {
    ServiceProcess first;
    ASSERT_TRUE(first.waitUntilAnswers());
    const std::string idBefore = readFile(kLockFile);
    const std::unique_ptr<ChildProcess> launcher =
        first.enter(runnable(buildPath("com-morvane-transfer-service"), {"-d"}));
    EXPECT_EQ(launcher->waitForEnd(), exited(0));
    ASSERT_TRUE(eventually([&] { return first.ends().size() == 1; }, "the second daemon ends"));
    EXPECT_EQ(first.ends().front().second, exited(2));
    EXPECT_FALSE(StartSemaphores::exists());
    ASSERT_TRUE(log_.waitFor("already started"));
    EXPECT_THAT(log_.messages(),
                Contains("[ERR] Service already started. Shutting down com.morvane.transfer"));
    EXPECT_EQ(readFile(kLockFile), idBefore);
    EXPECT_TRUE(first.processId().has_value());
}

}  // namespace
}  // namespace test_support

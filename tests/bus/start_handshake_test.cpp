// The handshake of launcher and daemon when something is in its way.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <string>

#include "tests/support/bus/system_bus.h"
#include "tests/support/device/transfer_script.h"
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
using testing::Eq;
using testing::HasSubstr;
using testing::Not;

// A daemon that stands in the transfer script, and its launcher that waits for it.
class HeldStart : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(script_.waitUntilEntered());
        ASSERT_TRUE(eventually([this] { return set_.waiting(0) == 1; }, "the launcher waits"));
        daemon_ = lockHolder(kLockFile).value_or(0);
        ASSERT_GT(daemon_, 0);
        daemonInside_ = innermostId(daemon_).value_or(0);
    }

    SyslogSocket log_;
    const StartSemaphores set_{};
    const HeldTransferScript script_{};
    ServiceProcess service_{kAsDaemon};
    pid_t daemon_ = 0;
    pid_t daemonInside_ = 0;
};

TEST_F(HeldStart, failsInLauncherWhenDaemonIsKilled) {
    ASSERT_EQ(kill(daemon_, SIGKILL), 0);
    EXPECT_EQ(service_.waitForCommandEnd(), exited(1));
    EXPECT_FALSE(StartSemaphores::exists());
    script_.release();
    service_.waitForAllEnds();
    EXPECT_EQ(service_.standardError(), "The service ended before it was ready.\n");
    EXPECT_THAT(service_.standardOutput(), Not(HasSubstr(launcherEnds().text)));
    EXPECT_THAT(log_.messages(), Not(Contains(launcherEnds())));
}

TEST_F(HeldStart, leavesSetForNextStart) {
    service_.kill();
    EXPECT_TRUE(StartSemaphores::exists());
    script_.release();
    ServiceProcess next(kAsDaemon);
    EXPECT_EQ(next.waitForCommandEnd(), exited(0));
    ASSERT_TRUE(next.waitForOutput(launcherEnds().text + "\n"));
    EXPECT_EQ(next.standardOutput(), asPrinted({launcherBegins(), launcherEnds()}));
    EXPECT_TRUE(next.processId().has_value());
    EXPECT_TRUE(eventually([] { return !StartSemaphores::exists(); }, "the set is removed"));
}

TEST_F(HeldStart, failsInBothWhenSetIsRemoved) {
    set_.remove();
    EXPECT_EQ(service_.waitForCommandEnd(), exited(1));
    script_.release();
    EXPECT_EQ(service_.waitForEndOf(daemonInside_), exited(1));
    service_.waitForAllEnds();
    EXPECT_EQ(service_.standardError(), "Error during semaphore operation!");
    EXPECT_FALSE(SystemBus::hasOwner(kServiceName));
}

// The second start finds the set by its key and resets it: the first launcher is let go too early,
// and the first daemon, although it alone has the lock, finds no set when it is ready. How the two
// launchers end is a matter of who is faster.
TEST_F(HeldStart, isEndedBySecondStart) {
    const std::unique_ptr<ChildProcess> second =
        service_.enter(runnable(buildPath("com-morvane-transfer-service"), {"-d"}));
    EXPECT_THAT(second->waitForEnd(), AnyOf(Eq(exited(0)), Eq(exited(1))));
    EXPECT_THAT(service_.waitForCommandEnd(), AnyOf(Eq(exited(0)), Eq(exited(1))));
    EXPECT_TRUE(isRunning(daemon_));
    ASSERT_TRUE(eventually([] { return !StartSemaphores::exists(); }, "the set is removed"));
    script_.release();
    EXPECT_EQ(service_.waitForEndOf(daemonInside_), exited(1));
    service_.waitForAllEnds();
    EXPECT_FALSE(SystemBus::hasOwner(kServiceName));
}

TEST(StaleSet, isResetAndRemoved) {
    const StartSemaphores set;
    set.make({7, 3});
    const HeldTransferScript script;
    ServiceProcess service(kAsDaemon);
    ASSERT_TRUE(script.waitUntilEntered());
    EXPECT_EQ(set.value(0), 0);
    EXPECT_EQ(set.value(1), 0);
    script.release();
    EXPECT_EQ(service.waitForCommandEnd(), exited(0));
    ASSERT_TRUE(service.waitForOutput(launcherEnds().text + "\n"));
    EXPECT_EQ(service.standardOutput(), asPrinted({launcherBegins(), launcherEnds()}))
        << "a set was made";
    EXPECT_TRUE(eventually([] { return !StartSemaphores::exists(); }, "the set is removed"));
}

// Making a set clears the umask, too; here there is none to make.
TEST(StaleSet, doesNotKeepLaunchersUmask) {
    const StartSemaphores set;
    set.make({1, 1});
    ServiceProcess service{{{"-d"}, {}, {}, 077}};
    ASSERT_TRUE(service.waitUntilAnswers());
    EXPECT_EQ(statusField(*service.processId(), "Umask"), "0000");
}

TEST(StaleSet, ofOneSemaphoreEndsStart) {
    const StartSemaphores set;
    set.make({1});
    ServiceProcess service(kAsDaemon);
    EXPECT_THAT(service.waitForAllEnds(), testing::ElementsAre(exited(1)));
    EXPECT_EQ(service.standardError(), "semctl didn't work.\n: Invalid argument\n");
    EXPECT_EQ(service.standardOutput(), asPrinted({launcherBegins()}));
    EXPECT_FALSE(StartSemaphores::exists());
}

}  // namespace
}  // namespace test_support

// The bus name: what happens when it cannot be owned, and when it is lost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "tests/support/bus/bus_daemon.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/transfer_script.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/service_messages.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/start_semaphores.h"
#include "tests/support/process/syslog_socket.h"

namespace test_support {
namespace {

using testing::ElementsAre;

enum class Obstacle { kOwner, kNoBus };

// Keeps the name from the service, or takes it away.
class BusName : public testing::TestWithParam<Obstacle> {
protected:
    BusName() { clearTransferScriptRuns(); }

    void putObstacle() {
        if (GetParam() == Obstacle::kNoBus) {
            outage_.emplace();
        } else {
            owner_.emplace();
            ASSERT_TRUE(owner_->ownName(kServiceName, G_BUS_NAME_OWNER_FLAGS_REPLACE));
        }
    }

    const std::string lost_ = "[ERR] Could not register servicename on bus";
    SyslogSocket log_;
    std::optional<SystemBus> owner_;
    std::optional<BusOutage> outage_;
};

class UnavailableName : public BusName {};

TEST_P(UnavailableName, endsServiceWith2) {
    putObstacle();
    ServiceProcess service;
    EXPECT_THAT(service.waitForAllEnds(), ElementsAre(exited(2)));
    EXPECT_EQ(service.standardOutput(), asPrinted(startUpMessages({lost_})));
    EXPECT_EQ(service.standardError(), "");
    ASSERT_TRUE(log_.waitFor(lost_));
    EXPECT_EQ(lockHolder(kLockFile), std::nullopt);
    EXPECT_THAT(transferScriptRuns(), ElementsAre(kScriptStart));
}

TEST_P(UnavailableName, endsDaemonWith2AfterLauncherWith0) {
    putObstacle();
    ServiceProcess service(kAsDaemon);
    EXPECT_THAT(service.waitForAllEnds(), testing::UnorderedElementsAre(exited(0), exited(2)));
    EXPECT_EQ(service.waitForCommandEnd(), exited(0));
    EXPECT_EQ(service.standardError(), "");
    ASSERT_TRUE(log_.waitFor(lost_));
    ASSERT_TRUE(log_.waitFor(kLauncherEnds));
    EXPECT_FALSE(StartSemaphores::exists());
}

class LostName : public BusName {};

TEST_P(LostName, endsServiceWith2) {
    ServiceProcess service;
    ASSERT_TRUE(service.waitUntilAnswers());
    putObstacle();
    EXPECT_THAT(service.waitForAllEnds(), ElementsAre(exited(2)));
    EXPECT_EQ(service.standardOutput(), asPrinted(startUpMessages({lost_})));
    ASSERT_TRUE(log_.waitFor(lost_));
    EXPECT_THAT(transferScriptRuns(), ElementsAre(kScriptStart));
}

// The set was removed at the end of the start, so the first operation on it fails.
TEST_P(LostName, endsDaemonWith1) {
    ServiceProcess service(kAsDaemon);
    ASSERT_EQ(service.waitForCommandEnd(), exited(0));
    putObstacle();
    EXPECT_THAT(service.waitForAllEnds(), ElementsAre(exited(0), exited(1)));
    ASSERT_TRUE(log_.waitFor(lost_));
    EXPECT_FALSE(StartSemaphores::exists());
}

const auto kObstacles = testing::Values(Obstacle::kOwner, Obstacle::kNoBus);
INSTANTIATE_TEST_SUITE_P(By, UnavailableName, kObstacles);
INSTANTIATE_TEST_SUITE_P(By, LostName, kObstacles);

TEST(NameOfAnother, isTakenWhereOwnerAllowsIt) {
    const SystemBus before;
    ASSERT_TRUE(before.ownName(kServiceName, G_BUS_NAME_OWNER_FLAGS_ALLOW_REPLACEMENT));
    ServiceProcess service;
    EXPECT_TRUE(service.waitUntilAnswers());
}

}  // namespace
}  // namespace test_support

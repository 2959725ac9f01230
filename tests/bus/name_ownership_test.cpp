// The bus name: what happens when it cannot be had, and when it is lost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

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
using testing::ElementsAreArray;

// Keeps the name from the service, or takes it away.
using Put = void (*)(std::optional<SystemBus>& owner, std::optional<BusOutage>& outage);

struct Case {
    const char* name;
    Put obstacle;
};

class Name : public testing::TestWithParam<Case> {
protected:
    Name() { clearTransferScriptRuns(); }

    void putObstacle() { GetParam().obstacle(owner_, outage_); }

    const LogMessage lost_ = errorMessage("Could not register servicename on bus");
    SyslogSocket log_;
    std::optional<SystemBus> owner_;
    std::optional<BusOutage> outage_;
};

class UnavailableName : public Name {};

TEST_P(UnavailableName, endsTheServiceWith2) {
    putObstacle();
    ServiceProcess service;
    EXPECT_THAT(service.waitForAllEnds(), ElementsAre(exited(2)));
    EXPECT_EQ(service.standardOutput(), asPrinted(joined(startUpMessages(), {lost_})));
    EXPECT_EQ(service.standardError(), "");
    ASSERT_TRUE(log_.waitFor(lost_.text));
    EXPECT_THAT(log_.messages(), ElementsAreArray(joined(startUpMessages(), {lost_})));
    EXPECT_EQ(lockHolder(kLockFile), std::nullopt);
    EXPECT_THAT(transferScriptRuns(), ElementsAre(kScriptStart));
}

TEST_P(UnavailableName, endsTheDaemonWith2AfterItsLauncherHasEndedWith0) {
    putObstacle();
    ServiceProcess service{{{"-d"}, {}, {}, {}, {}}};
    EXPECT_THAT(service.waitForAllEnds(), testing::UnorderedElementsAre(exited(0), exited(2)));
    EXPECT_EQ(service.waitForCommandEnd(), exited(0));
    EXPECT_EQ(service.standardError(), "");
    ASSERT_TRUE(log_.waitFor(lost_.text));
    ASSERT_TRUE(log_.waitFor(launcherEnds().text));
    EXPECT_THAT(log_.messages(), testing::Contains(lost_));
    EXPECT_FALSE(StartSemaphores::exists());
}

INSTANTIATE_TEST_SUITE_P(
    Because, UnavailableName,
    testing::Values(Case{"anOwnerKeepsIt",
                         [](auto& owner, auto& /*outage*/) {
                             owner.emplace();
                             ASSERT_TRUE(owner->ownName(kServiceName));
                         }},
                    Case{"thereIsNoBus", [](auto& /*owner*/, auto& outage) { outage.emplace(); }}),
    [](const auto& one) { return std::string(one.param.name); });

class LostName : public Name {};

TEST_P(LostName, endsTheServiceWith2) {
    ServiceProcess service;
    ASSERT_TRUE(service.waitUntilAnswers());
    putObstacle();
    EXPECT_THAT(service.waitForAllEnds(), ElementsAre(exited(2)));
    EXPECT_EQ(service.standardOutput(), asPrinted(joined(startUpMessages(), {lost_})));
    ASSERT_TRUE(log_.waitFor(lost_.text));
    EXPECT_EQ(log_.messages().back(), lost_);
    EXPECT_THAT(transferScriptRuns(), ElementsAre(kScriptStart));
}

// The set was removed at the end of the start, so the first operation on it fails.
TEST_P(LostName, endsADaemonWith1) {
    ServiceProcess service{{{"-d"}, {}, {}, {}, {}}};
    ASSERT_EQ(service.waitForCommandEnd(), exited(0));
    putObstacle();
    EXPECT_THAT(service.waitForAllEnds(), ElementsAre(exited(0), exited(1)));
    ASSERT_TRUE(log_.waitFor(lost_.text));
    EXPECT_EQ(log_.messages().back(), lost_);
    EXPECT_FALSE(StartSemaphores::exists());
}

INSTANTIATE_TEST_SUITE_P(
    Because, LostName,
    testing::Values(Case{"anotherTakesIt",
                         [](auto& owner, auto& /*outage*/) {
                             owner.emplace();
                             ASSERT_TRUE(owner->ownName(kServiceName, kReplaceExisting));
                         }},
                    Case{"theBusEnds", [](auto& /*owner*/, auto& outage) { outage.emplace(); }}),
    [](const auto& one) { return std::string(one.param.name); });

TEST(NameOfAnother, isTakenWhereItsOwnerAllowsIt) {
    const SystemBus before;
    ASSERT_TRUE(before.ownName(kServiceName, kAllowReplacement));
    ServiceProcess service;
    EXPECT_TRUE(service.waitUntilAnswers());
}

}  // namespace
}  // namespace test_support

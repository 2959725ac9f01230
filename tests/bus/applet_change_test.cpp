// What an applet change does to the service and its neighbours.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <memory>

#include "tests/support/bus/applet_control.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/transfer_script.h"
#include "tests/support/files/files.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/service_messages.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/syslog_socket.h"

namespace test_support {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

class AppletChange : public testing::TestWithParam<int> {
protected:
    AppletChange() { clearTransferScriptRuns(); }

    const LogMessage quitting_ = infoMessage("Quitting com-morvane-transfer-service");
    SyslogSocket log_;
    AppletControl appletControl_;
};

TEST_F(AppletChange, toFiveAppletsIsOnlyLogged) {
    ServiceProcess service;
    ASSERT_TRUE(service.waitUntilAnswers());
    const std::unique_ptr<ChildProcess> witness = service.enterWitness();
    std::vector<LogMessage> expected = startUpMessages();
    for (const int id : {1, 1, 257, 258, 259, 262}) {
        appletControl_.emitAppletChanged(id);
        expected.push_back(appletReceived(id));
    }
    ASSERT_TRUE(service.waitForOutput(asPrinted(expected)));
    EXPECT_EQ(service.standardOutput(), asPrinted(expected));
    ASSERT_TRUE(log_.waitFor(appletReceived(262).text));
    EXPECT_THAT(log_.messages(), ElementsAreArray(expected));
    EXPECT_TRUE(service.processId());
    EXPECT_FALSE(witness->hasEnded());
}

TEST_F(AppletChange, endsDaemonWith0) {
    ServiceProcess service(kAsDaemon);
    ASSERT_EQ(service.waitForCommandEnd(), exited(0));
    const std::unique_ptr<ChildProcess> witness = service.enterWitness();
    appletControl_.emitAppletChanged(0);
    EXPECT_EQ(witness->waitForEnd(), killedBy(SIGTERM));
    EXPECT_THAT(service.waitForAllEnds(), ElementsAre(exited(0), exited(0)));
    ASSERT_TRUE(log_.waitFor(quitting_.text));
    EXPECT_EQ(log_.messages().back(), quitting_);
}

TEST_P(AppletChange, endsServiceWith0AndNeighboursWithSigterm) {
    ServiceProcess service;
    ASSERT_TRUE(service.waitUntilAnswers());
    const std::unique_ptr<ChildProcess> witness = service.enterWitness();
    ChildProcess outsider({"sleep", "infinity"});
    appletControl_.emitAppletChanged(GetParam());
    EXPECT_EQ(witness->waitForEnd(), killedBy(SIGTERM));
    EXPECT_THAT(service.waitForAllEnds(), ElementsAre(exited(0)));
    EXPECT_FALSE(outsider.hasEnded());

    const std::vector<LogMessage> expected =
        joined(startUpMessages(), {appletReceived(GetParam()), quitting_});
    EXPECT_EQ(service.standardOutput(), asPrinted(expected));
    EXPECT_EQ(service.standardError(), "");
    ASSERT_TRUE(log_.waitFor(quitting_.text));
    EXPECT_THAT(log_.messages(), ElementsAreArray(expected));
    // No destructor runs: the script does not get the stop command, and what the start left stays.
    EXPECT_THAT(transferScriptRuns(), ElementsAre(kScriptStart));
    EXPECT_TRUE(exists(kTransferMarker));
    EXPECT_TRUE(exists(kLockFile));
}

// Beside the five, above 16 bits, negative.
INSTANTIATE_TEST_SUITE_P(WithId, AppletChange,
                         testing::Values(0, 2, 256, 260, 261, 263, 65793, -257));

}  // namespace
}  // namespace test_support

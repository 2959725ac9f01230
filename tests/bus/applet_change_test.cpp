// What an applet change does to the service and its neighbours, and whose signals count as one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/bus/bus_daemon.h"
#include "tests/support/bus/fake_service.h"
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

    const std::string quitting_ = "[NFO] Quitting com-morvane-transfer-service";
    SyslogSocket log_;
    AppletControl appletControl_;
};

TEST_F(AppletChange, toFiveAppletsIsOnlyLogged) {
    ServiceProcess service;
    ASSERT_TRUE(service.waitUntilAnswers());
    const std::unique_ptr<ChildProcess> witness = service.enterWitness();
    std::vector<std::string> expected = startUpMessages();
    for (const int id : {1, 1, 257, 258, 259, 262}) {
        appletControl_.emitAppletChanged(id);
        expected.push_back(appletReceived(id));
    }
    ASSERT_TRUE(service.waitForOutput(asPrinted(expected)));
    EXPECT_EQ(service.standardOutput(), asPrinted(expected));
    ASSERT_TRUE(log_.waitFor(appletReceived(262)));
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
    ASSERT_TRUE(log_.waitFor(quitting_));
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

    const std::vector<std::string> expected =
        startUpMessages({appletReceived(GetParam()), quitting_});
    EXPECT_EQ(service.standardOutput(), asPrinted(expected));
    EXPECT_EQ(service.standardError(), "");
    ASSERT_TRUE(log_.waitFor(quitting_));
    EXPECT_THAT(log_.messages(), ElementsAreArray(expected));
    // No destructor runs: the script does not get the stop command, and what the start left stays.
    EXPECT_THAT(transferScriptRuns(), ElementsAre(kScriptStart));
    EXPECT_TRUE(exists(kEnabledFile));
    EXPECT_TRUE(exists(kLockFile));
}

// Beside the five, above 16 bits, negative.
INSTANTIATE_TEST_SUITE_P(WithId, AppletChange,
                         testing::Values(0, 2, 256, 260, 261, 263, 65793, -257));

// ---- whose signals count -----------------------------------------------------------------------

constexpr const char* kSignal = "appletChanged";
constexpr int kQuittingId = 0;
constexpr int kIgnoredId = 258;

class AppletClient : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(service_.waitUntilAnswers()); }

    // Sends a signal that counts: only what is `expected` and its own trace are printed.
    void expectOnlySignalFrom(const AppletControl& control,
                              std::vector<std::string> expected = {}) {
        control.emitAppletChanged(kIgnoredId);
        expected.push_back(appletReceived(kIgnoredId));
        const std::string printed = asPrinted(startUpMessages(expected));
        EXPECT_TRUE(service_.waitForOutput(printed));
        EXPECT_EQ(service_.standardOutput(), printed);
        EXPECT_TRUE(service_.processId());
    }

    void emitAsStranger() const {
        stranger_.emitSignal(kAppletControlPath, kAppletControlInterface, kSignal,
                             g_variant_new("(i)", kQuittingId));
    }

    ServiceProcess service_;
    const SystemBus stranger_;
};

// Signals that are no applet change, although they look like one.
struct OtherSignal {
    const char* path;
    const char* interface;
    const char* signal;
    const char* arguments;
};

const OtherSignal kOtherSignals[] = {
    {"/scctrlIntf2", kAppletControlInterface, kSignal, "(0,)"},
    {"/scctrlIntf/below", kAppletControlInterface, kSignal, "(0,)"},
    {kAppletControlPath, "com.morvane.scctrl2", kSignal, "(0,)"},
    {kAppletControlPath, kAppletControlInterface, "appletChanging", "(0,)"},
    {kAppletControlPath, kAppletControlInterface, kSignal, "('0',)"},
    {kAppletControlPath, kAppletControlInterface, kSignal, "(uint32 0,)"},
    {kAppletControlPath, kAppletControlInterface, kSignal, "()"},
};

TEST_F(AppletClient, ignoresOtherSignals) {
    const SystemBus owner;
    ASSERT_TRUE(owner.ownName(kAppletControlName));
    for (const OtherSignal& other : kOtherSignals) {
        owner.emitSignal(other.path, other.interface, other.signal,
                         g_variant_new_parsed(other.arguments));
    }
    owner.releaseName(kAppletControlName);
    expectOnlySignalFrom(AppletControl());
}

TEST_F(AppletClient, ignoresStrangers) {
    emitAsStranger();  // nobody owns the name
    ASSERT_TRUE(stranger_.ownName(kAppletControlName));
    stranger_.releaseName(kAppletControlName);
    const AppletControl control;
    emitAsStranger();  // another owns it
    expectOnlySignalFrom(control);
}

TEST_F(AppletClient, ignoresSignalSentToServiceAlone) {
    const AppletControl control;
    control.emitAppletChanged(1);
    ASSERT_TRUE(service_.waitForOutput(appletReceived(1))) << "the owner is known";
    g_dbus_connection_emit_signal(stranger_.connection(), kServiceName, kAppletControlPath,
                                  kAppletControlInterface, kSignal,
                                  g_variant_new("(i)", kQuittingId), nullptr);
    EXPECT_EQ(stranger_.transfer("GetUSBStickDetails").error, "") << "sent after the signal";
    expectOnlySignalFrom(control, {appletReceived(1)});
}

TEST_F(AppletClient, followsLaterAppletControls) {
    std::vector<std::string> expected = startUpMessages();
    for (const int id : {1, 257}) {
        const AppletControl control;
        control.emitAppletChanged(id);
        expected.push_back(appletReceived(id));
        ASSERT_TRUE(service_.waitForOutput(asPrinted(expected)));
    }
    const AppletControl last;
    last.emitAppletChanged(kQuittingId);
    EXPECT_EQ(service_.waitForEnd(), exited(0));
}

// The bus refuses the first thing that a new proxy asks for.
constexpr const char* kRefusedActivation =
    R"(<policy context="mandatory"><deny send_type="method_call"
       send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"
       send_member="StartServiceByName"/></policy>)";

TEST(ServiceWithoutAppletProxy, goesOnWithoutSignals) {
    const BusPolicy refused(kRefusedActivation);
    ServiceProcess service;
    ASSERT_TRUE(service.waitUntilAnswers());
    AppletControl().emitAppletChanged(kQuittingId);
    const SystemBus bus;
    EXPECT_EQ(bus.transfer("GetUSBStickDetails").error, "");
    EXPECT_EQ(bus.call(kControlPath, kControlInterface, "Init").error, "");
    const std::string printed =
        asPrinted(startUpMessages({"[NFO] Error creating proxy for signal applet-changed",
                                   "[NFO] Init() Method invoked by DBus\n"}));
    EXPECT_TRUE(service.waitForOutput(printed));
    EXPECT_EQ(service.standardOutput(), printed);
}

}  // namespace
}  // namespace test_support

// Whose signals count as applet changes, and a start without the applet control.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/bus/applet_control.h"
#include "tests/support/bus/bus_daemon.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/files/files.h"
#include "tests/support/process/service_messages.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/syslog_socket.h"

namespace test_support {
namespace {

using testing::ElementsAreArray;

constexpr const char* kSignal = "appletChanged";
constexpr int kQuittingId = 0;
constexpr int kIgnoredId = 258;

class AppletClient : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(service_.waitUntilAnswers()); }

    // A signal that counts, sent after others that do not: nothing but its own trace is seen.
    void expectOnlyASignalFrom(const AppletControl& control) {
        control.emitAppletChanged(kIgnoredId);
        const std::string expected =
            asPrinted(joined(startUpMessages(), {appletReceived(kIgnoredId)}));
        EXPECT_TRUE(service_.waitForOutput(expected));
        EXPECT_EQ(service_.standardOutput(), expected);
        EXPECT_TRUE(service_.processId().has_value());
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

TEST_F(AppletClient, heedsOnlyTheSignalOfTheRightNamePathInterfaceAndArgument) {
    const SystemBus owner;
    ASSERT_TRUE(owner.ownName(kAppletControlName));
    for (const OtherSignal& other : kOtherSignals) {
        owner.emitSignal(other.path, other.interface, other.signal,
                         g_variant_new_parsed(other.arguments));
    }
    owner.releaseName(kAppletControlName);
    expectOnlyASignalFrom(AppletControl());
}

TEST_F(AppletClient, heedsNobodyButTheOwnerOfTheName) {
    // With nobody to own the name, with an owner, and with an owner of before.
    stranger_.emitSignal(kAppletControlPath, kAppletControlInterface, kSignal,
                         g_variant_new("(i)", kQuittingId));
    ASSERT_TRUE(stranger_.ownName(kAppletControlName));
    stranger_.releaseName(kAppletControlName);
    const AppletControl control;
    stranger_.emitSignal(kAppletControlPath, kAppletControlInterface, kSignal,
                         g_variant_new("(i)", kQuittingId));
    expectOnlyASignalFrom(control);
}

TEST_F(AppletClient, heedsNoStrangerWhoSendsTheSignalToTheServiceAlone) {
    const AppletControl control;
    control.emitAppletChanged(1);
    ASSERT_TRUE(service_.waitForOutput(appletReceived(1).text)) << "the owner is known";
    g_dbus_connection_emit_signal(stranger_.connection(), kServiceName, kAppletControlPath,
                                  kAppletControlInterface, kSignal,
                                  g_variant_new("(i)", kQuittingId), nullptr);
    g_dbus_connection_flush_sync(stranger_.connection(), nullptr, nullptr);
    EXPECT_EQ(stranger_.transfer("GetUSBStickDetails").error, "") << "sent after the signal";
    control.emitAppletChanged(kIgnoredId);
    const std::string expected =
        asPrinted(joined(startUpMessages(), {appletReceived(1), appletReceived(kIgnoredId)}));
    EXPECT_TRUE(service_.waitForOutput(expected));
    EXPECT_EQ(service_.standardOutput(), expected);
}

TEST_F(AppletClient, heedsAnAppletControlThatComesLaterAndEveryOneAfterIt) {
    std::vector<LogMessage> expected = startUpMessages();
    for (const int id : {1, 257}) {
        const AppletControl control;
        control.emitAppletChanged(id);
        expected.push_back(appletReceived(id));
        ASSERT_TRUE(service_.waitForOutput(asPrinted(expected)));
    }
    EXPECT_EQ(service_.standardOutput(), asPrinted(expected));
    const AppletControl last;
    last.emitAppletChanged(kQuittingId);
    EXPECT_EQ(service_.waitForEmpty(), exited(0));
}

// The bus refuses the first thing that a new proxy asks for.
constexpr const char* kRefusedActivation =
    R"(<policy context="mandatory"><deny send_type="method_call"
       send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"
       send_member="StartServiceByName"/></policy>)";

TEST(AppletClientWithoutProxy, isMentionedOnceAndTheServiceGoesOnWithoutSignals) {
    const BusPolicy refused(kRefusedActivation);
    SyslogSocket log;
    ServiceProcess service;
    ASSERT_TRUE(service.waitUntilAnswers());
    const AppletControl control;
    control.emitAppletChanged(kQuittingId);
    const SystemBus bus;
    EXPECT_EQ(bus.transfer("GetUSBStickDetails").error, "");
    EXPECT_EQ(bus.call(kControlPath, kControlInterface, "Init").error, "");
    const std::vector<LogMessage> expected =
        joined(startUpMessages(), {infoMessage("Error creating proxy for signal applet-changed"),
                                   infoMessage("Init() Method invoked by DBus\n")});
    ASSERT_TRUE(service.waitForOutput(asPrinted(expected)));
    EXPECT_EQ(service.standardOutput(), asPrinted(expected));
    ASSERT_TRUE(log.waitFor("Init() Method"));
    EXPECT_THAT(log.messages(), ElementsAreArray(expected));
}

}  // namespace
}  // namespace test_support

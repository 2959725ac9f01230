// transferctl watches the service, the sticks and the applets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <optional>

#include "tests/support/bus/bus_daemon.h"
#include "tests/support/bus/fake_service.h"
#include "tests/support/device/device_double.h"
#include "tests/support/device/stick.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/waiting.h"
#include "tests/transferctl/client.h"

namespace test_support {
namespace {

TEST(MonitorCommand, printsALineForEachEventUntilSigint) {
    const DeviceDouble device;
    const AppletControl applets;
    ChildProcess monitor(transferctlCommand({"monitor"}));
    ASSERT_TRUE(monitor.waitForOutput("  service is not there\n"));
    ServiceProcess service({{}, device.environment()});
    ASSERT_TRUE(monitor.waitForOutput("  service runs as :1."));
    {
        const Stick stick(2, {"8m", "/dev/sdb1"});
        ASSERT_TRUE(monitor.waitForOutput("  stick USB_X60.2 plugged, 8.0 MiB, 8.0 MiB free\n"));
    }
    ASSERT_TRUE(monitor.waitForOutput("  stick USB_X60.2 pulled\n"));
    applets.emitAppletChanged(258);
    ASSERT_TRUE(monitor.waitForOutput("  applet 258\n"));
    kill(monitor.id(), SIGINT);
    EXPECT_EQ(monitor.waitForEnd(), exited(0));
    EXPECT_EQ(monitor.standardError(), "");
}

TEST(MonitorCommand, printsJsonForEachEventUntilTheBusGoes) {
    std::optional<BusOutage> outage;
    const DeviceDouble device;
    const Stick stick(1, {"8m", "/dev/sda1"});
    ServiceProcess service({{}, device.environment()});
    ASSERT_TRUE(service.waitUntilAnswers());
    ChildProcess monitor(transferctlCommand({"--json", "monitor"}));
    ASSERT_TRUE(monitor.waitForOutput(",\"event\":\"service-appeared\",\"owner\":\":1."));
    ASSERT_TRUE(monitor.waitForOutput(
        ",\"event\":\"stick-plugged\",\"stick\":{\"name\":\"USB_X60.1\",\"size\":8388608,"
        "\"free\":8388608}}\n"));
    service.stop();
    ASSERT_TRUE(monitor.waitForOutput(",\"event\":\"service-vanished\"}\n"));
    outage.emplace();
    EXPECT_EQ(monitor.waitForEnd(), exited(3));
}

TEST(MonitorCommand, showsTheSticksOfTheNextService) {
    const FakeService::Replies oneStick{
        {"GetUSBStickDetails", {"([<'USB_X60.1'>, <'USB_X60.1'>, <uint64 1>, <uint64 1>],)"}}};
    FakeService first(kServiceName, oneStick);
    ChildProcess monitor(transferctlCommand({"monitor"}));
    ASSERT_TRUE(monitor.waitForOutput(" plugged, "));
    first.leave();
    ASSERT_TRUE(monitor.waitForOutput("service is not there"));
    const FakeService next(kServiceName, oneStick);
    EXPECT_TRUE(eventually(
        [&monitor] {
            const std::string output = monitor.standardOutput();
            return output.rfind(" plugged, ") > output.find("service is not there");
        },
        "the stick is shown again"));
}

TEST(MonitorCommand, exits4WhenTheServiceDoesNotAnswer) {
    const FakeService service(kServiceName);
    const CommandResult result = transferctl({"monitor", "--timeout", "4"});
    EXPECT_EQ(result.end, exited(4));
    EXPECT_THAT(result.output, testing::HasSubstr("  service runs as :1."));
}

}  // namespace
}  // namespace test_support

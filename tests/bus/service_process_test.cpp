// That the bus tests' picture of the running service is true.
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <csignal>
#include <memory>

#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_double.h"
#include "tests/support/device/simulator.h"
#include "tests/support/device/stick.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

using testing::HasSubstr;

TEST(TestedService, isSeenWithItsProcessThreadsAndDescriptors) {
    ServiceProcess service;
    ASSERT_TRUE(service.waitUntilAnswers());
    const std::optional<pid_t> pid = service.processId();
    ASSERT_TRUE(pid);
    EXPECT_EQ(innermostId(*pid), service.commandInside());
    EXPECT_GE(service.threads(), 2);
    EXPECT_THAT(service.openDescriptors(), testing::Contains("/run/lock/com.morvane.transfer.pid"));
    ::kill(*pid, SIGTERM);
    EXPECT_EQ(service.waitForCommandEnd(), killedBy(SIGTERM));
    EXPECT_EQ(service.waitForEmpty(), exited(128 + SIGTERM));
    EXPECT_FALSE(service.processId());
}

TEST(TestedService, isSeenAsADaemonWithTheEndsOfLauncherAndDaemon) {
    ServiceProcess service({{"-d"}, {}, {}, {}, {}});
    ASSERT_TRUE(service.waitUntilAnswers());
    EXPECT_EQ(service.waitForCommandEnd(), exited(0));
    const std::optional<pid_t> daemon = service.processId();
    ASSERT_TRUE(daemon);
    const std::optional<pid_t> inside = innermostId(*daemon);
    ASSERT_TRUE(inside);
    EXPECT_NE(inside, service.commandInside());
    ASSERT_TRUE(service.stop());
    EXPECT_EQ(service.waitForEndOf(*inside), exited(1));
}

TEST(TestedService, thatDoesNotComeUpIsReportedWithWhatItSaid) {
    const SystemBus bus;
    ASSERT_TRUE(bus.ownName(kServiceName));
    ServiceProcess service;
    const testing::AssertionResult result = service.waitUntilAnswers();
    EXPECT_FALSE(result);
    EXPECT_THAT(result.message(), HasSubstr("Could not register servicename on bus"));
    EXPECT_EQ(service.waitForCommandEnd(), exited(2));
}

TEST(TestedService, cannotStartThreadsOnceTheyAreForbidden) {
    if (const std::string reason = whyMemoryIsNotItsOwn(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    const Stick stick(1);
    const DeviceDouble device;
    ServiceProcess service({{}, device.environment(), {}, {}, {}});
    ASSERT_TRUE(service.waitUntilAnswers());
    ASSERT_TRUE(service.forbidThreads());
    const SystemBus bus;
    EXPECT_EQ(bus.transfer("DoBackup", g_variant_new("(sus)", "USB_X60.1", 1U, "a.psb")).text(),
              "(-1,)");
    EXPECT_EQ(bus.transfer("GetUSBStickDetails").type(), "(av)");
}

TEST(TestedService, canBeMadeToObeyFileModes) {
    const Stick stick(1);
    stick.addFile("shut/file");
    ASSERT_EQ(chmod(stick.path("shut").c_str(), 0), 0);
    ServiceProcess service({{}, {}, {}, {}, kWithoutPowers});
    ASSERT_TRUE(service.waitUntilAnswers());
    const SystemBus bus;
    EXPECT_EQ(bus.transfer("DeleteFile", g_variant_new("(ss)", "USB_X60.1", "shut/file")).text(),
              "(false,)");
    EXPECT_TRUE(exists(stick.path("shut/file")));
}

TEST(TestedService, reachesTheSimulatedDeviceManagerWithoutDoubles) {
    const Stick stick(1);
    Simulator simulator;
    ASSERT_TRUE(simulator.waitUntilListens());
    ServiceProcess service;
    ASSERT_TRUE(service.waitUntilAnswers());
    const SystemBus bus;
    EXPECT_EQ(bus.transfer("DoBackup", g_variant_new("(sus)", "USB_X60.1", 2U, "a.psb")).text(),
              "(0,)");
    EXPECT_TRUE(eventually(
        [&] {
            const Reply reply =
                bus.transfer("GetBackupFilesList", g_variant_new("(ss)", "USB_X60.1", ""));
            return reply.text().find("'a.psb'") != std::string::npos;
        },
        "the finished backup is listed"));
    simulator.kill();
    EXPECT_FALSE(deviceManagerListens());
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
TEST(TestedService, failsTheTestWhenASanitizerReports) {
    DeviceDouble device;
    device.order("Vesk.startTransaction", "misuse");
    auto service =
        std::make_unique<ServiceProcess>(ServiceOptions{{}, device.environment(), {}, {}, {}});
    ASSERT_TRUE(service->waitUntilAnswers());
    SystemBus().transfer("GetBackupFileName", g_variant_new("(u)", 1U));
    EXPECT_NONFATAL_FAILURE(service.reset(), "heap-use-after-free");
}
#endif

}  // namespace
}  // namespace test_support

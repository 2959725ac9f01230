// A device manager that refuses, delays, hangs or dies on demand, and sticks pulled during its
// jobs: what the client library hands on, and what is left behind.
#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <future>
#include <string>

#include "simulator/simulated_device.h"
#include "simulator/simulator_behaviour.h"
#include "tests/simulator/device_manager_fixture.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

using testing::HasSubstr;

// A backup on a thread of its own; its result comes with the end. Both have to live that long.
auto beginBackup(IBRController& controller, const std::string& file) {
    return std::async(std::launch::async,
                      [&] { return controller.backup(file.c_str(), "recipes"); });
}

TEST_F(DeviceManagerClient, takesOrdersAsOptions) {
    start({"--refuse", "--report-size", "123", "--delay", "0.001"});
    EXPECT_THAT(order("status"), HasSubstr("refuses connections, acts after 0.001 s, "));
    EXPECT_THAT(order("accept"), HasSubstr("accepts connections, acts at once, "));
    EXPECT_THAT(order("status"), HasSubstr("reports 123 bytes"));
}

TEST_F(DeviceManagerClient, isAnsweredAfterDelay) {
    start();
    const BackupRestore controller = connected();
    order("delay", "0.2");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(controller->checkBackupFile(file_.c_str()), kUnusable);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(200));
}

TEST_F(DeviceManagerClient, waitsWhenDeviceHangsInJob) {
    start({"--job-seconds", "3600"});
    const BackupRestore controller = connected();
    auto job = beginBackup(*controller, file_);
    ASSERT_TRUE(waitUntil([&] { return hasBackupBegun(); }));
    order("hang");
    order("job-seconds", "0");
    order("accept");
    EXPECT_TRUE(simulator_->waitForOutput(": done, "));
    EXPECT_EQ(job.get(), 0);
}

TEST_F(DeviceManagerClient, losesCallWhenItDisconnects) {
    start();
    const auto peer = openConnection(kDeviceManagerEndpoint, nullptr);
    ASSERT_NE(peer, nullptr);
    order("hang");
    g_dbus_connection_call(peer.get(), nullptr, kDeviceManagerObject, kDeviceManagerInterface,
                           "Request",
                           g_variant_new("(s^ay^ay)", "connect", log_.credential->c_str(), ""),
                           nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
    EXPECT_TRUE(simulator_->waitForOutput("connect: waits"));
    g_dbus_connection_close_sync(peer.get(), nullptr, nullptr);
    order("accept");
    EXPECT_TRUE(simulator_->waitForOutput("connect: FAILED (status 1): the caller has gone"));
}

TEST_F(DeviceManagerClient, failsBackupWhenStickIsPulled) {
    Stick stick(1);
    const std::string file = stick.path("a.psb");
    start({"--job-seconds", "3600"});
    const BackupRestore controller = connected();
    auto job = beginBackup(*controller, file);
    ASSERT_TRUE(waitUntil([&] { return exists(file); }));
    stick.pull();
    const Stick other(1);
    writeFile(file, "on another stick");
    order("job-seconds", "0");
    EXPECT_EQ(job.get(), number(DeviceManagerStatus::failed));
    EXPECT_THAT(log_.messages, HasSubstr("the file is gone"));
    EXPECT_EQ(readFile(file), "on another stick");
}

TEST_F(DeviceManagerClient, failsRestoreWhenStickIsPulled) {
    Stick stick(1);
    const std::string file = stick.path("a.psb");
    start();
    const BackupRestore controller = connected();
    ASSERT_EQ(controller->backup(file.c_str(), "recipes"), 0);
    writeFile(recipe(), "changed");
    order("job-seconds", "3600");
    auto job = std::async(std::launch::async, [&] { return controller->restore(file.c_str()); });
    ASSERT_TRUE(waitUntil([&] { return isUnpacking(); }));
    stick.pull();
    order("job-seconds", "0");
    EXPECT_EQ(job.get(), kUnusable);
    EXPECT_THAT(log_.messages, HasSubstr("the file is gone"));
    EXPECT_EQ(readFile(recipe()), "changed");
    EXPECT_FALSE(isUnpacking());
}

TEST_F(DeviceManagerClient, losesDeviceThatDiesInRunningJob) {
    start({"--job-seconds", "3600"});
    const BackupRestore controller = connected();
    auto job = beginBackup(*controller, file_);
    ASSERT_TRUE(waitUntil([&] { return hasBackupBegun(); }));
    order("die-in-job");
    give("job-seconds", "0");  // the device may die before it answers
    EXPECT_EQ(job.get(), kUnreachable);
    EXPECT_EQ(simulator_->waitForEnd(), exited(kDiedInJobStatus));
    EXPECT_EQ(controller->checkBackupFile(file_.c_str()), kUnreachable);
}

TEST_F(DeviceManagerClient, changesNothingWhenDeviceDiesInJob) {
    start();
    ASSERT_EQ(connected()->backup(file_.c_str(), "fullbackup"), 0);
    writeUpdateFile(updateFile_, "2.0");
    writeFile(recipe(), "changed");

    simulator_->kill();
    start({"--die-in-job"});
    EXPECT_EQ(connected()->restore(file_.c_str()), kUnreachable);
    EXPECT_EQ(simulator_->waitForEnd(), exited(kDiedInJobStatus));
    start({"--die-in-job"});
    EXPECT_EQ(connectedUpdate()->update(updateFile_.c_str()), kUnreachable);
    EXPECT_EQ(simulator_->waitForEnd(), exited(kDiedInJobStatus));

    start();
    EXPECT_EQ(readFile(recipe()), "changed");
    EXPECT_EQ(readFile(folder_.path("state/firmware/version")), "1.4.0\n");
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path("state"))) {
        EXPECT_THAT(entry.path().filename().string(), testing::AnyOf("data", "firmware"));
    }
}

TEST_F(DeviceManagerClient, getsOnlyChecksDoneDuringJob) {
    start();
    const BackupRestore controller = connected();
    const std::string small = folder_.path("small.psb");
    ASSERT_EQ(controller->backup(small.c_str(), "userdatabase"), 0);
    order("job-seconds", "3600");
    const BackupRestore worker(BRCreateController());
    ASSERT_EQ(worker->connect(kDeviceManagerEndpoint, log_.credential->c_str()), 0);
    auto job = beginBackup(*worker, file_);
    ASSERT_TRUE(waitUntil([&] { return hasBackupBegun(); }));

    std::uint64_t bytes = 0;
    EXPECT_EQ(controller->checkBackupFile(small.c_str()), 0);
    EXPECT_EQ(controller->getBackupSize("recipes", &bytes), 0);
    EXPECT_EQ(controller->restore(small.c_str()), number(DeviceManagerStatus::busy));
    EXPECT_EQ(controller->backup(small.c_str(), "recipes"), number(DeviceManagerStatus::busy));
    EXPECT_EQ(connectedUpdate()->update(small.c_str()), number(DeviceManagerStatus::busy));
    ::kill(simulator_->id(), SIGTERM);
    EXPECT_NE(job.get(), 0);
}

TEST_F(DeviceManagerClient, losesBackupWhenDeviceStops) {
    start({"--job-seconds", "3600"});
    const BackupRestore controller = connected();
    auto job = beginBackup(*controller, file_);
    ASSERT_TRUE(waitUntil([&] { return hasBackupBegun(); }));
    ::kill(simulator_->id(), SIGTERM);
    EXPECT_EQ(simulator_->waitForEnd(), exited(0));
    EXPECT_NE(job.get(), 0);
    EXPECT_FALSE(exists(file_));
}

}  // namespace
}  // namespace test_support

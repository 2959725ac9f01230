// The stub of the client library and the simulator process, talking to each other.
#include "transfer/platform/device_manager_client.h"

#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/simulated_device.h"
#include "tests/simulator/device_manager_fixture.h"
#include "tests/support/files/files.h"

namespace test_support {
namespace {

using testing::HasSubstr;

TEST_F(DeviceManagerClient, failsToConnectWhenNobodyListens) {
    EXPECT_EQ(backupRestore()->connect(kDeviceManagerEndpoint, ""), kUnreachable);
    EXPECT_THAT(log_.messages, HasSubstr("error connect: "));
    const Update update(FUCreateController());
    EXPECT_EQ(update->connect(kDeviceManagerEndpoint, ""), kUnreachable);
}

TEST_F(DeviceManagerClient, failsToConnectToMalformedEndpoint) {
    const BackupRestore controller = backupRestore();
    for (const char* endpoint :
         {"", ":", "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:70000", "[::1", "a b"}) {
        EXPECT_NE(controller->connect(endpoint, ""), 0) << endpoint;
    }
    EXPECT_NE(controller->connect(nullptr, nullptr), 0);
}

TEST_F(DeviceManagerClient, takesCredentialFromLogObject) {
    start();
    const BackupRestore controller = connected();
    EXPECT_EQ(log_.asked, 1);
    EXPECT_EQ(log_.credential->size(), 64U);
    EXPECT_THAT(log_.messages, HasSubstr("log connect: accepted\n"));
    controller->disconnect();
    EXPECT_THAT(log_.messages, HasSubstr("log disconnect: closed\n"));
}

TEST_F(DeviceManagerClient, isRefusedWithWrongCredential) {
    start();
    const std::string right = *log_.credential;
    const BackupRestore controller = backupRestore();
    for (const auto& wrong : {std::optional<std::string>(), std::optional<std::string>(""),
                              std::optional<std::string>("wrong"), std::optional(right + "x"),
                              std::optional(right.substr(1))}) {
        log_.credential = wrong;
        EXPECT_EQ(controller->connect(kDeviceManagerEndpoint, ""), kRefused);
        EXPECT_EQ(controller->checkBackupFile("/a.psb"), kNotConnected);
    }
    EXPECT_THAT(log_.messages, HasSubstr("readCredential returned -1"));
    log_.credential = right;
    EXPECT_EQ(controller->connect(kDeviceManagerEndpoint, ""), 0);
}

TEST_F(DeviceManagerClient, prefersGivenCredential) {
    start();
    const std::string right = *log_.credential;
    log_.credential = "wrong";
    EXPECT_EQ(backupRestore()->connect(kDeviceManagerEndpoint, right.c_str()), 0);
    EXPECT_EQ(log_.asked, 0);
}

TEST_F(DeviceManagerClient, worksWithoutLogObject) {
    start({"--credential-record="});
    const BackupRestore controller(BRCreateController());
    std::uint64_t bytes = 0;
    EXPECT_EQ(controller->connect(kDeviceManagerEndpoint, ""), 0);
    EXPECT_EQ(controller->getBackupSize("recipes", &bytes), 0);
    EXPECT_EQ(controller->getBackupSize("recipes", nullptr), 0);
    EXPECT_GT(bytes, 0U);
}

TEST_F(DeviceManagerClient, isRefusedWhenRecordIsUnusable) {
    start();
    const BackupRestore controller = backupRestore();
    for (const std::string& record : {std::string("short"), readFile(record_) + "x"}) {
        writeFile(record_, record);
        EXPECT_EQ(controller->connect(kDeviceManagerEndpoint, ""), kRefused);
    }
    std::filesystem::remove(record_);
    EXPECT_EQ(controller->connect(kDeviceManagerEndpoint, ""), kRefused);
}

TEST_F(DeviceManagerClient, connectsWithExistingRecord) {
    const std::string record = std::string(64, 'a') + std::string(64, 'b');
    std::filesystem::create_directories(folder_.path("persistent"));
    writeFile(record_, record);
    start();
    EXPECT_EQ(readFile(record_), record);
    connected();
}

TEST_F(DeviceManagerClient, failsOutsideConnection) {
    start();
    const BackupRestore controller = connected();
    controller->disconnect();
    controller->disconnect();
    std::uint64_t bytes = 7;
    EXPECT_EQ(controller->backup(file_.c_str(), "recipes"), kNotConnected);
    EXPECT_EQ(controller->restore(file_.c_str()), kNotConnected);
    EXPECT_EQ(controller->checkBackupFile(file_.c_str()), kNotConnected);
    EXPECT_EQ(controller->getBackupSize("recipes", &bytes), kNotConnected);
    EXPECT_EQ(bytes, 7U);
    const Update update(FUCreateController());
    EXPECT_EQ(update->update(updateFile_.c_str()), kNotConnected);
    EXPECT_EQ(update->checkFirmwareFile(updateFile_.c_str()), kNotConnected);
}

TEST_F(DeviceManagerClient, isAnsweredAfterConnectOnly) {
    start();
    const auto peer = openConnection(kDeviceManagerEndpoint, nullptr);
    ASSERT_NE(peer, nullptr);
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        peer.get(), nullptr, kDeviceManagerObject, kDeviceManagerInterface, "Request",
        g_variant_new("(s^ay^ay)", "backup", file_.c_str(), "recipes"), G_VARIANT_TYPE("(xst)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    ASSERT_NE(reply, nullptr) << error->message;
    gint64 status = 0;
    g_variant_get_child(reply, 0, "x", &status);
    EXPECT_EQ(status, kNotConnected);
    EXPECT_FALSE(exists(file_));
    g_dbus_connection_close_sync(peer.get(), nullptr, nullptr);
}

TEST_F(DeviceManagerClient, connectsAgain) {
    start();
    const BackupRestore controller = connected();
    EXPECT_EQ(controller->connect(kDeviceManagerEndpoint, ""), 0);
    controller->disconnect();
    EXPECT_EQ(controller->connect(kDeviceManagerEndpoint, ""), 0);
    EXPECT_EQ(controller->checkBackupFile(file_.c_str()), kUnusable);
}

TEST_F(DeviceManagerClient, backsUpChecksAndRestores) {
    start();
    const BackupRestore controller = connected();
    const std::string before = readFile(recipe());
    std::uint64_t bytes = 0;
    EXPECT_EQ(controller->getBackupSize("fullbackup", &bytes), 0);
    EXPECT_EQ(controller->backup(file_.c_str(), "fullbackup"), 0);
    EXPECT_GE(bytes, std::filesystem::file_size(file_));
    EXPECT_EQ(controller->checkBackupFile(file_.c_str()), 0);

    writeFile(recipe(), "changed");
    EXPECT_EQ(controller->restore(file_.c_str()), 0);
    EXPECT_EQ(readFile(recipe()), before);
    EXPECT_TRUE(simulator_->waitForOutput("restore " + file_ + ": done"));
}

TEST_F(DeviceManagerClient, passesRefusalsOn) {
    start();
    const BackupRestore controller = connected();
    std::uint64_t bytes = 7;
    EXPECT_EQ(controller->backup(file_.c_str(), ""), number(DeviceManagerStatus::unknownKind));
    EXPECT_EQ(controller->getBackupSize("", &bytes), number(DeviceManagerStatus::unknownKind));
    EXPECT_EQ(bytes, 7U);
    EXPECT_EQ(controller->restore(file_.c_str()), kUnusable);
    EXPECT_THAT(log_.messages, HasSubstr("error restore: cannot open: No such file"));
}

TEST_F(DeviceManagerClient, takesNullForEmptyString) {
    start();
    const BackupRestore controller = connected();
    EXPECT_NE(controller->backup(nullptr, nullptr), 0);
    EXPECT_NE(controller->restore(nullptr), 0);
    EXPECT_NE(controller->checkBackupFile(nullptr), 0);
    EXPECT_NE(controller->getBackupSize(nullptr, nullptr), 0);
    const Update update = connectedUpdate();
    EXPECT_NE(update->update(nullptr), 0);
    EXPECT_NE(update->checkFirmwareFile(nullptr), 0);
}

TEST_F(DeviceManagerClient, passesAnyBytesInFileNames) {
    start();
    const std::string path = folder_.path("\xFF\x1B[31m\n'\".psb");
    const BackupRestore controller = connected();
    EXPECT_EQ(controller->backup(path.c_str(), "recipes"), 0);
    EXPECT_EQ(controller->checkBackupFile(path.c_str()), 0);
    EXPECT_TRUE(simulator_->waitForOutput("\\377\\033[31m\\n'\".psb recipes: done"));
}

TEST_F(DeviceManagerClient, updatesFirmware) {
    writeUpdateFile(updateFile_, "2.0");
    start();
    const Update controller = connectedUpdate();
    EXPECT_EQ(controller->checkFirmwareFile(updateFile_.c_str()), 0);
    EXPECT_EQ(controller->update(updateFile_.c_str()), 0);
    EXPECT_EQ(readFile(folder_.path("state/firmware/version")), "2.0\n");
    EXPECT_EQ(controller->checkFirmwareFile(updateFile_.c_str()), kUnusable);
    controller->disconnect();
}

TEST_F(DeviceManagerClient, findsOneSimulatorOnPort) {
    start();
    const auto second = runCommand(
        runnable(simulatorPath_, {"--state", folder_.path("second"), "--credential-record="}));
    EXPECT_EQ(second.end, exited(1));
    EXPECT_THAT(second.error,
                testing::MatchesRegex("device-manager-simulator: [^\n]*5001[^\n]*\n"));
    EXPECT_FALSE(exists(folder_.path("second")));
}

TEST_F(DeviceManagerClient, connectsToFreePortOfSimulator) {
    const ChildProcess simulator(runnable(
        simulatorPath_, {"--state", folder_.path("a"), "--credential-record=", "--port", "0"}));
    ASSERT_TRUE(simulator.waitForOutput(", state in "));
    const std::string output = simulator.standardOutput();
    const std::size_t begin = output.find("127.0.0.1:");
    const std::string endpoint = output.substr(begin, output.find(',', begin) - begin);
    EXPECT_NE(endpoint, "127.0.0.1:0");
    EXPECT_EQ(backupRestore()->connect(endpoint.c_str(), ""), 0) << endpoint;
}

TEST(DeviceManagerSimulator, refusesWrongOptions) {
    const TemporaryDirectory folder;
    writeFile(folder.path("file"), "");
    const std::vector<std::pair<std::vector<std::string>, int>> cases = {
        {{"--nonsense"}, 2},
        {{"stray"}, 2},
        {{"--port", "70000"}, 2},
        {{"--job-seconds", "-1"}, 2},
        {{"--make-update", "1.0"}, 2},
        {{"--order", "delay", "soon"}, 2},
        {{"--order", "delay", "1", "2"}, 2},
        {{"--order", "status"}, 1},
        {{"--set-name", "a\xFF", "--state", folder.path("state")}, 1},
        {{"--print-name", "--state", folder.path("missing")}, 1},
        {{"--make-update", "new", folder.path("a.fwf")}, 1},
        {{"--make-update", "1.0", folder.path("missing/a.fwf")}, 1},
        {{"--credential-record=", "--state", folder.path("file")}, 1},
        {{"--credential-record", folder.path("file/record"), "--state", folder.path("state")}, 1},
    };
    for (const auto& [options, status] : cases) {
        const auto result = runCommand(runnable(buildPath("device-manager-simulator"), options));
        EXPECT_EQ(result.end, exited(status)) << testing::PrintToString(options);
        EXPECT_THAT(result.error, testing::MatchesRegex("device-manager-simulator: [^\n]+\n"));
    }
}

}  // namespace
}  // namespace test_support

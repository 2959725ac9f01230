// The ground of the tests of client library and simulator.
#include "tests/simulator/device_manager_fixture.h"

#include <filesystem>

namespace test_support {
namespace {

G_GNUC_PRINTF(1, 0) std::string print(const char* format, std::va_list arguments) {
    g_autofree char* text = g_strdup_vprintf(format, arguments);
    return std::string(text) + "\n";
}

}  // namespace

void RecordingLog::log(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    messages += "log " + print(format, arguments);
    va_end(arguments);
}

void RecordingLog::logError(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    messages += "error " + print(format, arguments);
    va_end(arguments);
}

int RecordingLog::readCredential(const char** out) {
    ++asked;
    if (!credential) {
        return -1;
    }
    *out = credential->c_str();
    return 0;
}

void DeviceManagerClient::start(const std::vector<std::string>& options) {
    std::vector<std::string> all = {"--state", folder_.path("state"), "--credential-record",
                                    record_,   "--job-seconds",       "0"};
    all.insert(all.end(), options.begin(), options.end());
    simulator_.emplace(runnable(simulatorPath_, all));
    ASSERT_TRUE(simulator_->waitForOutput(std::string("listens on ") + kDeviceManagerEndpoint));
    const std::string record = readFile(record_);
    log_.credential = record.substr(record.size() / 2);
}

BackupRestore DeviceManagerClient::backupRestore() {
    BackupRestore controller(BRCreateController());
    controller->setWorkDirectory("/tmp");
    controller->setLog(&log_);
    return controller;
}

BackupRestore DeviceManagerClient::connected() {
    BackupRestore controller = backupRestore();
    EXPECT_EQ(controller->connect(kDeviceManagerEndpoint, ""), 0) << log_.messages;
    return controller;
}

Update DeviceManagerClient::connectedUpdate() {
    Update controller(FUCreateController());
    controller->setWorkDirectory("/tmp");
    controller->setLog(&log_);
    EXPECT_EQ(controller->connect(kDeviceManagerEndpoint, ""), 0) << log_.messages;
    return controller;
}

CommandResult DeviceManagerClient::give(const std::string& order, const std::string& value) const {
    std::vector<std::string> options = {"--order", order};
    if (!value.empty()) {
        options.push_back(value);
    }
    return runCommand(runnable(simulatorPath_, options));
}

std::string DeviceManagerClient::order(const std::string& order, const std::string& value) const {
    const auto result = give(order, value);
    EXPECT_EQ(result.end, exited(0)) << result.error;
    return result.output;
}

bool DeviceManagerClient::hasBackupBegun() const {
    std::error_code missing;
    const auto size = std::filesystem::file_size(file_, missing);
    return !missing && size > 0;
}

bool DeviceManagerClient::isUnpacking() const {
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path("state"))) {
        if (exists(entry.path() / "data/recipes")) {
            return true;
        }
    }
    return false;
}

}  // namespace test_support

// The ground of the tests of client library and simulator: a simulator process with a state folder,
// controllers that talk to it, and the log object that they are given.
#pragma once

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/device_error.h"
#include "simulator/peer_protocol.h"
#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/child_process.h"
#include "transfer/contract.h"
#include "transfer/platform/device_manager_client.h"

namespace test_support {

inline constexpr std::int64_t kUnreachable = number(DeviceManagerStatus::unreachable);
inline constexpr std::int64_t kNotConnected = number(DeviceManagerStatus::notConnected);
inline constexpr std::int64_t kRefused = number(DeviceManagerStatus::refused);
inline constexpr std::int64_t kUnusable = number(DeviceManagerStatus::unusableFile);

// Keeps what the library says, and offers a credential.
class RecordingLog final : public IBRLog {
public:
    G_GNUC_PRINTF(2, 3) void log(const char* format, ...) override {
        std::va_list arguments;
        va_start(arguments, format);
        record("log ", format, arguments);
        va_end(arguments);
    }
    G_GNUC_PRINTF(2, 3) void logError(const char* format, ...) override {
        std::va_list arguments;
        va_start(arguments, format);
        record("error ", format, arguments);
        va_end(arguments);
    }
    int readCredential(const char** out) override {
        ++asked;
        if (!credential) {
            return -1;
        }
        *out = credential->c_str();
        return 0;
    }
    void reserved1() override {}
    void reserved2() override {}
    void reserved3() override {}
    void reserved5() override {}

    std::optional<std::string> credential;
    std::string messages;
    int asked = 0;

private:
    G_GNUC_PRINTF(3, 0)
    void record(const char* kind, const char* format, std::va_list arguments) {
        g_autofree char* text = g_strdup_vprintf(format, arguments);
        messages += std::string(kind) + text + "\n";
    }
};

struct ControllerDestroy {
    void operator()(IBRController* controller) const { BRDestroyController(controller); }
    void operator()(IFUController* controller) const { FUDestroyController(controller); }
};
using BackupRestore = std::unique_ptr<IBRController, ControllerDestroy>;
using Update = std::unique_ptr<IFUController, ControllerDestroy>;

class DeviceManagerClient : public testing::Test {
protected:
    // Starts the simulator, with these options besides its own, and takes over its credential.
    void start(const std::vector<std::string>& options = {}) {
        std::vector<std::string> all = {"--state", folder_.path("state"), "--credential-record",
                                        record_,   "--job-seconds",       "0"};
        all.insert(all.end(), options.begin(), options.end());
        simulator_.emplace(runnable(simulatorPath_, all));
        ASSERT_TRUE(simulator_->waitForOutput(std::string("listens on ") + kDeviceManagerEndpoint));
        const std::string record = readFile(record_);
        log_.credential = record.substr(record.size() / 2);
    }

    BackupRestore backupRestore() {
        BackupRestore controller(BRCreateController());
        controller->setWorkDirectory("/tmp");
        controller->setLog(&log_);
        return controller;
    }
    BackupRestore connected() {
        BackupRestore controller = backupRestore();
        EXPECT_EQ(controller->connect(kDeviceManagerEndpoint, ""), 0) << log_.messages;
        return controller;
    }
    Update connectedUpdate() {
        Update controller(FUCreateController());
        controller->setWorkDirectory("/tmp");
        controller->setLog(&log_);
        EXPECT_EQ(controller->connect(kDeviceManagerEndpoint, ""), 0) << log_.messages;
        return controller;
    }

    // Gives the running simulator an order.
    CommandResult give(const std::string& order, const std::string& value) const {
        return runCommand(runnable(simulatorPath_, {"--order", order, value}));
    }
    // The same, but the order has to be taken; returns what it says about its behaviour.
    std::string order(const std::string& order, const std::string& value = "") const {
        const auto result = give(order, value);
        EXPECT_EQ(result.end, exited(0)) << result.error;
        return result.output;
    }

    // Whether a backup has begun to write its file, or a restore to write beside the contents.
    bool hasBackupBegun() const {
        std::error_code missing;
        const auto size = std::filesystem::file_size(file_, missing);
        return !missing && size > 0;
    }
    bool isUnpacking() const {
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path("state"))) {
            if (exists(entry.path() / "data/recipes")) {
                return true;
            }
        }
        return false;
    }

    std::string recipe() const { return folder_.path("state/data/recipes/recipe-1.ini"); }

    const TemporaryDirectory folder_;
    const std::string simulatorPath_ = buildPath("device-manager-simulator");
    const std::string record_ = folder_.path("persistent/record");
    const std::string file_ = folder_.path("a.psb");
    const std::string updateFile_ = folder_.path("a.fwf");
    RecordingLog log_;
    std::optional<ChildProcess> simulator_;
};

}  // namespace test_support

// The ground of the tests of client library and simulator: a simulator process with a state folder,
// controllers that talk to it, and the log object that they are given.
#pragma once

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
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
    G_GNUC_PRINTF(2, 3) void log(const char* format, ...) override;
    G_GNUC_PRINTF(2, 3) void logError(const char* format, ...) override;
    int readCredential(const char** out) override;
    void reserved1() override {}
    void reserved2() override {}
    void reserved3() override {}
    void reserved5() override {}

    std::optional<std::string> credential;
    std::string messages;
    int asked = 0;
};

struct BackupRestoreDestroy {
    void operator()(IBRController* controller) const { BRDestroyController(controller); }
};
struct UpdateDestroy {
    void operator()(IFUController* controller) const { FUDestroyController(controller); }
};
using BackupRestore = std::unique_ptr<IBRController, BackupRestoreDestroy>;
using Update = std::unique_ptr<IFUController, UpdateDestroy>;

class DeviceManagerClient : public testing::Test {
protected:
    // Starts the simulator, with these options besides its own, and takes over its credential.
    void start(const std::vector<std::string>& options = {});

    BackupRestore backupRestore();
    BackupRestore connected();
    Update connectedUpdate();

    CommandResult give(const std::string& order, const std::string& value) const;
    // Gives the running simulator an order; returns what it says about its behaviour.
    std::string order(const std::string& order, const std::string& value = "") const;

    // Whether a backup has begun to write its file, or a restore to write beside the contents.
    bool hasBackupBegun() const;
    bool isUnpacking() const;

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

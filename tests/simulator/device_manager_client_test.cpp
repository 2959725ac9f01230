// The stand-in client library and the simulator process, talking to each other.
#include "platform/device_manager_client.h"

#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdarg>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "simulator/device_manager_status.h"
#include "simulator/gobject_pointer.h"
#include "simulator/peer_protocol.h"
#include "tests/support/child_process.h"
#include "tests/support/files.h"
#include "tests/support/paths.h"
#include "tests/support/stick.h"
#include "tests/support/waiting.h"

namespace {

using test_support::ChildProcess;
using test_support::exited;
using test_support::readFile;
using test_support::TemporaryDirectory;
using test_support::writeFile;
using testing::HasSubstr;

constexpr const char* kEndpoint = "127.0.0.1:5001";

constexpr std::int64_t number(DeviceManagerStatus status) {
    return static_cast<std::int64_t>(status);
}
constexpr std::int64_t kUnreachable = number(DeviceManagerStatus::unreachable);
constexpr std::int64_t kNotConnected = number(DeviceManagerStatus::notConnected);
constexpr std::int64_t kRefused = number(DeviceManagerStatus::refused);
constexpr std::int64_t kUnusable = number(DeviceManagerStatus::unusableFile);

// Keeps what the library says, and offers a credential.
class RecordingLog final : public IBRLog {
public:
    G_GNUC_PRINTF(2, 3) void log(const char* format, ...) override {
        std::va_list arguments;
        va_start(arguments, format);
        messages += "log " + print(format, arguments);
        va_end(arguments);
    }
    G_GNUC_PRINTF(2, 3) void logError(const char* format, ...) override {
        std::va_list arguments;
        va_start(arguments, format);
        messages += "error " + print(format, arguments);
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
    G_GNUC_PRINTF(1, 0) static std::string print(const char* format, std::va_list arguments) {
        g_autofree char* text = g_strdup_vprintf(format, arguments);
        return std::string(text) + "\n";
    }
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
    void start(const std::vector<std::string>& options = {}) {
        std::vector<std::string> all = {"--state", folder_.path("state"), "--credential-record",
                                        record_,   "--job-seconds",       "0"};
        all.insert(all.end(), options.begin(), options.end());
        simulator_.emplace(test_support::runnable(simulatorPath_, all));
        ASSERT_TRUE(simulator_->waitForOutput("listens on 127.0.0.1:5001"));
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
        EXPECT_EQ(controller->connect(kEndpoint, ""), 0) << log_.messages;
        return controller;
    }
    Update connectedUpdate() {
        Update controller(FUCreateController());
        controller->setWorkDirectory("/tmp");
        controller->setLog(&log_);
        EXPECT_EQ(controller->connect(kEndpoint, ""), 0) << log_.messages;
        return controller;
    }

    void makeUpdateFile() const {
        const auto made = test_support::runCommand(
            test_support::runnable(simulatorPath_, {"--make-update", "2.0", updateFile_}));
        ASSERT_EQ(made.end, exited(0)) << made.error;
    }

    test_support::CommandResult give(const std::string& order, const std::string& value) const {
        std::vector<std::string> options = {"--order", order};
        if (!value.empty()) {
            options.push_back(value);
        }
        return test_support::runCommand(test_support::runnable(simulatorPath_, options));
    }
    // Gives the running simulator an order; returns what it says about its behaviour.
    std::string order(const std::string& order, const std::string& value = "") const {
        const auto result = give(order, value);
        EXPECT_EQ(result.end, exited(0)) << result.error;
        return result.output;
    }

    // A connection without the client library, which would not let everything through.
    static GObjectPointer<GDBusConnection> openPeer() {
        g_autoptr(GError) error = nullptr;
        GObjectPointer<GDBusConnection> peer(g_dbus_connection_new_for_address_sync(
            "tcp:host=127.0.0.1,port=5001", G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT,
            anonymousOnly().get(), nullptr, &error));
        EXPECT_NE(peer, nullptr) << error->message;
        return peer;
    }

    // Whether a restore has begun to write beside the contents.
    bool isUnpacking() const {
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path("state"))) {
            if (test_support::exists(entry.path() / "data/recipes")) {
                return true;
            }
        }
        return false;
    }

    std::string recipe() const { return folder_.path("state/data/recipes/recipe-1.ini"); }

    const TemporaryDirectory folder_;
    const std::string simulatorPath_ = test_support::buildPath("device-manager-simulator");
    const std::string record_ = folder_.path("persistent/record");
    const std::string file_ = folder_.path("a.psb");
    const std::string updateFile_ = folder_.path("a.fwf");
    RecordingLog log_;
    std::optional<ChildProcess> simulator_;
};

TEST_F(DeviceManagerClient, CannotConnectWhenNobodyListens) {
    EXPECT_EQ(backupRestore()->connect(kEndpoint, ""), kUnreachable);
    EXPECT_THAT(log_.messages, HasSubstr("error connect: "));
    const Update update(FUCreateController());
    EXPECT_EQ(update->connect(kEndpoint, ""), kUnreachable);
}

TEST_F(DeviceManagerClient, CannotConnectToWhatIsNoEndpoint) {
    const BackupRestore controller = backupRestore();
    for (const char* endpoint :
         {"", ":", "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:70000", "[::1", "a b"}) {
        EXPECT_NE(controller->connect(endpoint, ""), 0) << endpoint;
    }
    EXPECT_NE(controller->connect(nullptr, nullptr), 0);
}

TEST_F(DeviceManagerClient, TakesTheCredentialFromTheLogObject) {
    start();
    const BackupRestore controller = connected();
    EXPECT_EQ(log_.asked, 1);
    EXPECT_EQ(log_.credential->size(), 64U);
    EXPECT_THAT(log_.messages, HasSubstr("log connect: accepted\n"));
    controller->disconnect();
    EXPECT_THAT(log_.messages, HasSubstr("log disconnect: closed\n"));
}

TEST_F(DeviceManagerClient, IsRefusedWithoutTheRightCredential) {
    start();
    const std::string right = *log_.credential;
    const BackupRestore controller = backupRestore();
    for (const auto& wrong : {std::optional<std::string>(), std::optional<std::string>(""),
                              std::optional<std::string>("wrong"), std::optional(right + "x"),
                              std::optional(right.substr(1))}) {
        log_.credential = wrong;
        EXPECT_EQ(controller->connect(kEndpoint, ""), kRefused);
        EXPECT_EQ(controller->checkBackupFile("/a.psb"), kNotConnected);
    }
    EXPECT_THAT(log_.messages, HasSubstr("readCredential returned -1"));
    log_.credential = right;
    EXPECT_EQ(controller->connect(kEndpoint, ""), 0);
}

TEST_F(DeviceManagerClient, PrefersAGivenCredentialToTheLogObjects) {
    start();
    const std::string right = *log_.credential;
    log_.credential = "wrong";
    EXPECT_EQ(backupRestore()->connect(kEndpoint, right.c_str()), 0);
    EXPECT_EQ(log_.asked, 0);
}

TEST_F(DeviceManagerClient, WorksWithoutALogObjectWhereNoCredentialIsAskedFor) {
    start({"--credential-record="});
    const BackupRestore controller(BRCreateController());
    std::uint64_t bytes = 0;
    EXPECT_EQ(controller->connect(kEndpoint, ""), 0);
    EXPECT_EQ(controller->getBackupSize("recipes", &bytes), 0);
    EXPECT_EQ(controller->getBackupSize("recipes", nullptr), 0);
    EXPECT_GT(bytes, 0U);
}

TEST_F(DeviceManagerClient, IsRefusedWhenTheRecordIsGoneOrNoRecord) {
    start();
    const BackupRestore controller = backupRestore();
    for (const std::string& record : {std::string("short"), readFile(record_) + "x"}) {
        writeFile(record_, record);
        EXPECT_EQ(controller->connect(kEndpoint, ""), kRefused);
    }
    std::filesystem::remove(record_);
    EXPECT_EQ(controller->connect(kEndpoint, ""), kRefused);
}

TEST_F(DeviceManagerClient, AnExistingRecordIsKept) {
    const std::string record = std::string(64, 'a') + std::string(64, 'b');
    std::filesystem::create_directories(folder_.path("persistent"));
    writeFile(record_, record);
    start();
    EXPECT_EQ(readFile(record_), record);
    connected();
}

TEST_F(DeviceManagerClient, CallsOutsideAConnectionFail) {
    start();
    const BackupRestore controller = backupRestore();
    const auto allFail = [&] {
        std::uint64_t bytes = 7;
        EXPECT_EQ(controller->backup(file_.c_str(), "recipes"), kNotConnected);
        EXPECT_EQ(controller->restore(file_.c_str()), kNotConnected);
        EXPECT_EQ(controller->checkBackupFile(file_.c_str()), kNotConnected);
        EXPECT_EQ(controller->getBackupSize("recipes", &bytes), kNotConnected);
        EXPECT_EQ(bytes, 7U);
    };
    controller->disconnect();
    allFail();
    EXPECT_EQ(controller->connect(kEndpoint, ""), 0);
    controller->disconnect();
    controller->disconnect();
    allFail();

    const Update update(FUCreateController());
    EXPECT_EQ(update->update(updateFile_.c_str()), kNotConnected);
    EXPECT_EQ(update->checkFirmwareFile(updateFile_.c_str()), kNotConnected);
}

TEST_F(DeviceManagerClient, TheSimulatorItselfAnswersAfterConnectOnly) {
    start();
    const GObjectPointer<GDBusConnection> peer = openPeer();
    ASSERT_NE(peer, nullptr);
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        peer.get(), nullptr, kDeviceManagerObject, "com.morvane.devicemanager", "Backup",
        g_variant_new("(^ay^ay)", file_.c_str(), "recipes"), G_VARIANT_TYPE("(xs)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    ASSERT_NE(reply, nullptr) << error->message;
    gint64 status = 0;
    g_variant_get_child(reply, 0, "x", &status);
    EXPECT_EQ(status, kNotConnected);
    EXPECT_FALSE(test_support::exists(file_));
    g_dbus_connection_close_sync(peer.get(), nullptr, nullptr);
}

TEST_F(DeviceManagerClient, ConnectsAgain) {
    start();
    const BackupRestore controller = connected();
    EXPECT_EQ(controller->connect(kEndpoint, ""), 0);
    controller->disconnect();
    EXPECT_EQ(controller->connect(kEndpoint, ""), 0);
    EXPECT_EQ(controller->checkBackupFile(file_.c_str()), kUnusable);
}

TEST_F(DeviceManagerClient, BacksUpChecksAndRestores) {
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
    EXPECT_TRUE(simulator_->waitForOutput("restore from " + file_ + ": done"));
}

TEST_F(DeviceManagerClient, RefusalsOfTheDeviceAreHandedOn) {
    start();
    const BackupRestore controller = connected();
    std::uint64_t bytes = 7;
    EXPECT_EQ(controller->backup(file_.c_str(), ""), number(DeviceManagerStatus::unknownKind));
    EXPECT_EQ(controller->getBackupSize("", &bytes), number(DeviceManagerStatus::unknownKind));
    EXPECT_EQ(bytes, 7U);
    EXPECT_EQ(controller->restore(file_.c_str()), kUnusable);
    EXPECT_THAT(log_.messages, HasSubstr("error restore: cannot open: No such file"));
}

TEST_F(DeviceManagerClient, NullTextsCountAsEmpty) {
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

TEST_F(DeviceManagerClient, FileNamesMayHoldAnyBytes) {
    start();
    const std::string path = folder_.path("\xFF\x1B[31m\n'\".psb");
    const BackupRestore controller = connected();
    EXPECT_EQ(controller->backup(path.c_str(), "recipes"), 0);
    EXPECT_EQ(controller->checkBackupFile(path.c_str()), 0);
    EXPECT_TRUE(simulator_->waitForOutput("\\xff\\x1b[31m\\x0a'\".psb: done"));
}

TEST_F(DeviceManagerClient, Updates) {
    makeUpdateFile();
    start();
    const Update controller = connectedUpdate();
    EXPECT_EQ(controller->checkFirmwareFile(updateFile_.c_str()), 0);
    EXPECT_EQ(controller->update(updateFile_.c_str()), 0);
    EXPECT_EQ(readFile(folder_.path("state/firmware/version")), "2.0\n");
    EXPECT_EQ(controller->checkFirmwareFile(updateFile_.c_str()), kUnusable);
    controller->disconnect();
}

TEST_F(DeviceManagerClient, DestroysANullUpdateController) {
    FUDestroyController(nullptr);
    EXPECT_NE(Update(FUCreateController()), nullptr);
}

TEST_F(DeviceManagerClient, SeparateControllersWorkOnSeparateThreads) {
    start();
    const std::string credential = *log_.credential;
    const BackupRestore first = connected();
    ASSERT_EQ(first->backup(file_.c_str(), "userdatabase"), 0);
    std::vector<std::thread> threads;
    threads.reserve(6);
    for (int i = 0; i < 6; ++i) {
        threads.emplace_back([&] {
            RecordingLog log;
            log.credential = credential;
            for (int round = 0; round < 5; ++round) {
                const BackupRestore controller(BRCreateController());
                controller->setLog(&log);
                std::uint64_t bytes = 0;
                EXPECT_EQ(controller->connect(kEndpoint, ""), 0) << log.messages;
                EXPECT_EQ(controller->checkBackupFile(file_.c_str()), 0);
                EXPECT_EQ(controller->getBackupSize("userdatabase", &bytes), 0);
                controller->disconnect();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(DeviceManagerClient, IsRefusedOnDemand) {
    start({"--refuse"});
    EXPECT_EQ(backupRestore()->connect(kEndpoint, ""), kRefused);
}

TEST_F(DeviceManagerClient, GetsTheReportedSize) {
    start({"--report-size", "123456789012"});
    std::uint64_t bytes = 0;
    EXPECT_EQ(connected()->getBackupSize("recipes", &bytes), 0);
    EXPECT_EQ(bytes, 123456789012U);
}

TEST_F(DeviceManagerClient, WaitsAsLongAsTheDeviceDelays) {
    start({"--delay-ms", "200"});
    const BackupRestore controller = connected();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(controller->checkBackupFile(file_.c_str()), kUnusable);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(200));
}

TEST_F(DeviceManagerClient, JobsTakeTheirTimeAtLeast) {
    start({"--job-seconds", "0.3"});
    makeUpdateFile();
    const BackupRestore controller = connected();
    const Update update = connectedUpdate();
    for (const auto& job :
         {std::function<std::int64_t()>(
              [&] { return controller->backup(file_.c_str(), "userdatabase"); }),
          std::function<std::int64_t()>([&] { return controller->restore(file_.c_str()); }),
          std::function<std::int64_t()>([&] { return update->update(updateFile_.c_str()); })}) {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(job(), 0);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
    }
}

TEST_F(DeviceManagerClient, FollowsOrdersWhileItRuns) {
    start();
    EXPECT_THAT(order("refuse"), HasSubstr("refuses connections"));
    EXPECT_TRUE(simulator_->waitForOutput("device manager: refuses connections"));
    EXPECT_EQ(backupRestore()->connect(kEndpoint, ""), kRefused);
    EXPECT_THAT(order("accept"), HasSubstr("accepts connections"));
    const BackupRestore controller = connected();

    std::uint64_t real = 0;
    std::uint64_t bytes = 0;
    EXPECT_EQ(controller->getBackupSize("recipes", &real), 0);
    order("report-size", "123456789012");
    EXPECT_EQ(controller->getBackupSize("recipes", &bytes), 0);
    EXPECT_EQ(bytes, 123456789012U);
    order("real-size");
    EXPECT_EQ(controller->getBackupSize("recipes", &bytes), 0);
    EXPECT_EQ(bytes, real);

    order("delay", "0.2");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(controller->checkBackupFile(file_.c_str()), kUnusable);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(200));
}

TEST_F(DeviceManagerClient, CallsThatHangGoOnOnceTheHangIsLifted) {
    start({"--hang"});
    const BackupRestore controller = backupRestore();
    auto call = std::async(std::launch::async, [&] { return controller->connect(kEndpoint, ""); });
    EXPECT_TRUE(simulator_->waitForOutput("connect: waits, the device manager hangs"));
    EXPECT_THAT(order("status"), HasSubstr("hangs"));
    order("accept");
    EXPECT_EQ(call.get(), 0);

    order("hang");
    auto size = std::async(std::launch::async,
                           [&] { return controller->getBackupSize("recipes", nullptr); });
    EXPECT_TRUE(simulator_->waitForOutput("size of backup recipes: waits"));
    order("accept");
    EXPECT_EQ(size.get(), 0);
}

TEST_F(DeviceManagerClient, AHangHoldsUpARunningJob) {
    start({"--job-seconds", "3600"});
    const BackupRestore controller = connected();
    auto job = std::async(std::launch::async,
                          [&] { return controller->backup(file_.c_str(), "recipes"); });
    ASSERT_TRUE(test_support::waitUntil(
        [&] { return test_support::exists(file_) && std::filesystem::file_size(file_) > 0; }));
    order("hang");
    order("job-seconds", "0");
    EXPECT_FALSE(simulator_->standardOutput().find(": done, ") != std::string::npos);
    order("accept");
    EXPECT_EQ(job.get(), 0);
}

TEST_F(DeviceManagerClient, CanBeToldInAJobToDie) {
    start({"--job-seconds", "3600"});
    const BackupRestore controller = connected();
    auto job = std::async(std::launch::async,
                          [&] { return controller->backup(file_.c_str(), "recipes"); });
    EXPECT_TRUE(simulator_->waitForOutput("backup recipes to " + file_ + ": started"));
    order("die-in-job");
    give("job-seconds", "0");  // may die before it has answered
    EXPECT_EQ(job.get(), kUnreachable);
    EXPECT_EQ(simulator_->waitForEnd(), exited(3));
}

TEST_F(DeviceManagerClient, DropsWhatACallerThatHasGoneHadAskedFor) {
    start();
    const GObjectPointer<GDBusConnection> peer = openPeer();
    ASSERT_NE(peer, nullptr);
    order("hang");
    g_dbus_connection_call(peer.get(), nullptr, kDeviceManagerObject, "com.morvane.devicemanager",
                           "Connect", g_variant_new("(^ay)", log_.credential->c_str()), nullptr,
                           G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
    EXPECT_TRUE(simulator_->waitForOutput("connect: waits"));
    g_dbus_connection_close_sync(peer.get(), nullptr, nullptr);
    order("accept");
    EXPECT_TRUE(simulator_->waitForOutput("connect: FAILED (status 1): the caller has gone"));
}

TEST_F(DeviceManagerClient, ABackupFailsWhenItsStickIsPulled) {
    test_support::Stick stick(1);
    const std::string file = stick.path("a.psb");
    start({"--job-seconds", "3600"});
    const BackupRestore controller = connected();
    auto job =
        std::async(std::launch::async, [&] { return controller->backup(file.c_str(), "recipes"); });
    ASSERT_TRUE(test_support::waitUntil([&] { return test_support::exists(file); }));
    stick.pull();
    const test_support::Stick other(1);
    writeFile(file, "on another stick");
    order("job-seconds", "0");
    EXPECT_EQ(job.get(), number(DeviceManagerStatus::failed));
    EXPECT_THAT(log_.messages, HasSubstr("the file is gone"));
    EXPECT_EQ(readFile(file), "on another stick");
}

TEST_F(DeviceManagerClient, ARestoreFailsWhenItsStickIsPulledAndChangesNothing) {
    test_support::Stick stick(1);
    const std::string file = stick.path("a.psb");
    start();
    const BackupRestore controller = connected();
    ASSERT_EQ(controller->backup(file.c_str(), "recipes"), 0);
    writeFile(recipe(), "changed");
    order("job-seconds", "3600");
    auto job = std::async(std::launch::async, [&] { return controller->restore(file.c_str()); });
    ASSERT_TRUE(test_support::waitUntil([&] { return isUnpacking(); }));
    stick.pull();
    order("job-seconds", "0");
    EXPECT_EQ(job.get(), kUnusable);
    EXPECT_THAT(log_.messages, HasSubstr("the file is gone"));
    EXPECT_EQ(readFile(recipe()), "changed");
}

TEST_F(DeviceManagerClient, FailsWhenTheDeviceHangsAndThenDies) {
    start({"--hang"});
    std::thread end([&] {
        EXPECT_TRUE(simulator_->waitForOutput("connect: waits, the device manager hangs"));
        ::kill(simulator_->id(), SIGKILL);
    });
    EXPECT_EQ(backupRestore()->connect(kEndpoint, ""), kUnreachable);
    end.join();
}

TEST_F(DeviceManagerClient, FailsWhenTheDeviceDiesInAJob) {
    start({"--die-in-job"});
    const BackupRestore controller = connected();
    EXPECT_EQ(controller->backup(file_.c_str(), "fullbackup"), kUnreachable);
    EXPECT_EQ(simulator_->waitForEnd(), exited(3));
    EXPECT_EQ(controller->checkBackupFile(file_.c_str()), kUnreachable);
    EXPECT_GT(std::filesystem::file_size(file_), 0U);

    start();
    EXPECT_EQ(connected()->checkBackupFile(file_.c_str()), kUnusable);
}

TEST_F(DeviceManagerClient, DeathInARestoreOrUpdateChangesNothing) {
    start();
    ASSERT_EQ(connected()->backup(file_.c_str(), "fullbackup"), 0);
    makeUpdateFile();
    writeFile(recipe(), "changed");

    simulator_->kill();
    start({"--die-in-job"});
    EXPECT_EQ(connected()->restore(file_.c_str()), kUnreachable);
    EXPECT_EQ(simulator_->waitForEnd(), exited(3));
    start({"--die-in-job"});
    EXPECT_EQ(connectedUpdate()->update(updateFile_.c_str()), kUnreachable);
    EXPECT_EQ(simulator_->waitForEnd(), exited(3));

    start();
    EXPECT_EQ(readFile(recipe()), "changed");
    EXPECT_EQ(readFile(folder_.path("state/firmware/version")), "1.4.0\n");
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path("state"))) {
        EXPECT_THAT(entry.path().filename().string(), testing::AnyOf("data", "firmware"));
    }
}

TEST_F(DeviceManagerClient, ChecksAreAnsweredWhileAJobRuns) {
    start();
    const std::string small = folder_.path("small.psb");
    ASSERT_EQ(connected()->backup(small.c_str(), "userdatabase"), 0);
    simulator_->kill();
    start({"--job-seconds", "3600"});

    RecordingLog jobLog;
    jobLog.credential = log_.credential;
    const BackupRestore worker(BRCreateController());
    worker->setLog(&jobLog);
    ASSERT_EQ(worker->connect(kEndpoint, ""), 0);
    auto job =
        std::async(std::launch::async, [&] { return worker->backup(file_.c_str(), "fullbackup"); });
    EXPECT_TRUE(simulator_->waitForOutput("backup fullbackup to " + file_ + ": started"));

    const BackupRestore controller = connected();
    EXPECT_EQ(controller->checkBackupFile(small.c_str()), 0);
    EXPECT_EQ(controller->restore(small.c_str()), number(DeviceManagerStatus::busy));

    // An orderly end gives the job up and takes its file away.
    ::kill(simulator_->id(), SIGTERM);
    EXPECT_NE(job.get(), 0);
    EXPECT_EQ(simulator_->waitForEnd(), exited(0));
    EXPECT_FALSE(test_support::exists(file_));
}

TEST(DeviceManagerSimulator, SaysInOneLineThatThePortIsBusy) {
    const TemporaryDirectory folder;
    const std::string path = test_support::buildPath("device-manager-simulator");
    const std::vector<std::string> options = {"--state", folder.path("first"),
                                              "--credential-record="};
    ChildProcess first(test_support::runnable(path, options));
    ASSERT_TRUE(first.waitForOutput("listens on"));
    const auto second = test_support::runCommand(
        test_support::runnable(path, {"--state", folder.path("second"), "--credential-record="}));
    EXPECT_EQ(second.end, exited(1));
    EXPECT_THAT(second.error,
                testing::MatchesRegex("device-manager-simulator: [^\n]*5001[^\n]*\n"));
    EXPECT_FALSE(test_support::exists(folder.path("second")));
}

TEST(DeviceManagerSimulator, TakesAnyFreePortOnDemand) {
    const TemporaryDirectory folder;
    ChildProcess simulator(test_support::runnable(
        test_support::buildPath("device-manager-simulator"),
        {"--state", folder.path("state"), "--credential-record=", "--port", "0"}));
    ASSERT_TRUE(simulator.waitForOutput(", state in "));
    const std::string output = simulator.standardOutput();
    const std::size_t begin = output.find("127.0.0.1:");
    const std::string endpoint = output.substr(begin, output.find(',', begin) - begin);
    EXPECT_NE(endpoint, "127.0.0.1:0");
    EXPECT_EQ(BackupRestore(BRCreateController())->connect(endpoint.c_str(), ""), 0) << endpoint;
}

TEST(DeviceManagerSimulator, ExplainsWhatItCannotDo) {
    const TemporaryDirectory folder;
    writeFile(folder.path("file"), "");
    const std::vector<std::pair<std::vector<std::string>, int>> cases = {
        {{"--nonsense"}, 2},
        {{"stray"}, 2},
        {{"--port", "70000"}, 2},
        {{"--job-seconds", "-1"}, 2},
        {{"--job-seconds", "nan"}, 2},
        {{"--delay-ms", "-1"}, 2},
        {{"--make-update", "1.0"}, 2},
        {{"--order", "nonsense"}, 2},
        {{"--order", "delay"}, 2},
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
        const auto result = test_support::runCommand(
            test_support::runnable(test_support::buildPath("device-manager-simulator"), options));
        EXPECT_EQ(result.end, exited(status)) << testing::PrintToString(options);
        EXPECT_THAT(result.error, testing::MatchesRegex("device-manager-simulator: [^\n]+\n"));
    }
}

TEST(StandInLibraries, ExportTheirInterfacesOnly) {
    const auto names = [](const std::string& library) {
        return test_support::runCommand(
            {"nm", "-D", "--defined-only", "-f", "posix", "-C", test_support::buildPath(library)});
    };
    const auto client = names("libDeviceManagerClient.so");
    ASSERT_EQ(client.end, exited(0)) << client.error;
    EXPECT_THAT(client.output,
                testing::MatchesRegex("BRCreateController T[^\n]*\nBRDestroyController T[^\n]*\n"
                                      "FUCreateController T[^\n]*\nFUDestroyController T[^\n]*\n"));
    const auto vesk = names("libVesk.so");
    ASSERT_EQ(vesk.end, exited(0)) << vesk.error;
    EXPECT_THAT(vesk.output, testing::MatchesRegex("(VeskServiceInterface::[^\n]*\n)+"));
}

TEST(StandInLibraries, BearTheirNamesWithoutAVersion) {
    for (const std::string library : {"libDeviceManagerClient.so", "libVesk.so"}) {
        const auto result =
            test_support::runCommand({"readelf", "-d", test_support::buildPath(library)});
        ASSERT_EQ(result.end, exited(0)) << result.error;
        EXPECT_THAT(result.output, HasSubstr("Library soname: [" + library + "]"));
        EXPECT_THAT(result.output, testing::Not(HasSubstr("libarchive")));
    }
}

TEST(TransferScript, NotesItsArgumentsAsOneLine) {
    const std::string script = test_support::sourcePath("simulator/transfer.sh");
    const std::string before = readFile("/run/log/transfer-script");
    EXPECT_EQ(
        test_support::runCommand({"/bin/sh", script, "TF_STATE_SNC_START", "true", "true"}).end,
        exited(0));
    EXPECT_EQ(readFile("/run/log/transfer-script"), before + "TF_STATE_SNC_START true true\n");
}

}  // namespace

// The simulated device: its contents, its jobs and its checks.
#include "simulator/simulated_device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

#include "simulator/device_folder.h"
#include "tests/support/files/file_snapshot.h"
#include "tests/support/files/files.h"

namespace test_support {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class SimulatedDevice : public testing::Test {
protected:
    void change(const std::string& name, const std::string& bytes) const {
        const fs::path path = state_ + "/data/" + name;
        fs::create_directories(path.parent_path());
        writeFile(path, bytes);
    }
    std::string valueOf(const std::string& name) const {
        return readFile(state_ + "/data/" + name);
    }

    template <typename Work>
    static DeviceManagerStatus statusOf(Work work) {
        try {
            work();
            return DeviceManagerStatus::done;
        } catch (const DeviceError& error) {
            return error.status;
        }
    }

    // Writes a file of this kind with these members.
    static void writeFileWith(const std::string& path, const std::string& kind,
                              const std::string& firmware,
                              const std::vector<std::string>& members) {
        const TemporaryDirectory folder;
        fs::create_directory(folder.path("data"));
        for (const std::string& name : members) {
            writeStateFile(folder.path(name), "content");
        }
        Archive content = {kind, "", "", firmware, {}};
        for (const auto& entry : fs::directory_iterator(folder.path())) {
            content.members.push_back(entry.path().filename());
        }
        writeArchive(path, packArchive(content, folder.path()));
    }

    // The status of the job, which the check before it foretells.
    DeviceManagerStatus restoreStatus(const std::string& path) {
        const auto checked = statusOf([&] { device_.checkBackupFile(path); });
        const auto status = statusOf([&] { device_.restore(path); });
        EXPECT_EQ(checked, status);
        return status;
    }
    DeviceManagerStatus updateStatus(const std::string& path) {
        const auto checked = statusOf([&] { device_.checkFirmwareFile(path); });
        const auto status = statusOf([&] { device_.update(path); });
        EXPECT_EQ(checked, status);
        return status;
    }

    const TemporaryDirectory folder_;
    const std::string state_ = folder_.path("state");
    const std::string file_ = folder_.path("a.psb");
    const std::string updateFile_ = folder_.path("a.fwf");
    ::SimulatedDevice device_{state_};
};

constexpr auto kDone = DeviceManagerStatus::done;
constexpr auto kUnusable = DeviceManagerStatus::unusableFile;

TEST_F(SimulatedDevice, takesAnotherName) {
    for (const std::string name : {"Kitchen", " \\s\n;#\t ", "", "\xC3\xBC"}) {
        setDeviceName(state_, name);
        EXPECT_EQ(deviceName(state_), name);
        EXPECT_EQ(device_.name(), name);
    }
    EXPECT_THAT(valueOf("settings/settings.ini"),
                HasSubstr("serial=X60-000042\n\n[DISPLAY]\nbrightness=80"));
}

TEST_F(SimulatedDevice, isUnnamedWithoutSetting) {
    change("settings/settings.ini", "[OTHER]\n");
    EXPECT_THROW(deviceName(state_), DeviceError);
    EXPECT_EQ(device_.name(), "unnamed");
}

TEST_F(SimulatedDevice, keepsContentsOverRestart) {
    change("recipes/new", "mine");
    fs::remove_all(state_ + "/data/users");
    const FileSnapshot before = snapshotOf(state_);
    const ::SimulatedDevice again(state_);
    EXPECT_EQ(snapshotOf(state_), before);
}

TEST_F(SimulatedDevice, restoresEverythingFromFullBackup) {
    change("recipes/asia/soups/pho", "hot");
    const FileSnapshot before = snapshotOf(state_);
    device_.backup(file_, "fullbackup");
    change("settings/settings.ini", "[DEVICE_INFO]\ntransfername=changed\n");
    change("recipes/new", "later");
    fs::remove_all(state_ + "/data/recipes/asia");
    fs::remove_all(state_ + "/data/users");

    EXPECT_EQ(restoreStatus(file_), kDone);
    EXPECT_EQ(snapshotOf(state_), before);
}

TEST_F(SimulatedDevice, restoresOneKindOnly) {
    for (const auto& [kind, inside, outside] :
         {std::tuple{"recipes", "recipes/x", "users/x"},
          std::tuple{"userdatabase", "users/x", "recipes/x"}}) {
        change(inside, "old");
        device_.backup(file_, kind);
        change(inside, "new");
        change(outside, "new");
        change("settings/settings.ini", "new");
        change(std::string(inside) + "-later", "new");

        EXPECT_EQ(device_.restore(file_), kind);
        EXPECT_EQ(valueOf(inside), "old");
        EXPECT_EQ(valueOf(outside), "new");
        EXPECT_EQ(valueOf("settings/settings.ini"), "new");
        EXPECT_FALSE(exists(state_ + "/data/" + inside + "-later"));
    }
}

TEST_F(SimulatedDevice, emptiesKindThatHeldNothing) {
    fs::remove_all(state_ + "/data/users");
    device_.backup(file_, "userdatabase");
    change("users/new", "later");
    EXPECT_EQ(restoreStatus(file_), kDone);
    EXPECT_TRUE(fs::is_empty(state_ + "/data/users"));
}

TEST_F(SimulatedDevice, refusesUnknownKind) {
    for (const char* kind : {"", "Recipes", "firmware", "fullbackup ", "\xFF"}) {
        EXPECT_EQ(statusOf([&] { device_.backup(file_, kind); }), DeviceManagerStatus::unknownKind);
        EXPECT_EQ(statusOf([&] { device_.backupSize(kind); }), DeviceManagerStatus::unknownKind);
        EXPECT_FALSE(exists(file_));
    }
}

TEST_F(SimulatedDevice, answersSizeThatSuffices) {
    for (const char* kind : {"fullbackup", "recipes", "userdatabase"}) {
        const std::uint64_t size = device_.backupSize(kind);
        const std::uint64_t taken = device_.backup(file_, kind);
        EXPECT_EQ(taken, fs::file_size(file_));
        EXPECT_GE(size, taken) << kind;
        EXPECT_LE(size, taken + taken / 4 + 50000) << kind;
    }
}

TEST_F(SimulatedDevice, refusesForeignMembers) {
    const FileSnapshot before = snapshotOf(state_);
    for (const std::string name : {"data/users/x", "data/recipes-x", "data/x", "recipes/x"}) {
        writeFileWith(file_, "recipes", "", {"data/recipes/x", name});
        EXPECT_EQ(restoreStatus(file_), kUnusable) << name;
    }
    EXPECT_EQ(snapshotOf(state_), before);
}

TEST_F(SimulatedDevice, failsWithoutFolderForBackup) {
    const std::string path = folder_.path("missing/a.psb");
    EXPECT_EQ(statusOf([&] { device_.backup(path, "recipes"); }), DeviceManagerStatus::failed);
}

TEST_F(SimulatedDevice, backsUpPlainFilesOnly) {
    fs::create_symlink("/etc/passwd", state_ + "/data/recipes/link");
    EXPECT_EQ(statusOf([&] { device_.backup(file_, "recipes"); }), DeviceManagerStatus::failed);
    EXPECT_FALSE(exists(file_));
    EXPECT_EQ(statusOf([&] { device_.backup(file_, "userdatabase"); }), kDone);
}

TEST_F(SimulatedDevice, installsNewerUpdateOnce) {
    writeUpdateFile(updateFile_, "1.10");
    const std::string payload = readFile(state_ + "/firmware/payload");
    device_.checkFirmwareFile(updateFile_);
    EXPECT_EQ(device_.firmwareVersion(), "1.4.0") << "a check installs nothing";

    EXPECT_EQ(device_.update(updateFile_), "1.10");
    EXPECT_EQ(device_.firmwareVersion(), "1.10");
    EXPECT_NE(readFile(state_ + "/firmware/payload"), payload);
    EXPECT_EQ(::SimulatedDevice(state_).firmwareVersion(), "1.10");

    EXPECT_EQ(updateStatus(updateFile_), kUnusable);
}

TEST_F(SimulatedDevice, refusesUnusableUpdate) {
    using Members = std::vector<std::string>;
    const Members payload = {kPayloadFile};
    const std::vector<std::pair<std::string, Members>> updates = {
        {"1.4.0", payload},
        {"1.4", payload},
        {"1.3.9", payload},
        {"newest", payload},
        {"", payload},
        {"2.0", {}},
        {"2.0", {"firmware/other"}},
        {"2.0", {kPayloadFile, kVersionFile}},
    };
    const FileSnapshot before = snapshotOf(state_);
    for (const auto& [version, members] : updates) {
        writeFileWith(updateFile_, "firmware", version, members);
        EXPECT_EQ(updateStatus(updateFile_), kUnusable) << version;
    }
    EXPECT_EQ(snapshotOf(state_), before);
}

TEST_F(SimulatedDevice, tellsBackupFromUpdate) {
    device_.backup(file_, "fullbackup");
    writeUpdateFile(updateFile_, "2.0");
    EXPECT_EQ(restoreStatus(updateFile_), kUnusable);
    EXPECT_EQ(updateStatus(file_), kUnusable);
}

TEST_F(SimulatedDevice, leavesFirmwareOutOfBackup) {
    device_.backup(file_, "fullbackup");
    writeUpdateFile(updateFile_, "2.0");
    device_.update(updateFile_);
    device_.restore(file_);
    EXPECT_EQ(device_.firmwareVersion(), "2.0");
}

TEST_F(SimulatedDevice, comparesVersionsNumberByNumber) {
    for (const std::string version : {"1.4.0.1", "1.10", "2", "10.0"}) {
        writeUpdateFile(updateFile_, version);
        EXPECT_EQ(updateStatus(updateFile_), kDone) << version;
    }
    writeUpdateFile(updateFile_, "9.99.99.99");
    EXPECT_EQ(updateStatus(updateFile_), kUnusable);
}

TEST(UpdateFile, isNotWrittenWithoutVersion) {
    const TemporaryDirectory folder;
    const std::string file = folder.path("a.fwf");
    for (const char* text : {"", ".", "1.", ".1", "1..2", "1.2.3.4.5", "-1", "1.2a", " 1", "v1",
                             "1\n", "1234567890"}) {
        EXPECT_THROW(writeUpdateFile(file, text), DeviceError) << text;
        EXPECT_FALSE(exists(file)) << text;
    }
}

}  // namespace
}  // namespace test_support

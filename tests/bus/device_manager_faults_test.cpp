// A device manager that is down, refuses, dies and comes back, as the service sees it through the
// stub libraries.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/bus/job_calls.h"
#include "tests/bus/steady_service.h"
#include "tests/support/device/persistent_record.h"
#include "tests/support/device/simulator.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

class DeviceManagerFault : public SteadyService {
protected:
    testing::AssertionResult backupIsListed() const {
        return eventually(
            [this] { return filesListed(bus_, "GetBackupFilesList", "USB_X60.1") == 1; },
            "the device manager accepts the backup");
    }

    const TemporaryDirectory state_;
    const Stick stick_{1};
};

TEST_F(DeviceManagerFault, failsBackupAtOnceWhenDown) {
    stick_.addFile("a.psb");
    stick_.addFile("a.fwf");
    ASSERT_FALSE(deviceManagerListens());
    EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "b.psb"), 3);
    EXPECT_EQ(filesListed(bus_, "GetBackupFilesList", "USB_X60.1"), 0);
    EXPECT_EQ(filesListed(bus_, "GetUpdateFilesList", "USB_X60.1"), 0);
    EXPECT_EQ(doRestore(bus_, "USB_X60.1", "a.psb"), 0);
    EXPECT_EQ(doOsUpdate(bus_, "USB_X60.1", "a.fwf"), 0);
    EXPECT_FALSE(exists(stick_.path("b.psb")));
}

TEST_F(DeviceManagerFault, isForgottenByNextRequest) {
    {
        Simulator refusing(state_.path(), {"--refuse"});
        ASSERT_TRUE(refusing.waitUntilListens());
        EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "a.psb"), 3);
        EXPECT_EQ(filesListed(bus_, "GetBackupFilesList", "USB_X60.1"), 0);
    }
    Simulator willing(state_.path(), {"--job-seconds", "0"});
    ASSERT_TRUE(willing.waitUntilListens());
    EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "a.psb"), 0);
    EXPECT_TRUE(backupIsListed());
}

TEST_F(DeviceManagerFault, refusesServiceWithoutCredential) {
    std::filesystem::remove(PersistentRecord::kPath);  // of the simulator before
    Simulator simulator(state_.path(), {"--job-seconds", "0"});
    // The port is bound before the record is made.
    ASSERT_TRUE(eventually([] { return readFile(PersistentRecord::kPath).size() == 128; },
                           "the simulator makes the record"));
    const std::string record = readFile(PersistentRecord::kPath);
    EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "a.psb"), 0);
    EXPECT_TRUE(backupIsListed());
    {
        const PersistentRecord cut(record.substr(0, 127));
        EXPECT_EQ(filesListed(bus_, "GetBackupFilesList", "USB_X60.1"), 0);
    }
    EXPECT_EQ(filesListed(bus_, "GetBackupFilesList", "USB_X60.1"), 0);
    const PersistentRecord whole(record);
    EXPECT_EQ(filesListed(bus_, "GetBackupFilesList", "USB_X60.1"), 1);
}

TEST_F(DeviceManagerFault, endsOnlyJobOfManagerThatDies) {
    {
        Simulator dying(state_.path(), {"--die-in-job", "--job-seconds", "0.2"});
        ASSERT_TRUE(dying.waitUntilListens());
        EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "a.psb"), 0);
        EXPECT_EQ(dying.process().waitForEnd(), exited(3));
    }
    EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "b.psb"), 3);
    Simulator back(state_.path(), {"--job-seconds", "0"});
    ASSERT_TRUE(back.waitUntilListens());
    EXPECT_EQ(filesListed(bus_, "GetBackupFilesList", "USB_X60.1"), 0);
}

}  // namespace
}  // namespace test_support

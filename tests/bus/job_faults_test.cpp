// Jobs when a device library or a stick is at fault: the service goes on, and nothing stays open.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "tests/bus/job_calls.h"
#include "tests/bus/steady_service.h"
#include "tests/support/device/device_calls.h"
#include "tests/support/device/device_double.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"

namespace test_support {
namespace {

using namespace std::chrono_literals;

class JobFault : public SteadyServiceWithDouble {
protected:
    void TearDown() override {
        device_.openGate();
        SteadyServiceWithDouble::TearDown();
    }
};

struct LibraryFault {
    const char* operation;
    const char* key;
    const char* value;
    int backups;  // listed
    int updates;
};

TEST_F(JobFault, leavesBackupRefusedAndListingsEmpty) {
    const Stick stick(1);
    stick.addFile("a.psb");
    stick.addFile("a.fwf");
    for (const LibraryFault& fault :
         {LibraryFault{"*", "null", "", 0, 0}, LibraryFault{"*", "status", "1", 0, 0},
          LibraryFault{"BR.connect", "status", "-5", 0, 1},
          LibraryFault{"FU.connect", "status", "4294967296", 1, 0},
          LibraryFault{"BR.getBackupSize", "status", "4294967296", 1, 1},
          LibraryFault{"BR.checkBackupFile", "status", "-1", 0, 1},
          LibraryFault{"FU.checkFirmwareFile", "status", "7", 1, 0}}) {
        SCOPED_TRACE(std::string(fault.operation) + " " + fault.key + " " + fault.value);
        device_.clearOrders();
        // Without a fault there is no job either.
        device_.order("BR.getBackupSize", "bytes", "18446744073709551615");
        device_.order(fault.operation, fault.key, fault.value);
        EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "b.psb"), 3);
        EXPECT_EQ(filesListed(bus_, "GetBackupFilesList", "USB_X60.1"), fault.backups);
        EXPECT_EQ(filesListed(bus_, "GetUpdateFilesList", "USB_X60.1"), fault.updates);
    }
    device_.clearOrders();
    EXPECT_EQ(filesListed(bus_, "GetBackupFilesList", "USB_X60.1"), 1);
    EXPECT_EQ(filesListed(bus_, "GetUpdateFilesList", "USB_X60.1"), 1);
}

TEST_F(JobFault, delaysAnswerWithSlowDeviceManager) {
    const Stick stick(1);
    device_.order("*", "delay", "100");
    // Six calls for the size, then the second of the launch.
    EXPECT_GE(durationOf([&] { EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "b.psb"), 0); }), 1600ms);
    EXPECT_TRUE(device_.waitForCall("BRDestroyController(BR2)"));
}

TEST_F(JobFault, endsOnlyJobOfPulledStick) {
    Stick stick(1);
    device_.order("BR.backup", "hang", device_.gate());
    device_.order("BR.backup", "write", "100");
    EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "a.psb"), 0);
    ASSERT_TRUE(device_.waitForCall("BR2.backup"));
    stick.pull();
    EXPECT_EQ(bus_.transfer("GetUSBStickDetails").text(), "(@av [],)");
    std::filesystem::remove(stick.path());
    EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "a.psb"), 2);
    EXPECT_EQ(doRestore(bus_, "USB_X60.1", "a.psb"), 2);
    EXPECT_EQ(doOsUpdate(bus_, "USB_X60.1", "a.fwf"), 2);
    device_.openGate();
    EXPECT_TRUE(device_.waitForCall("BRDestroyController(BR2)"));
    EXPECT_FALSE(exists(stick.path("a.psb")));
}

TEST_F(JobFault, keepsFileOfReadOnlyStick) {
    Stick stick(1);
    stick.addFile("a.psb", "old");
    stick.makeReadOnly();
    device_.order("BR.backup", "write", "100");
    EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "a.psb"), 0);
    EXPECT_TRUE(device_.waitForCall("BRDestroyController(BR2)"));
    EXPECT_EQ(readFile(stick.path("a.psb")), "old");
}

TEST_F(JobFault, passesOddPathOnUnchanged) {
    const Stick stick(1);
    const std::string file = "../USB_X60.1//%n%s\n\"'\x7F/" + std::string(10000, 'x') + ".psb";
    EXPECT_EQ(doRestore(bus_, "USB_X60.1", file), 0);
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR1)"));
    EXPECT_THAT(device_.calls(),
                testing::ElementsAreArray(completed(restoreFrom(1, stick.path(file)))));
}

}  // namespace
}  // namespace test_support

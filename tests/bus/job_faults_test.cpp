// Jobs and checks when a device library, a stick or a path is at fault: each has its answer, the
// service goes on answering, and nothing stays open.
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

// Exists before the service, which needs its environment.
struct WithDouble {
    DeviceDouble device_;
};

class JobFaults : private WithDouble, public SteadyService {
protected:
    JobFaults() : SteadyService(device_.environment()) {}

    void TearDown() override {
        device_.openGate();
        SteadyService::TearDown();
    }

    void orderSize(const std::string& bytes) { device_.order("BR.getBackupSize", "bytes", bytes); }
    std::string proposedName() const {
        return bus_.transfer("GetBackupFileName", g_variant_new("(u)", 1U)).text();
    }
    using WithDouble::device_;
};

// ---- the device libraries
// -----------------------------------------------------------------------------

struct LibraryFault {
    const char* operation;
    const char* key;
    const char* value;
    int backups;  // listed
    int updates;
};

TEST_F(JobFaults, inTheDeviceLibraryLeaveBackupsWithoutSpaceAndListingsEmpty) {
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
        orderSize("18446744073709551615");  // no job without a fault, either
        device_.order(fault.operation, fault.key, fault.value);
        EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "b.psb"), 3);
        EXPECT_EQ(filesListed(bus_, "GetBackupFilesList", "USB_X60.1"), fault.backups);
        EXPECT_EQ(filesListed(bus_, "GetUpdateFilesList", "USB_X60.1"), fault.updates);
    }
    device_.clearOrders();
    EXPECT_EQ(filesListed(bus_, "GetBackupFilesList", "USB_X60.1"), 1);
    EXPECT_EQ(filesListed(bus_, "GetUpdateFilesList", "USB_X60.1"), 1);
}

TEST_F(JobFaults, ofAbsurdSizesFindNoSpaceButNoSizeFindsSome) {
    const Stick stick(1);
    for (const char* bytes : {"9223372036854775808", "18446744073709551615"}) {
        orderSize(bytes);
        EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "a.psb"), 3) << bytes;
    }
    orderSize("0");
    EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "a.psb"), 0);
}

TEST_F(JobFaults, ofASlowDeviceManagerDelayTheAnswerAndNothingElse) {
    const Stick stick(1);
    stick.addFile("a.psb");
    device_.order("*", "delay", "100");
    // Six calls for the size, then the launch.
    EXPECT_GE(durationOf([&] { EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "b.psb"), 0); }), 1600ms);
    EXPECT_EQ(filesListed(bus_, "GetBackupFilesList", "USB_X60.1"), 1);
    EXPECT_TRUE(device_.waitForCall("BRDestroyController(BR2)"));
}

TEST_F(JobFaults, inTheSettingsLeaveTheProposedNameEmptyUntilTheyAreOver) {
    device_.orderStatus("Vesk.startTransaction", 1);
    EXPECT_EQ(proposedName(), "('',)");
    device_.orderStatus("Vesk.startTransaction", 0);
    device_.orderStatus("Vesk.getValue", -1);
    device_.order("Vesk.getValue", "value", "");
    EXPECT_EQ(proposedName(), "('',)");
    device_.clearOrders();
    EXPECT_THAT(proposedName(), testing::StartsWith("('DEVICE-"));
}

// ---- sticks
// -------------------------------------------------------------------------------------------

TEST_F(JobFaults, ofAStickThatIsPulledDuringAJobEndTheJobAndNoOther) {
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

TEST_F(JobFaults, ofAFullStickAreFoundBeforeAndOfAReadOnlyOneAfterTheLaunch) {
    Stick full(1, {"64k", "/dev/sda1", false});
    full.addFile("all.psb", std::string(64U * 1024U, 'x'));
    Stick readOnly(2, {"16m", "/dev/sdb1", false});
    readOnly.addFile("a.psb", "old");
    readOnly.makeReadOnly();
    orderSize("1");
    device_.order("BR.backup", "write", "100");
    EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "all.psb"), 3);
    EXPECT_EQ(doBackup(bus_, "USB_X60.2", 1, "a.psb"), 0);
    EXPECT_TRUE(device_.waitForCall("BRDestroyController(BR3)"));
    EXPECT_EQ(readFile(full.path("all.psb")).size(), 64U * 1024U);
    EXPECT_EQ(readFile(readOnly.path("a.psb")), "old");
}

// ---- paths
// --------------------------------------------------------------------------------------------

TEST_F(JobFaults, inThePathsOfARequestHaveTheirCode) {
    const Stick stick(1);
    const std::string endless(10000, 'x');
    orderSize("18446744073709551615");
    EXPECT_EQ(doBackup(bus_, "", 1, ""), 1);
    EXPECT_EQ(doRestore(bus_, "", ""), 1);
    EXPECT_EQ(doOsUpdate(bus_, "", ""), 1);
    EXPECT_EQ(doBackup(bus_, endless, 1, endless), 1);
    EXPECT_EQ(doBackup(bus_, endless, 1, "a.psb"), 2);
    EXPECT_EQ(doRestore(bus_, "%n%s", "a.psb"), 2);
    EXPECT_EQ(doRestore(bus_, "USB_X60.1/../USB_X60.2", "a.psb"), 2);
    EXPECT_EQ(doOsUpdate(bus_, endless, "a.fwf"), 2);
    EXPECT_EQ(doBackup(bus_, "..", 1, "a.psb"), 3) << "whatever exists counts as a stick";
    EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, endless + ".psb"), 3);
    EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "../../%n.psb"), 3);
    EXPECT_EQ(doOsUpdate(bus_, "USB_X60.1", endless + ".fwf"), 5);
    EXPECT_EQ(doOsUpdate(bus_, "USB_X60.1", "../%n/\n.fwf"), 5);
}

TEST_F(JobFaults, inThePathOfAJobReachTheDeviceManagerAsTheyAre) {
    const Stick stick(1);
    const std::string file = "../USB_X60.1//%n%s\n\"'\x7F/" + std::string(10000, 'x') + ".psb";
    EXPECT_EQ(doRestore(bus_, "USB_X60.1", file), 0);
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR1)"));
    EXPECT_THAT(device_.calls(),
                testing::ElementsAreArray(completed(restoreFrom(1, stick.path(file)))));
}

}  // namespace
}  // namespace test_support

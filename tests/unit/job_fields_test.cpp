// Several jobs of one manager: their fields are joined, their workers run side by side.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/support/device/device_calls.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/waiting.h"
#include "tests/unit/job_fixture.h"

namespace test_support {
namespace {

using testing::ElementsAreArray;

class JobFields : public JobTest {
protected:
    const Stick first_{1};
    const Stick second_{2, {"16m", "/dev/sdb1"}};
};

TEST_F(JobFields, joinsStringsOfEveryKindOfJob) {
    second_.addFile("d.fwf");
    first_.addFile("e.fwf");
    EXPECT_EQ(backup("USB_X60.1", 3, "a.psb"), 0);
    EXPECT_EQ(restore("USB_X60.2", "b.psb"), 0);
    EXPECT_EQ(update("USB_X60.2", "d.fwf"), 0);
    EXPECT_EQ(update("USB_X60.1", "e.fwf"), 0);
    EXPECT_EQ(backup("USB_X60.1", 9, "/c.psb"), 0);
    const std::string two = "/media/usb/USB_X60.1USB_X60.2";
    const std::string three = two + "USB_X60.2";
    const std::string five = three + "USB_X60.1USB_X60.1";
    EXPECT_THAT(
        device_.calls(),
        ElementsAreArray(completed(sizeQuery(1, "userdatabase")) +
                         completed(backupTo(2, "/media/usb/USB_X60.1/a.psb", "userdatabase")) +
                         completed(restoreFrom(3, two + "/a.psbb.psb")) +
                         completed(updateFrom(1, three + "/d.fwf")) +
                         completed(updateFrom(2, three + "USB_X60.1/d.fwfe.fwf")) +
                         completed(sizeQuery(4, "")) +
                         completed(backupTo(5, five + "/a.psbb.psb/c.psb", ""))));
}

TEST_F(JobFields, ignoresRefusedRequest) {
    EXPECT_EQ(backup("USB_X60.1", 1, "a.txt"), 1);
    EXPECT_EQ(restore("USB_X60.9", "b.psb"), 2);
    EXPECT_EQ(update("USB_X60.1", "c.fwf"), 5);
    device_.orderStatus("BR.connect", 1);
    EXPECT_EQ(backup("USB_X60.1", 1, "d.psb"), 3);
    device_.orderStatus("BR.connect", 0);
    device_.clearRecord();
    EXPECT_EQ(restore("USB_X60.2", "e.psb"), 0);
    EXPECT_THAT(device_.calls(),
                ElementsAreArray(completed(restoreFrom(2, second_.path("e.psb")))));
}

TEST_F(JobFields, makesBackupOfKind0Restore) {
    first_.addFile("a.psb", "kept");
    EXPECT_EQ(backup("USB_X60.1", 0, "a.psb"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "")) +
                                                  completed(restoreFrom(2, first_.path("a.psb")))));
    EXPECT_EQ(readFile(first_.path("a.psb")), "kept");
}

TEST_F(JobFields, startsOnMountBaseWithoutIdentifier) {
    EXPECT_EQ(backup("", 1, "a.psb"), 0);
    EXPECT_EQ(restore("", "a.psb"), 0);
    writeFile("/media/usb/x.fwf", "update");
    EXPECT_EQ(update("", "x.fwf"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "fullbackup")) +
                                                  completed(restoreFrom(2, "/media/usb/")) +
                                                  completed(restoreFrom(3, "/media/usb/")) +
                                                  completed(updateFrom(1, "/media/usb/"))));
    EXPECT_THAT(clock_.sleeps(), testing::ElementsAre(1U, 1U, 1U));
}

TEST_F(JobFields, repeatsEarlierJobWithoutIdentifier) {
    first_.addFile("u.fwf");
    writeFile("/media/usb/x.fwf", "update");
    device_.order("BR.backup", "write", "3");
    EXPECT_EQ(backup("USB_X60.1", 2, "a.psb"), 0);
    EXPECT_EQ(backup("", 1, "b.psb"), 0);
    EXPECT_EQ(restore("", "c.psb"), 0);
    const std::string target = first_.path("a.psb");
    const Calls sameBackup =
        completed(backupTo(2, target, "recipes")) + completed(sizeQuery(3, "fullbackup")) +
        completed(backupTo(4, target, "recipes")) + completed(backupTo(5, target, "recipes"));
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "recipes")) + sameBackup));
    EXPECT_EQ(update("", "x.fwf"), 0);
    EXPECT_EQ(device_.calls()[device_.calls().size() - 3], R"(FU1.update("/media/usb/USB_X60.1"))");
}

TEST_F(JobFields, checksJobWithoutIdentifier) {
    EXPECT_EQ(backup("", 1, "a.txt"), 1);
    EXPECT_EQ(restore("", ""), 1);
    EXPECT_EQ(update("", "x.fwf"), 5);
    EXPECT_THAT(device_.calls(), testing::IsEmpty());
}

TEST_F(JobFields, belongsToWorkerThatCopiedIt) {
    first_.addFile("u.fwf");
    device_.order("BR.restore", "hang", device_.gate());
    device_.order("FU.update", "hang", device_.gate());
    EXPECT_EQ(numberOf(manager_.DoRestore("USB_X60.1", "a.psb")), 0);
    EXPECT_TRUE(device_.waitForCall("BR1.restore(\"/media/usb/USB_X60.1/a.psb\")"));
    EXPECT_EQ(numberOf(manager_.DoRestore("USB_X60.2", "b.psb")), 0);
    EXPECT_TRUE(device_.waitForCall("BR2.restore(\"/media/usb/USB_X60.1USB_X60.2/a.psbb.psb\")"));
    EXPECT_EQ(numberOf(manager_.DoOSUpdate("USB_X60.1", "u.fwf")), 0);
    EXPECT_TRUE(device_.waitForCall("FU1.update"));

    std::set<int> workers;
    for (const DoubleRecord& call : device_.records()) {
        EXPECT_FALSE(call.onMainThread) << call.text;
        workers.insert(call.thread);
    }
    EXPECT_EQ(workers.size(), 3U) << "each job has a thread of its own";
    device_.openGate();
    waitForWorkers();
    EXPECT_EQ(device_.calls().size(), 3 * completed(restoreFrom(1, "")).size());
}

}  // namespace
}  // namespace test_support

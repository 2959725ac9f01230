// A restore: its checks, and what its worker does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/device/device_calls.h"
#include "tests/support/device/persistent_record.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/process_table.h"
#include "tests/unit/job_fixture.h"

namespace test_support {
namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

class Restore : public JobTest {
protected:
    const Stick stick_{1};
};

TEST_F(Restore, refusesANameWithoutTheMarker) {
    for (const char* name : {"", "image.fwf", "a.PSB", "a.txt", "psb"}) {
        EXPECT_EQ(restore(stick_.name(), name), 1) << name;
        EXPECT_EQ(restore("USB_X60.9", name), 1) << name;
    }
    EXPECT_THAT(device_.calls(), IsEmpty());
    EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_F(Restore, refusesAStickThatIsNotThere) {
    for (const std::string& mount :
         {std::string("USB_X60.9"), std::string("USB_X60.1/none"), std::string(10000, 'x')}) {
        EXPECT_EQ(restore(mount, "a.psb"), 2) << mount;
    }
    EXPECT_THAT(device_.calls(), IsEmpty());
    EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_F(Restore, asksForNoSizeAndRunsOnAControllerAndAThreadOfItsOwn) {
    device_.order("BR.getBackupSize", "bytes", "18446744073709551615");
    stick_.addFile("a.psb");
    EXPECT_EQ(restore(stick_.name(), "a.psb"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(restoreFrom(1, stick_.path("a.psb")))));
    const std::vector<DoubleRecord> records = device_.records();
    for (const DoubleRecord& call : records) {
        EXPECT_FALSE(call.onMainThread) << call.text;
        EXPECT_EQ(call.thread, records.front().thread) << call.text;
    }
    EXPECT_THAT(clock_.sleeps(), testing::ElementsAre(1U));
}

TEST_F(Restore, leavesTheFileInPlace) {
    stick_.addFile("a.psb", "backup");
    EXPECT_EQ(restore(stick_.name(), "a.psb"), 0);
    EXPECT_EQ(readFile(stick_.path("a.psb")), "backup");
}

TEST_F(Restore, ofAMissingFileIsTheDeviceManagersFailure) {
    device_.orderStatus("BR.restore", 5);
    EXPECT_EQ(restore(stick_.name(), "missing.psb"), 0);
    EXPECT_THAT(device_.calls(),
                ElementsAreArray(completed(restoreFrom(1, stick_.path("missing.psb")))));
}

TEST_F(Restore, makesTheMissingParentsOfItsFileToo) {
    EXPECT_EQ(restore(stick_.name(), "a/b/x.psb"), 0);
    EXPECT_TRUE(exists(stick_.path("a/b")));
    EXPECT_FALSE(exists(stick_.path("a/b/x.psb")));
}

TEST_F(Restore, goesToDestructionWhenTheDeviceManagerDoesNotTakeTheConnection) {
    device_.orderStatus("BR.connect", 0x100000000);
    EXPECT_EQ(restore(stick_.name(), "a.psb"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(refused(restoreFrom(1, stick_.path("a.psb")))));
}

TEST_F(Restore, endsWhenItGetsNoController) {
    device_.order("BR.create", "null");
    EXPECT_EQ(restore(stick_.name(), "a.psb"), 0);
    EXPECT_THAT(device_.calls(), testing::ElementsAre("BRCreateController() = null"));
}

TEST_F(Restore, lendsTheLibraryALogForAsLongAsItHasAController) {
    const PersistentRecord record("short");
    device_.order("*", "log", "0123456");
    EXPECT_EQ(restore(stick_.name(), "a.psb"), 0);
    EXPECT_THAT(device_.logAnswers(), ElementsAreArray(std::vector<std::string>(
                                          5, "BR1.readCredential() = -2 untouched")));
}

TEST_F(Restore, leavesNoDescriptorOpenHoweverItEnds) {
    const auto before = openDescriptorsOf(getpid());
    for (const char* step : {"BR.restore", "BR.connect"}) {
        device_.orderStatus(step, 1);
        EXPECT_EQ(restore(stick_.name(), "a.psb"), 0) << step;
    }
    EXPECT_EQ(openDescriptorsOf(getpid()), before);
}

TEST_F(Restore, takesHostilePathsAsTheyAre) {
    const std::string file = "../USB_X60.1/%n\n\xFF" + std::string(10000, 'x') + ".psb";
    EXPECT_EQ(restore(stick_.name(), file), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(restoreFrom(1, stick_.path(file)))));
}

}  // namespace
}  // namespace test_support

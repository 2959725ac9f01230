// An update of the operating system: its checks, and what its worker does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
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

class OsUpdate : public JobTest {
protected:
    const Stick stick_{1};
};

TEST_F(OsUpdate, refusesANameWithoutTheMarker) {
    stick_.addFile("update.psb");
    for (const char* name : {"", "update.psb", "a.FWF", "a.fw", "fwf", "a.txt"}) {
        EXPECT_EQ(update(stick_.name(), name), 1) << name;
        EXPECT_EQ(update("USB_X60.9", name), 1) << name;
    }
    EXPECT_THAT(device_.calls(), IsEmpty());
    EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_F(OsUpdate, refusesAStickThatIsNotThere) {
    for (const std::string& mount :
         {std::string("USB_X60.9"), std::string("USB_X60.1/none"), std::string(10000, 'x')}) {
        EXPECT_EQ(update(mount, "a.fwf"), 2) << mount;
    }
    EXPECT_THAT(device_.calls(), IsEmpty());
    EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_F(OsUpdate, refusesAFileThatIsNotThere) {
    std::filesystem::create_symlink("nowhere", stick_.path("dangling.fwf"));
    stick_.addFile("file");
    for (const std::string& file :
         {std::string("a.fwf"), std::string("none/a.fwf"), std::string("dangling.fwf"),
          std::string("file/a.fwf"), std::string("%n.fwf"), std::string(10000, 'x') + ".fwf"}) {
        EXPECT_EQ(update(stick_.name(), file), 5) << file;
    }
    EXPECT_THAT(device_.calls(), IsEmpty());
    EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_F(OsUpdate, runsOnAControllerAndAThreadOfItsOwn) {
    stick_.addFile("a.fwf");
    EXPECT_EQ(update(stick_.name(), "a.fwf"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(updateFrom(1, stick_.path("a.fwf")))));
    const std::vector<DoubleRecord> records = device_.records();
    for (const DoubleRecord& call : records) {
        EXPECT_FALSE(call.onMainThread) << call.text;
        EXPECT_EQ(call.thread, records.front().thread) << call.text;
    }
    EXPECT_THAT(clock_.sleeps(), testing::ElementsAre(1U));
}

TEST_F(OsUpdate, findsTheMarkerAnywhereInThePathOfAFileThatExists) {
    for (const std::string file : {"x.fwf.old", "set.fwf/x", ".fwf"}) {
        stick_.addFile(file, "update");
        EXPECT_EQ(update(stick_.name(), file), 0) << file;
        EXPECT_EQ(readFile(stick_.path(file)), "update");
    }
}

TEST_F(OsUpdate, takesAPathAsItIs) {
    const std::string file = "../USB_X60.1/%n%s\n\xFF.fwf";
    stick_.addFile(file);
    EXPECT_EQ(update(stick_.name(), file), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(updateFrom(1, stick_.path(file)))));
}

TEST_F(OsUpdate, ofADirectoryIsTheDeviceManagersBusiness) {
    stick_.addDirectory("a.fwf");
    device_.orderStatus("FU.update", 1);
    EXPECT_EQ(update(stick_.name(), "a.fwf"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(updateFrom(1, stick_.path("a.fwf")))));
    EXPECT_TRUE(exists(stick_.path("a.fwf")));
}

TEST_F(OsUpdate, goesToDestructionWhenTheDeviceManagerDoesNotTakeTheConnection) {
    stick_.addFile("a.fwf");
    device_.orderStatus("FU.connect", 0x100000000);
    EXPECT_EQ(update(stick_.name(), "a.fwf"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(refused(updateFrom(1, stick_.path("a.fwf")))));
}

TEST_F(OsUpdate, destroysEvenTheControllerThatItDidNotGet) {
    stick_.addFile("a.fwf");
    device_.order("FU.create", "null");
    EXPECT_EQ(update(stick_.name(), "a.fwf"), 0);
    EXPECT_THAT(device_.calls(),
                testing::ElementsAre("FUCreateController() = null", "FUDestroyController(null)"));
}

TEST_F(OsUpdate, lendsTheLibraryALogForAsLongAsItHasAController) {
    stick_.addFile("a.fwf");
    device_.order("*", "log", "0123456");
    EXPECT_EQ(update(stick_.name(), "a.fwf"), 0);
    EXPECT_THAT(device_.logAnswers(), ElementsAreArray(std::vector<std::string>(
                                          5, "FU1.readCredential() = -1 untouched")));
}

TEST_F(OsUpdate, leavesNoDescriptorOpenHoweverItEnds) {
    stick_.addFile("a.fwf");
    const auto before = openDescriptorsOf(getpid());
    EXPECT_EQ(update(stick_.name(), "a.fwf"), 0);
    EXPECT_EQ(update(stick_.name(), "missing.fwf"), 5);
    device_.orderStatus("FU.connect", 1);
    EXPECT_EQ(update(stick_.name(), "a.fwf"), 0);
    EXPECT_EQ(openDescriptorsOf(getpid()), before);
}

}  // namespace
}  // namespace test_support

// Searching the tree of a stick for backup and update files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <stdexcept>

#include "tests/support/process/printed_text.h"
#include "tests/unit/listing.h"
#include "tests/unit/watched_calls.h"

namespace test_support {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class PackageListing : public Listing {
protected:
    // `count` packages in one directory.
    void addPackages(const std::string& directory, int count) const {
        for (int number = 0; number < count; ++number) {
            stick_.addFile(directory + "/" + std::to_string(number) + ".psb", "");
        }
    }
};

TEST_F(PackageListing, givesEveryFieldOfAPackageInADirectory) {
    stick_.addFile("old/x.psb", "12345");
    EXPECT_THAT(wholly(backup("")),
                ElementsAre("kind 1 name 'x.psb' size 5 location 'old' reserved ''"));
    EXPECT_THAT(offeredPaths(device_), ElementsAre("/media/usb/USB_X60.1/old/x.psb"));
}

TEST_F(PackageListing, findsBackupFilesOrUpdateFiles) {
    stick_.addFile("a/b.psb");
    stick_.addFile("a/c.fwf");
    stick_.addFile("a/d.PSB");
    stick_.addFile("a/e.FWF");
    stick_.addFile("a/psb");
    stick_.addFile("a/f.fw");
    stick_.addFile("a/g.ps");
    EXPECT_THAT(placesOf(backup("")), ElementsAre("a b.psb"));
    EXPECT_THAT(placesOf(update("")), ElementsAre("a c.fwf"));
}

TEST_F(PackageListing, beginsAtTheGivenDirectory) {
    stick_.addFile("root.psb");
    stick_.addFile("a/b/c.psb");
    EXPECT_THAT(placesOf(backup("a")), ElementsAre("a/b c.psb"));
    EXPECT_THAT(placesOf(backup("a/b")), ElementsAre("a/b c.psb"));
    EXPECT_THAT(placesOf(backup("a/b/")), ElementsAre("a/b/ c.psb"));
    EXPECT_THAT(placesOf(backup("/a")), ElementsAre("/a/b c.psb"));
    EXPECT_THAT(placesOf(backup("")), UnorderedElementsAre("/ root.psb", "a/b c.psb"));
}

TEST_F(PackageListing, takesTheMarkerAnywhereInThePath) {
    stick_.addFile("report.psb.txt");
    stick_.addFile("x.psbx");
    stick_.addFile("set.psb/inside/plain.txt");
    stick_.addFile("plain.txt");
    stick_.addFile("x.ps/b");
    EXPECT_THAT(placesOf(backup("")),
                UnorderedElementsAre("/ report.psb.txt", "/ x.psbx", "/ set.psb", "set.psb inside",
                                     "set.psb/inside plain.txt"));
}

TEST_F(PackageListing, takesTheMarkerInTheNamesOfStickAndDirectoryToo) {
    const Mount stick("/media/usb/my.psb", "/dev/sdc1", "tmpfs", 0, "size=1m");
    makeDirectories("/media/usb/my.psb/a");
    stick_.addFile("set.psb/a");
    EXPECT_THAT(placesOf(manager_.getBackupFilesList("my.psb", "")), ElementsAre("/ a"));
    EXPECT_THAT(placesOf(backup("set.psb")), ElementsAre("set.psb a"));
}

TEST_F(PackageListing, holdsTheContentsOfADirectoryBeforeTheDirectoryItself) {
    stick_.addFile("set.psb/inner.psb/leaf");
    EXPECT_THAT(placesOf(backup("")),
                ElementsAre("set.psb/inner.psb leaf", "set.psb inner.psb", "/ set.psb"));
    EXPECT_THAT(offeredPaths(device_), ElementsAre("/media/usb/USB_X60.1/set.psb/inner.psb/leaf",
                                                   "/media/usb/USB_X60.1/set.psb/inner.psb",
                                                   "/media/usb/USB_X60.1/set.psb"));
    const std::vector<FileEntry> list = backup("");
    EXPECT_EQ(list.back().kind, 0U);
    EXPECT_EQ(list.front().kind, 1U);
}

TEST_F(PackageListing, holdsOnlyWhatTheDeviceManagerAccepts) {
    stick_.addFile("good.psb");
    stick_.addFile("bad.psb");
    stick_.addFile("baddir.psb/good");
    device_.order("BR.checkBackupFile", "reject", "/bad.psb");
    EXPECT_THAT(namesOf(backup("")), UnorderedElementsAre("good.psb", "baddir.psb", "good"));
    device_.order("BR.checkBackupFile", "reject", "/baddir.psb");
    EXPECT_THAT(namesOf(backup("")), ElementsAre("good.psb"));
    for (const std::int64_t status : {-1LL, 1LL, 1LL << 32U}) {
        device_.orderStatus("BR.checkBackupFile", status);
        EXPECT_THAT(backup(""), IsEmpty()) << status;
    }
}

TEST_F(PackageListing, leavesOutWhateverBeginsWithADot) {
    stick_.addFile(".x.psb");
    stick_.addFile(".psb");
    stick_.addFile(".hidden.psb/inside.psb");
    stick_.addFile("a/.b/c.psb");
    EXPECT_THAT(backup(""), IsEmpty());
    EXPECT_THAT(placesOf(backup(".hidden.psb")), ElementsAre(".hidden.psb inside.psb"));
}

TEST_F(PackageListing, testsEveryKindOfEntryThatExists) {
    ASSERT_EQ(mknod(stick_.path("pipe.psb").c_str(), S_IFIFO | 0600U, 0), 0);
    ASSERT_EQ(mknod(stick_.path("socket.psb").c_str(), S_IFSOCK | 0600U, 0), 0);
    link("missing", "to-nothing.psb");
    link("to-itself.psb", "to-itself.psb");
    EXPECT_THAT(wholly(backup("")),
                UnorderedElementsAre("kind 1 name 'pipe.psb' size 0 location '/' reserved ''",
                                     "kind 0 name 'socket.psb' size 0 location '/' reserved ''"));
}

TEST_F(PackageListing, isEmptyWhenStickOrDirectoryIsMissing) {
    stick_.addFile("file.psb");
    std::string printed = printedBy([&] {
        EXPECT_THAT(manager_.getBackupFilesList("USB_X60.9", ""), IsEmpty());
        EXPECT_THAT(manager_.getBackupFilesList("USB_X60.9", "../USB_X60.1"), IsEmpty());
        EXPECT_THAT(backup("missing"), IsEmpty());
        EXPECT_THAT(backup("file.psb"), IsEmpty());
        EXPECT_THAT(backup("file.psb/below"), IsEmpty());
    });
    EXPECT_EQ(printed, "");
    EXPECT_THAT(device_.calls(), IsEmpty());
}

TEST_F(PackageListing, passesNamesThroughByteForByte) {
    const std::vector<std::string> names{"%n%s.psb", "line\nbreak.psb", "\xff.psb\xfe",
                                         std::string(251, 'x') + ".psb"};
    for (const std::string& name : names) {
        stick_.addFile("\xc3/" + name);
    }
    EXPECT_THAT(namesOf(backup("")), testing::UnorderedElementsAreArray(names));
    EXPECT_THAT(offeredPaths(device_), Contains("/media/usb/USB_X60.1/\xc3/line\nbreak.psb"));
    EXPECT_EQ(backup("").front().location, "\xc3");
}

TEST_F(PackageListing, givesSizesOfMoreThanFourGigabytes) {
    stick_.addSparseFile("large.psb", (5ULL << 40U) + 1);
    EXPECT_EQ(backup("").at(0).size, 5497558138881);
}

// ---- the limit --------------------------------------------------------------------------------

TEST_F(PackageListing, endsADirectoryAtThirtyEntries) {
    for (const int count : {29, 30, 31, 40}) {
        const std::string directory = "of" + std::to_string(count);
        addPackages(directory, count);
        device_.clearRecord();
        const std::size_t expected = static_cast<std::size_t>(std::min(count, 30));
        EXPECT_EQ(backup(directory).size(), expected);
        EXPECT_EQ(offeredPaths(device_).size(), expected);
        std::vector<std::string> first = deliveredNames(stick_.path(directory));
        first.resize(expected);
        EXPECT_EQ(namesOf(backup(directory)), first);
    }
}

TEST_F(PackageListing, countsOnlyWhatIsAccepted) {
    addPackages("a", 40);
    for (int number = 0; number < 15; ++number) {
        device_.order("BR.checkBackupFile", "reject", "/" + std::to_string(number) + ".psb");
    }
    EXPECT_EQ(backup("a").size(), 25U);
}

TEST_F(PackageListing, goesOnInEveryEnclosingDirectoryToItsNextEntry) {
    addPackages("a.psb/b.psb/c.psb", 40);
    const std::vector<std::string> places = placesOf(backup(""));
    ASSERT_EQ(places.size(), 33U);
    EXPECT_EQ(places[29].substr(0, 18), "a.psb/b.psb/c.psb ");
    EXPECT_EQ(places[30], "a.psb/b.psb c.psb");
    EXPECT_EQ(places[31], "a.psb b.psb");
    EXPECT_EQ(places[32], "/ a.psb");
}

TEST_F(PackageListing, endsAnEnclosingDirectoryAfterOneMoreEntry) {
    addPackages("first.psb/full", 40);
    stick_.addFile("first.psb/other");
    stick_.addFile("next.psb");
    const std::vector<std::string> delivered = deliveredNames(stick_.path("first.psb"));
    const bool otherFirst = delivered == std::vector<std::string>{"other", "full"};
    const std::vector<std::string> names = namesOf(backup("first.psb"));
    EXPECT_EQ(names.size(), 31U);
    EXPECT_EQ(names.back(), "full");
    EXPECT_EQ(std::count(names.begin(), names.end(), "other"), otherFirst ? 1 : 0);
}

TEST_F(PackageListing, looksIntoFurtherDirectoriesOfALevelThatHasNotAppended) {
    addPackages("a/of30", 30);
    addPackages("b/of30", 30);
    // Neither "a" nor "b" is a package, so the root never stops: each "of30" adds to the list.
    const std::vector<FileEntry> list = backup("");
    EXPECT_EQ(list.size(), 31U);
}

// ---- links ------------------------------------------------------------------------------------

TEST_F(PackageListing, followsALinkToADirectoryElsewhere) {
    stick_.addFile("a/x.psb");
    link("a", "b");
    makeDirectories("/media/usb/beside");
    writeFile("/media/usb/beside/y.psb", "");
    link("/media/usb/beside", "c");
    EXPECT_THAT(placesOf(backup("")), UnorderedElementsAre("a x.psb", "b x.psb", "c y.psb"));
    unlink("/media/usb/beside/y.psb");
    rmdir("/media/usb/beside");
}

TEST_F(PackageListing, doesNotEnterADirectoryThatItIsInside) {
    stick_.addFile("a/b/x.psb");
    link(".", "a/self");
    link("..", "a/b/parent");
    link("../..", "a/b/root");
    link("/media/usb/USB_X60.1/a", "a/b/whole-path");
    link("loop", "loop");
    EXPECT_THAT(placesOf(backup("")), ElementsAre("a/b x.psb"));
    // Begun in the middle, each link leads to directories that are not yet entered, but not back.
    stick_.addFile("a/y.psb");
    EXPECT_THAT(placesOf(backup("a/b")),
                UnorderedElementsAre("a/b x.psb", "a/b/parent y.psb", "a/b/root/a y.psb",
                                     "a/b/whole-path y.psb"));
}

TEST_F(PackageListing, testsALoopingLinkLikeAnyOtherEntry) {
    stick_.addDirectory("a");
    link(".", "a/self.psb");
    link("..", "a/parent.psb");
    EXPECT_THAT(placesOf(backup("")), UnorderedElementsAre("a self.psb", "a parent.psb"));
    EXPECT_EQ(backup("").at(0).kind, 0U);
    device_.order("BR.checkBackupFile", "reject", "self");
    EXPECT_THAT(placesOf(backup("")), ElementsAre("a parent.psb"));
}

TEST_F(PackageListing, endsWhereTwoDirectoriesLeadIntoEachOther) {
    stick_.addFile("a/x.psb");
    stick_.addFile("b/y.psb");
    link("../b", "a/to-b");
    link("../a", "b/to-a");
    EXPECT_THAT(placesOf(backup("")),
                UnorderedElementsAre("a x.psb", "a/to-b y.psb", "b y.psb", "b/to-a x.psb"));
}

// ---- the scan as an operation of its own ------------------------------------------------------

TEST_F(PackageListing, isEmptiedFromTheWorkingList) {
    stick_.addFile("a.psb");
    stick_.addFile("b/c");
    restore("");
    EXPECT_EQ(backup("").size(), 1U);
    EXPECT_THAT(placesOf(manager_.scanFiles("USB_X60.1", "b")), ElementsAre("b c"));
    EXPECT_THAT(backup("missing"), IsEmpty());
    EXPECT_THAT(placesOf(manager_.scanFiles("USB_X60.1", "b")), ElementsAre("b c"));
}

TEST_F(PackageListing, isAScanThatAppendsToTheWorkingList) {
    stick_.addFile("a/x.psb");
    stick_.addFile("b");
    manager_.scanFiles("USB_X60.1", "");
    EXPECT_THAT(placesOf(manager_.scanTree("USB_X60.1", stick_.path("a"), ".psb")),
                ElementsAre("/ b", "a x.psb"));
    EXPECT_EQ(manager_.scanTree("USB_X60.1", stick_.path("missing"), ".psb").size(), 2U);
    EXPECT_EQ(manager_.scanTree("USB_X60.1", stick_.path("b"), ".psb").size(), 2U);
}

TEST_F(PackageListing, countsWhatTheWorkingListHoldsAlready) {
    addPackages("a", 40);
    for (int number = 0; number < 29; ++number) {
        stick_.addFile("plain/" + std::to_string(number), "");
    }
    manager_.scanFiles("USB_X60.1", "plain");
    EXPECT_EQ(manager_.scanTree("USB_X60.1", stick_.path("a"), ".psb").size(), 30U);
    EXPECT_EQ(manager_.scanTree("USB_X60.1", stick_.path("a"), ".psb").size(), 31U);
}

TEST_F(PackageListing, isAScanThatFailsOutsideTheStick) {
    const TemporaryDirectory elsewhere;
    writeFile(elsewhere.path("plain"), "");
    EXPECT_THAT(manager_.scanTree("USB_X60.1", elsewhere.path(), ".psb"), IsEmpty());
    writeFile(elsewhere.path("x.psb"), "");
    EXPECT_THROW(manager_.scanTree("USB_X60.1", elsewhere.path(), ".psb"), std::out_of_range);
}

TEST_F(PackageListing, readsEachDirectoryOnceAndLooksAtEachEntryOnce) {
    for (const char* name : {"a/b.psb", "a/c/d.psb", "a/c/.hidden", "e"}) {
        stick_.addFile(name);
    }
    const WatchedCalls watched;
    EXPECT_EQ(backup("").size(), 2U);
    EXPECT_EQ(watched.count("opendir"), 3U);
    EXPECT_EQ(watched.count("closedir"), 3U);
    EXPECT_EQ(watched.count("readdir64"), 15U);  // . .. and the end of each, six entries
    for (const char* name : {"a", "a/b.psb", "a/c", "a/c/d.psb", "e"}) {
        EXPECT_EQ(watched.count("stat64", stick_.path(name)), 1U) << name;
    }
}

}  // namespace
}  // namespace test_support

// Searching the tree of a stick for backup and update files.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <stdexcept>

#include "tests/support/process/printed_text.h"
#include "tests/support/process/unique_fd.h"
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

TEST_F(PackageListing, fillsEveryField) {
    stick_.addFile("old/x.psb", "12345");
    EXPECT_THAT(wholly(backup("")),
                ElementsAre("kind 1 name 'x.psb' size 5 location 'old' reserved ''"));
    EXPECT_THAT(offeredPaths(device_), ElementsAre("/media/usb/USB_X60.1/old/x.psb"));
}

TEST_F(PackageListing, findsBackupsOrUpdates) {
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

TEST_F(PackageListing, beginsAtGivenDirectory) {
    stick_.addFile("root.psb");
    stick_.addFile("a/b/c.psb");
    EXPECT_THAT(placesOf(backup("a")), ElementsAre("a/b c.psb"));
    EXPECT_THAT(placesOf(backup("a/b")), ElementsAre("a/b c.psb"));
    EXPECT_THAT(placesOf(backup("a/b/")), ElementsAre("a/b/ c.psb"));
    EXPECT_THAT(placesOf(backup("/a")), ElementsAre("/a/b c.psb"));
    EXPECT_THAT(placesOf(backup("")), UnorderedElementsAre("/ root.psb", "a/b c.psb"));
}

TEST_F(PackageListing, findsMarkerAnywhereInPath) {
    stick_.addFile("report.psb.txt");
    stick_.addFile("x.psbx");
    stick_.addFile("set.psb/inside/plain.txt");
    stick_.addFile("plain.txt");
    stick_.addFile("x.ps/b");
    EXPECT_THAT(placesOf(backup("")),
                UnorderedElementsAre("/ report.psb.txt", "/ x.psbx", "/ set.psb", "set.psb inside",
                                     "set.psb/inside plain.txt"));
}

TEST_F(PackageListing, listsContentsBeforeDirectory) {
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

TEST_F(PackageListing, listsOnlyAcceptedFiles) {
    stick_.addFile("good.psb");
    stick_.addFile("bad.psb");
    stick_.addFile("baddir.psb/good");
    device_.order("BR.checkBackupFile", "reject", "/bad.psb");
    EXPECT_THAT(namesOf(backup("")), UnorderedElementsAre("good.psb", "baddir.psb", "good"));
    device_.order("BR.checkBackupFile", "reject", "/baddir.psb");
    EXPECT_THAT(namesOf(backup("")), ElementsAre("good.psb"));
    stick_.addFile("good.fwf");
    for (const std::int64_t status : {-1LL, 1LL, 1LL << 32U}) {
        device_.orderStatus("BR.checkBackupFile", status);
        device_.orderStatus("FU.checkFirmwareFile", status);
        EXPECT_THAT(backup(""), IsEmpty()) << status;
        EXPECT_THAT(update(""), IsEmpty()) << status;
    }
}

TEST_F(PackageListing, isEmptyWithoutStickOrDirectory) {
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

TEST_F(PackageListing, endsDirectoryAt30Entries) {
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

TEST_F(PackageListing, goesOnInEnclosingDirectories) {
    addPackages("a.psb/b.psb/c.psb", 40);
    const std::vector<std::string> places = placesOf(backup(""));
    ASSERT_EQ(places.size(), 33U);
    EXPECT_EQ(places[29].substr(0, 18), "a.psb/b.psb/c.psb ");
    EXPECT_EQ(places[30], "a.psb/b.psb c.psb");
    EXPECT_EQ(places[31], "a.psb b.psb");
    EXPECT_EQ(places[32], "/ a.psb");
}

TEST_F(PackageListing, endsEnclosingDirectoryAtNextEntry) {
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

TEST_F(PackageListing, goesOnInLevelThatHasNotAppended) {
    addPackages("a/of30", 30);
    addPackages("b/of30", 30);
    // Neither "a" nor "b" is a package, so the root never stops: each "of30" adds to the list.
    const std::vector<FileEntry> list = backup("");
    EXPECT_EQ(list.size(), 31U);
}

TEST_F(PackageListing, followsLinkElsewhere) {
    stick_.addFile("a/x.psb");
    link("a", "b");
    makeDirectories("/media/usb/beside");
    writeFile("/media/usb/beside/y.psb", "");
    link("/media/usb/beside", "c");
    EXPECT_THAT(placesOf(backup("")), UnorderedElementsAre("a x.psb", "b x.psb", "c y.psb"));
    unlink("/media/usb/beside/y.psb");
    rmdir("/media/usb/beside");
}

TEST_F(PackageListing, entersNoDirectoryItIsIn) {
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

TEST_F(PackageListing, checksLoopingLinkLikeAnyEntry) {
    stick_.addDirectory("a");
    link(".", "a/self.psb");
    link("..", "a/parent.psb");
    EXPECT_THAT(placesOf(backup("")), UnorderedElementsAre("a self.psb", "a parent.psb"));
    EXPECT_EQ(backup("").at(0).kind, 0U);
    device_.order("BR.checkBackupFile", "reject", "self");
    EXPECT_THAT(placesOf(backup("")), ElementsAre("a parent.psb"));
}

// Directories called "d" one in the other, deeper than a path can name, and a package in every
// `step`th of them.
void dig(const std::string& root, int depth, int step) {
    UniqueFd at(open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (int level = 1; level <= depth; ++level) {
        ASSERT_EQ(mkdirat(at.get(), "d", 0700), 0);
        at.reset(openat(at.get(), "d", O_PATH | O_DIRECTORY | O_CLOEXEC));
        ASSERT_TRUE(at);
        if (level % step == 0) {
            const UniqueFd file(openat(at.get(), "x.psb", O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
            ASSERT_TRUE(file);
        }
    }
}

TEST_F(PackageListing, goesAsDeepAsPathsReach) {
    constexpr rlim_t kDeepest = PATH_MAX / 2;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur < kDeepest + 100) {
        GTEST_SKIP() << "this machine allows too few open files for so deep a tree";
    }
    constexpr int kStep = 100;
    dig(stick_.path(), 2500, kStep);
    // "/d" of each level, "/x.psb" and the byte that ends the path.
    const int levels = (PATH_MAX - static_cast<int>(stick_.path().size()) - 7) / 2;
    const std::vector<FileEntry> list = backup("");
    EXPECT_EQ(list.size(), static_cast<std::size_t>(levels / kStep));
    ASSERT_FALSE(list.empty());
    EXPECT_EQ(list.front().location.size(),
              static_cast<std::size_t>(levels / kStep * kStep * 2 - 1));
    EXPECT_EQ(list.back().location.size(), static_cast<std::size_t>(kStep * 2 - 1));
}

TEST_F(PackageListing, emptiesWorkingList) {
    stick_.addFile("a.psb");
    stick_.addFile("b/c");
    restore("");
    EXPECT_EQ(backup("").size(), 1U);
    EXPECT_THAT(placesOf(manager_.scanFiles("USB_X60.1", "b")), ElementsAre("b c"));
    EXPECT_THAT(backup("missing"), IsEmpty());
    EXPECT_THAT(placesOf(manager_.scanFiles("USB_X60.1", "b")), ElementsAre("b c"));
}

TEST_F(PackageListing, countsWholeWorkingList) {
    addPackages("a", 40);
    for (int number = 0; number < 29; ++number) {
        stick_.addFile("plain/" + std::to_string(number), "");
    }
    EXPECT_EQ(manager_.scanFiles("USB_X60.1", "plain").size(), 29U);
    EXPECT_EQ(manager_.scanTree("USB_X60.1", stick_.path("missing"), ".psb").size(), 29U);
    EXPECT_EQ(manager_.scanTree("USB_X60.1", stick_.path("a"), ".psb").size(), 30U);
    EXPECT_EQ(manager_.scanTree("USB_X60.1", stick_.path("a"), ".psb").size(), 31U);
}

TEST_F(PackageListing, throwsOutsideTheStick) {
    const TemporaryDirectory elsewhere;
    writeFile(elsewhere.path("plain"), "");
    EXPECT_THAT(manager_.scanTree("USB_X60.1", elsewhere.path(), ".psb"), IsEmpty());
    writeFile(elsewhere.path("x.psb"), "");
    EXPECT_THROW(manager_.scanTree("USB_X60.1", elsewhere.path(), ".psb"), std::out_of_range);
}

TEST_F(PackageListing, looksAtEachEntryOnce) {
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

// Listing one directory level for the choice of what to restore.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "tests/support/process/printed_text.h"
#include "tests/unit/listing.h"
#include "tests/unit/watched_calls.h"

namespace test_support {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class RestoreListing : public Listing {
protected:
    std::int64_t sizeOf(const std::string& path) const {
        struct stat64 status {};
        EXPECT_EQ(stat64(stick_.path(path).c_str(), &status), 0) << path;
        return status.st_size;
    }
};

TEST_F(RestoreListing, fillsEveryFieldOfFile) {
    stick_.addFile("file", "12345");
    EXPECT_THAT(wholly(restore("")),
                ElementsAre("kind 1 name 'file' size 5 location '/' reserved ''"));
}

TEST_F(RestoreListing, countsBytesBeyond4GiB) {
    stick_.addFile("large");
    ASSERT_EQ(truncate64(stick_.path("large").c_str(), (1LL << 32U) + 5), 0);
    EXPECT_THAT(wholly(restore("")),
                ElementsAre("kind 1 name 'large' size 4294967301 location '/' reserved ''"));
}

TEST_F(RestoreListing, fillsEveryFieldOfDirectory) {
    stick_.addFile("a/directory/inside");
    EXPECT_THAT(wholly(restore("a")),
                ElementsAre("kind 0 name 'directory' size " +
                            std::to_string(sizeOf("a/directory")) + " location 'a' reserved ''"));
}

TEST_F(RestoreListing, listsDirectoriesFirstUnsorted) {
    std::vector<std::string> directories;
    std::vector<std::string> files;
    // Neither alphabetical nor in the order of creation by kind.
    for (const int number : {7, 3, 9, 1, 8, 2, 6, 4, 5, 0}) {
        stick_.addFile("file" + std::to_string(number));
        stick_.addDirectory("directory" + std::to_string(9 - number));
    }
    for (const std::string& name : deliveredNames(stick_.path())) {
        (name[0] == 'd' ? directories : files).push_back(name);
    }
    std::vector<std::string> expected = directories;
    expected.insert(expected.end(), files.begin(), files.end());
    ASSERT_EQ(expected.size(), 20U);
    EXPECT_FALSE(std::is_sorted(directories.begin(), directories.end()));
    EXPECT_THAT(namesOf(restore("")), ElementsAreArray(expected));
}

TEST_F(RestoreListing, skipsHiddenEntries) {
    stick_.addFile(".x");
    stick_.addFile("..x");
    stick_.addFile(".hidden/visible");
    stick_.addFile("x.");
    stick_.addDirectory("d.d");
    EXPECT_THAT(namesOf(restore("")), ElementsAre("d.d", "x."));
    EXPECT_THAT(placesOf(restore(".hidden")), ElementsAre(".hidden visible"));
}

TEST_F(RestoreListing, givesLocationAsAskedFor) {
    stick_.addFile("a/b/c.psb");
    const std::vector<std::pair<std::string, std::string>> locations{
        {"a/b", "a/b"},
        {"a/b/", "a/b/"},
        {"/a/b", "/a/b"},
        {"a//b", "a//b"},
        {"./a/b", "./a/b"},
        {"a/../a/b", "a/../a/b"},
        {"../USB_X60.1/a/b", "../USB_X60.1/a/b"},
    };
    for (const auto& [directory, location] : locations) {
        EXPECT_THAT(placesOf(restore(directory)), ElementsAre(location + " c.psb")) << directory;
    }
}

TEST_F(RestoreListing, givesSlashForRoot) {
    stick_.addFile("c.psb");
    EXPECT_THAT(placesOf(restore("")), ElementsAre("/ c.psb"));
    EXPECT_THAT(placesOf(restore("/")), ElementsAre("/ c.psb"));
    EXPECT_THAT(placesOf(restore(".")), ElementsAre(". c.psb"));
}

TEST_F(RestoreListing, isEmptyWithoutStickOrDirectory) {
    stick_.addFile("file");
    for (const std::string mount : {"USB_X60.9", "USB_X60.2", "USB_X60.1/missing", "usb_x60.1"}) {
        EXPECT_THAT(manager_.getRestoreFilesList(mount, ""), IsEmpty()) << mount;
        EXPECT_THAT(manager_.getRestoreFilesList(mount, "../USB_X60.1"), IsEmpty()) << mount;
    }
    EXPECT_THAT(restore("missing"), IsEmpty());
    EXPECT_THAT(restore("file/below"), IsEmpty());
    EXPECT_EQ(printedBy([&] { restore("missing"); }), "");
}

TEST_F(RestoreListing, isEmptyForFile) {
    stick_.addFile("file");
    ASSERT_EQ(mknod(stick_.path("pipe").c_str(), S_IFIFO | 0600U, 0), 0);
    ASSERT_EQ(mknod(stick_.path("socket").c_str(), S_IFSOCK | 0600U, 0), 0);
    EXPECT_THAT(restore("file"), IsEmpty());
    EXPECT_THAT(restore("pipe"), IsEmpty());
    EXPECT_THAT(restore("socket"), IsEmpty());
}

TEST_F(RestoreListing, followsLinks) {
    stick_.addFile("a/file", "123");
    link("a", "to-directory");
    link("a/file", "to-file");
    link("missing", "to-nothing");
    link("to-itself", "to-itself");
    const std::string directorySize = std::to_string(sizeOf("a"));
    EXPECT_THAT(
        wholly(restore("")),
        UnorderedElementsAre(
            "kind 0 name 'a' size " + directorySize + " location '/' reserved ''",
            "kind 0 name 'to-directory' size " + directorySize + " location '/' reserved ''",
            "kind 1 name 'to-file' size 3 location '/' reserved ''"));
    EXPECT_THAT(placesOf(restore("to-directory")), ElementsAre("to-directory file"));
}

// Only one bit of the type is looked at.
TEST_F(RestoreListing, countsSocketAsDirectory) {
    ASSERT_EQ(mknod(stick_.path("pipe").c_str(), S_IFIFO | 0600U, 0), 0);
    ASSERT_EQ(mknod(stick_.path("socket").c_str(), S_IFSOCK | 0600U, 0), 0);
    EXPECT_THAT(wholly(restore("")),
                ElementsAre("kind 0 name 'socket' size 0 location '/' reserved ''",
                            "kind 1 name 'pipe' size 0 location '/' reserved ''"));
}

TEST_F(RestoreListing, keepsNamesByteForByte) {
    std::vector<std::string> names{"%n%s%1000d", "line\nbreak\r\t",     "\xff\xfe\x80",
                                   "\xc3",       "\xed\xa0\x80",        " ",
                                   "\"'\\",      std::string(255, 'x'), std::string(127, '\xc3')};
    for (const std::string& name : names) {
        stick_.addFile(name);
        stick_.addFile("d/" + name + "/inside");
        EXPECT_THAT(placesOf(restore("d/" + name)), ElementsAre("d/" + name + " inside"));
    }
    EXPECT_THAT(namesOf(restore("d")), testing::UnorderedElementsAreArray(names));
    names.insert(names.begin(), "d");
    EXPECT_THAT(namesOf(restore("")), testing::UnorderedElementsAreArray(names));
}

TEST_F(RestoreListing, looksAtEachEntryOnce) {
    for (const char* name : {"a/b", "a/c", "a/.hidden", "a/d/e", "a/f/g"}) {
        stick_.addFile(name);
    }
    const WatchedCalls watched;
    EXPECT_EQ(restore("a").size(), 4U);
    EXPECT_EQ(watched.count("opendir"), 1U);
    EXPECT_EQ(watched.count("closedir"), 1U);
    EXPECT_EQ(watched.count("readdir64"), 8U);  // . .. .hidden b c d f and the end
    EXPECT_EQ(watched.count("stat64"), 6U);  // the stick, the directory and four entries
    for (const char* name : {"a/b", "a/c", "a/d", "a/f", "a"}) {
        EXPECT_EQ(watched.count("stat64", stick_.path(name)), 1U) << name;
    }
    EXPECT_EQ(watched.count("stat64", stick_.path()), 1U);
}

TEST_F(RestoreListing, isEmptyForPathTooLong) {
    stick_.addFile("a/b.psb");
    for (const std::string& path : {std::string(256, 'x'), "a" + std::string(100000, '/')}) {
        EXPECT_THAT(restore(path), IsEmpty());
        EXPECT_THAT(backup(path), IsEmpty());
        EXPECT_THAT(manager_.getRestoreFilesList(path, ""), IsEmpty());
    }
}

TEST_F(RestoreListing, staysInWorkingList) {
    stick_.addFile("a/b");
    stick_.addFile("c");
    restore("");
    EXPECT_THAT(placesOf(manager_.scanFiles("USB_X60.1", "a")), ElementsAre("/ a", "/ c", "a b"));
    EXPECT_THAT(placesOf(manager_.scanDirectories("USB_X60.1", "")),
                ElementsAre("/ a", "/ c", "a b", "/ a"));
    for (const std::string missing : {"USB_X60.2", "USB_X60.1"}) {
        EXPECT_EQ(manager_.scanFiles(missing, "missing").size(), 4U);
        EXPECT_EQ(manager_.scanDirectories(missing, "missing").size(), 4U);
    }
    EXPECT_THAT(placesOf(restore("a")), ElementsAre("a b"));
    EXPECT_THAT(restore("missing"), IsEmpty());
    EXPECT_THAT(manager_.scanFiles("USB_X60.2", ""), IsEmpty());
}

TEST(RelativePath, losesFirstMountPath) {
    EXPECT_EQ(TfMngr::relativePath("/media/usb/USB_X60.1/a/b", "USB_X60.1"), "a/b");
    EXPECT_EQ(TfMngr::relativePath("/media/usb/USB_X60.1/", "USB_X60.1"), "");
    EXPECT_EQ(TfMngr::relativePath("/media/usb/USB_X60.1//a", "USB_X60.1"), "/a");
    EXPECT_EQ(TfMngr::relativePath("/x/media/usb/m/y/media/usb/m/z", "m"), "/xy/media/usb/m/z");
    EXPECT_EQ(TfMngr::relativePath("/media/usb//a", ""), "a");
}

TEST(RelativePath, throwsForPathElsewhere) {
    for (const std::string path :
         {"", "/media/usb/USB_X60.1", "/media/usb/USB_X60.10/a", "/mnt/USB_X60.1/a"}) {
        try {
            TfMngr::relativePath(path, "USB_X60.1");
            ADD_FAILURE() << path;
        } catch (const std::out_of_range& error) {
            EXPECT_THAT(error.what(), testing::HasSubstr("basic_string::erase"));
        }
    }
}

TEST(ParentPath, endsBeforeLastSlash) {
    EXPECT_EQ(TfMngr::parentPath("a/b/c"), "a/b");
    EXPECT_EQ(TfMngr::parentPath("a/b/"), "a/b");
    EXPECT_EQ(TfMngr::parentPath("/a"), "");
    EXPECT_EQ(TfMngr::parentPath("/"), "");
    EXPECT_EQ(TfMngr::parentPath(""), "");
}

}  // namespace
}  // namespace test_support

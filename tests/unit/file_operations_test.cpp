// Deleting files and creating directories on a stick.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/printed_text.h"
#include "tests/unit/watched_calls.h"
#include "transfer/tf_mngr.h"

namespace test_support {
namespace {

constexpr const char* kRoot = "/media/usb/USB_X60.1";

class FileOperation : public testing::Test {
protected:
    // Fails the test unless the answer and all that is printed are as said.
    void expectDelete(const std::string& path, bool expected, const std::string& printed) {
        bool answer = !expected;
        EXPECT_EQ(printedBy([&] { answer = manager_.DeleteFile("USB_X60.1", path); }), printed)
            << path;
        EXPECT_EQ(answer, expected) << path;
    }
    void expectFileDeleted(const std::string& path) {
        expectDelete(path, true,
                     "\n The File " + std::string(kRoot) + "/" + path + " removed Successfully \n");
    }
    void expectDirectoryDeleted(const std::string& path) {
        expectDelete(
            path, true,
            "\n The Directory " + std::string(kRoot) + "/" + path + " removed Successfully \n");
    }
    void expectNotDeleted(const std::string& path) { expectDelete(path, false, ""); }

    // Nothing is printed in any case.
    void expectCreate(const std::string& path, bool expected) {
        bool answer = !expected;
        EXPECT_EQ(printedBy([&] { answer = manager_.CreateDirectory("USB_X60.1", path); }), "");
        EXPECT_EQ(answer, expected) << path;
    }

    // A special file; skips the test where only the machine's root may make one of its type.
    void makeNode(const std::string& path, mode_t type) {
        if (mknod(stick_.path(path).c_str(), type | 0600U, 0) == 0) {
            return;
        }
        ASSERT_EQ(errno, EPERM);
        GTEST_SKIP() << "device nodes take the machine's root";
    }

    void link(const std::string& target, const std::string& path) const {
        ASSERT_EQ(symlink(target.c_str(), stick_.path(path).c_str()), 0);
    }

    bool holds(const std::string& path) const { return exists(stick_.path(path)); }

    Stick stick_{1};
    TfMngr manager_;
};

using DeleteFile = FileOperation;
using CreateDirectory = FileOperation;

// Its permission bits, all bits set when there is no such directory.
mode_t directoryMode(const std::string& path) {
    struct stat64 status {};
    const bool is = stat64(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    return is ? status.st_mode & 07777U : ~mode_t{0};
}

TEST_F(DeleteFile, removesAFileAndPrintsItsPath) {
    stick_.addFile("a/b.psb");
    expectFileDeleted("a/b.psb");
    EXPECT_FALSE(holds("a/b.psb"));
    EXPECT_TRUE(holds("a"));
}

TEST_F(DeleteFile, removesAnEmptyDirectory) {
    stick_.addDirectory("a/b");
    expectDirectoryDeleted("a/b");
    stick_.addDirectory("a/c");
    expectDirectoryDeleted("a/c/");
    EXPECT_FALSE(holds("a/b"));
    EXPECT_FALSE(holds("a/c"));
}

TEST_F(DeleteFile, keepsADirectoryWithContents) {
    stick_.addFile("a/b");
    stick_.addFile("hidden/.x");
    expectNotDeleted("a");
    expectNotDeleted("hidden");
    EXPECT_TRUE(holds("a/b"));
    EXPECT_TRUE(holds("hidden/.x"));
}

TEST_F(DeleteFile, failsOnAMissingTarget) {
    stick_.addFile("file");
    expectNotDeleted("missing");
    expectNotDeleted("missing/file");
    expectNotDeleted("file/");
    expectNotDeleted("file/below");
    expectNotDeleted(std::string(256, 'x'));
    expectNotDeleted(std::string(5000, '/') + "file");
    EXPECT_TRUE(holds("file"));
}

TEST_F(DeleteFile, keepsTheStickItself) {
    expectNotDeleted("");
    stick_.addFile("file");
    expectNotDeleted("");
    expectNotDeleted("/");
    EXPECT_TRUE(holds("file"));
}

TEST_F(DeleteFile, usesThePathUnchanged) {
    makeDirectories("/media/usb/beside");
    writeFile("/media/usb/beside/file", "");
    stick_.addFile("a/file");
    stick_.addFile("b");
    stick_.addFile("%n%s %1000d\n\xff\xfe");
    expectFileDeleted("//a/.//../a/file");
    expectFileDeleted("/b");
    expectFileDeleted("%n%s %1000d\n\xff\xfe");
    expectFileDeleted("../beside/file");
    expectDirectoryDeleted("../beside");
    expectNotDeleted("a/.");
    EXPECT_FALSE(exists("/media/usb/beside"));
}

TEST_F(DeleteFile, removesALinkToAFileOnly) {
    stick_.addFile("file");
    stick_.addDirectory("directory");
    link("file", "to-file");
    link("directory", "to-directory");
    link("missing", "to-nothing");
    link("to-itself", "to-itself");
    expectFileDeleted("to-file");
    EXPECT_FALSE(holds("to-file"));
    EXPECT_TRUE(holds("file"));
    for (const char* kept : {"to-directory", "to-nothing", "to-itself"}) {
        expectNotDeleted(kept);
        EXPECT_TRUE(holds(kept)) << kept;
    }
    EXPECT_TRUE(holds("directory"));
}

TEST_F(DeleteFile, removesASocketAsAFile) {
    makeNode("socket", S_IFSOCK);
    expectFileDeleted("socket");
    EXPECT_FALSE(holds("socket"));
}

TEST_F(DeleteFile, keepsAPipe) {
    makeNode("pipe", S_IFIFO);
    expectNotDeleted("pipe");
    EXPECT_TRUE(holds("pipe"));
}

TEST_F(DeleteFile, keepsDevices) {
    makeNode("block", S_IFBLK);
    if (IsSkipped()) {
        return;
    }
    makeNode("character", S_IFCHR);
    expectNotDeleted("block");
    expectNotDeleted("character");
    EXPECT_TRUE(holds("block"));
    EXPECT_TRUE(holds("character"));
}

TEST_F(DeleteFile, failsOnAReadOnlyStick) {
    stick_.addFile("file");
    stick_.addDirectory("directory");
    stick_.makeReadOnly();
    expectNotDeleted("file");
    expectNotDeleted("directory");
    EXPECT_TRUE(holds("file"));
    EXPECT_TRUE(holds("directory"));
}

TEST_F(DeleteFile, failsOnAMissingStick) {
    stick_.addFile("file");
    for (const std::string mount : {"USB_X60.2", "USB_X60.1/missing", "usb_x60.1"}) {
        EXPECT_EQ(printedBy([&] { EXPECT_FALSE(manager_.DeleteFile(mount, "../USB_X60.1/file")); }),
                  "")
            << mount;
    }
    EXPECT_TRUE(holds("file"));
}

TEST_F(CreateDirectory, makesMissingParentsWithMode0700) {
    const mode_t before = umask(022);
    expectCreate("a/b/c/", true);
    umask(before);
    for (const char* made : {"a", "a/b", "a/b/c"}) {
        EXPECT_EQ(directoryMode(stick_.path(made)), mode_t{0700}) << made;
    }
}

TEST_F(CreateDirectory, obeysTheUmask) {
    const mode_t before = umask(0277);
    expectCreate("a", true);
    umask(before);
    EXPECT_EQ(directoryMode(stick_.path("a")), mode_t{0500});
}

TEST_F(CreateDirectory, failsWhereSomethingExists) {
    stick_.addFile("file");
    stick_.addDirectory("directory");
    makeNode("pipe", S_IFIFO);
    link("directory", "to-directory");
    for (const char* path :
         {"", "/", ".", "..", "file", "directory", "directory/", "pipe", "to-directory"}) {
        expectCreate(path, false);
    }
    EXPECT_EQ(readFile(stick_.path("file")), "content");
}

TEST_F(CreateDirectory, usesThePathUnchanged) {
    expectCreate("//a//./b//", true);
    EXPECT_EQ(directoryMode(stick_.path("a/b")), mode_t{0700});
    expectCreate("missing/../c", true);
    EXPECT_EQ(directoryMode(stick_.path("missing")), mode_t{0700});
    EXPECT_EQ(directoryMode(stick_.path("c")), mode_t{0700});
    expectCreate("../beside", true);
    EXPECT_EQ(directoryMode("/media/usb/beside"), mode_t{0700});
    rmdir("/media/usb/beside");
    expectCreate("%n%s\n\xff", true);
    EXPECT_TRUE(holds("%n%s\n\xff"));
}

TEST_F(CreateDirectory, returnsTrueAlsoWhenMkdirFails) {
    stick_.addFile("file");
    link("missing", "to-nothing");
    expectCreate("file/below", true);
    expectCreate("to-nothing", true);
    expectCreate("x/../file/y/z", true);
    EXPECT_EQ(readFile(stick_.path("file")), "content");
    EXPECT_TRUE(std::filesystem::is_symlink(stick_.path("to-nothing")));
    EXPECT_FALSE(holds("missing"));
    stick_.makeReadOnly();
    expectCreate("a/b", true);
    EXPECT_FALSE(holds("a"));
}

TEST_F(CreateDirectory, failsOnAMissingStick) {
    EXPECT_EQ(printedBy([&] { EXPECT_FALSE(manager_.CreateDirectory("USB_X60.2", "a")); }), "");
    EXPECT_FALSE(exists("/media/usb/USB_X60.2"));
}

// A path of `length` bytes in all on the stick: two components, the second of equal letters.
std::string pathOfLength(std::size_t length) {
    const std::string first = std::string(100, 'a') + "/";
    return first + std::string(length - std::string(kRoot).size() - 1 - first.size(), 'b');
}

TEST_F(CreateDirectory, cutsThePathAt255Bytes) {
    const std::string longest = pathOfLength(255);
    expectCreate(longest, true);
    EXPECT_EQ(directoryMode(stick_.path(longest)), mode_t{0700});
    expectCreate(longest, false);
    for (const std::size_t length : {256U, 257U, 300U}) {
        rmdir(stick_.path(longest).c_str());
        expectCreate(pathOfLength(length), true);
        EXPECT_TRUE(holds(longest));
        EXPECT_FALSE(holds(pathOfLength(length)));
        expectCreate(pathOfLength(length), true);  // it still does not exist
    }
}

TEST_F(DeleteFile, failsOnAPulledStick) {
    stick_.addFile("a/b");
    stick_.pull();
    expectNotDeleted("a/b");
    rmdir(kRoot);
    expectNotDeleted("a/b");
}

TEST_F(CreateDirectory, failsWithoutTheMountPoint) {
    stick_.pull();
    expectCreate("c", true);  // the mount point is still there
    EXPECT_EQ(directoryMode(stick_.path("c")), mode_t{0700});
    rmdir(stick_.path("c").c_str());
    rmdir(kRoot);
    expectCreate("c", false);
    EXPECT_FALSE(exists(kRoot));
}

TEST(MakeDirectoryPath, returnsTheLastMkdir) {
    const TemporaryDirectory folder;
    writeFile(folder.path("file"), "");
    const std::vector<std::pair<std::string, int>> calls{
        {folder.path("a/b/c"), 0},
        {folder.path("a/b/c"), -1},
        {folder.path("a/b/c/"), -1},
        {folder.path("a/b/d/"), 0},
        {folder.path("e//"), -1},  // the walk has made "e" when it comes to "e/"
        {folder.path("file/f"), -1},
        {"", -1},
        {"/", -1},
        {"//", -1},
    };
    for (const auto& [path, result] : calls) {
        EXPECT_EQ(TfMngr::makeDirectoryPath(path.c_str()), result) << path;
    }
    for (const char* made : {"a/b/c", "a/b/d", "e"}) {
        EXPECT_EQ(directoryMode(folder.path(made)), mode_t{0700}) << made;
    }
}

TEST(MakeDirectoryPath, makesNothingBeforeTheFirstSlash) {
    const TemporaryDirectory folder;
    const WatchedCalls watched;
    TfMngr::makeDirectoryPath(folder.path("a").c_str());
    EXPECT_EQ(watched.count("mkdir", ""), 0U);
    EXPECT_EQ(watched.count("mkdir", folder.path("a")), 1U);
}

}  // namespace
}  // namespace test_support

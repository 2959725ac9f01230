// The worker of a backup: parent directories, the file in its way, the device manager's work.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/device/device_calls.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/process_table.h"
#include "tests/unit/job_fixture.h"

namespace test_support {
namespace {

using testing::ElementsAreArray;

mode_t modeOf(const std::string& path) {
    struct stat64 status {};
    EXPECT_EQ(stat64(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
}

class BackupWorker : public JobTest {
protected:
    // What the device libraries see of a first backup.
    Calls wholeBackup(const std::string& target, const std::string& word = "fullbackup") {
        return completed(sizeQuery(1, word)) + completed(backupTo(2, target, word));
    }

    const Stick stick_{1};
};

TEST_F(BackupWorker, startsBeforeLaunchSleeps) {
    const int atRest = threadsOf(getpid());
    int whileSleeping = 0;
    device_.order("BR.setWorkDirectory", "hang", device_.gate());
    clock_.whileSleeping([&] { whileSleeping = threadsOf(getpid()); });
    EXPECT_EQ(numberOf(manager_.DoBackup(stick_.name(), 1, "a.psb")), 0);
    EXPECT_THAT(clock_.sleeps(), testing::ElementsAre(1U));
    EXPECT_GT(whileSleeping, atRest);
}

TEST_F(BackupWorker, endsWithoutController) {
    const std::string target = stick_.path("a.psb");
    during(
        "BR.disconnect", [&] { device_.order("BR.create", "null"); },
        [&] { EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0); });
    const Calls null{"BRCreateController() = null"};
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "fullbackup")) + null));
}

TEST_F(BackupWorker, deletesExistingFileFirst) {
    stick_.addFile("a.psb", "old");
    stick_.addFile("b.psb", "other");
    bool existed = true;
    during(
        "BR.setWorkDirectory", [&] { existed = exists(stick_.path("a.psb")); },
        [&] { EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0); });
    EXPECT_FALSE(existed);
    EXPECT_EQ(readFile(stick_.path("b.psb")), "other");
}

TEST_F(BackupWorker, removesEmptyDirectoryOfThatName) {
    stick_.addDirectory("a.psb");
    device_.order("BR.backup", "write", "3");
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0);
    EXPECT_EQ(readFile(stick_.path("a.psb")), "bbb");
}

TEST_F(BackupWorker, keepsFullDirectoryOfThatName) {
    stick_.addFile("a.psb/kept", "kept");
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(wholeBackup(stick_.path("a.psb"))));
    EXPECT_EQ(readFile(stick_.path("a.psb/kept")), "kept");
}

TEST_F(BackupWorker, goesOnOnReadOnlyStick) {
    Stick stick(2);
    stick.addFile("a.psb", "old");
    stick.makeReadOnly();
    device_.order("BR.backup", "write", "100");
    EXPECT_EQ(backup(stick.name(), 1, "new/a.psb"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(wholeBackup(stick.path("new/a.psb"))));
    EXPECT_FALSE(exists(stick.path("new")));
    EXPECT_EQ(readFile(stick.path("a.psb")), "old");
}

TEST_F(BackupWorker, createsMissingParentsForOwnerAlone) {
    stick_.addDirectory("there");
    const mode_t before = modeOf(stick_.path("there"));
    const mode_t mask = umask(0);
    device_.order("BR.backup", "write", "3");
    EXPECT_EQ(backup(stick_.name(), 1, "there/a/b/c.psb"), 0);
    umask(mask);
    EXPECT_EQ(modeOf(stick_.path("there")), before);
    EXPECT_EQ(modeOf(stick_.path("there/a")), 0700U);
    EXPECT_EQ(modeOf(stick_.path("there/a/b")), 0700U);
    EXPECT_EQ(readFile(stick_.path("there/a/b/c.psb")), "bbb");
}

TEST_F(BackupWorker, goesOnWithoutParent) {
    stick_.addFile("file", "content");
    EXPECT_EQ(backup(stick_.name(), 1, "file/a.psb"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(wholeBackup(stick_.path("file/a.psb"))));
    EXPECT_EQ(readFile(stick_.path("file")), "content");
}

// A directory of the stick whose whole path has `length` characters.
std::string longDirectory(const Stick& stick, std::size_t length) {
    std::string directory;
    const std::size_t left = length - stick.path("").size();
    while (directory.size() < left) {
        const std::size_t part = std::min<std::size_t>(left - directory.size(), 60);
        directory += std::string(part - 1, 'd') + "/";
    }
    directory.pop_back();
    return directory + 'd';
}

TEST_F(BackupWorker, createsParentOf255Characters) {
    const std::string directory = longDirectory(stick_, 255);
    EXPECT_EQ(backup(stick_.name(), 1, directory + "/a.psb"), 0);
    EXPECT_TRUE(exists(stick_.path(directory)));
}

TEST_F(BackupWorker, cutsParentAfter255Characters) {
    const std::string directory = longDirectory(stick_, 256);
    EXPECT_EQ(backup(stick_.name(), 1, directory + "/a.psb"), 0);
    EXPECT_FALSE(exists(stick_.path(directory)));
    EXPECT_TRUE(exists(stick_.path(directory.substr(0, directory.size() - 1))));
}

TEST_F(BackupWorker, passesPathOf10000CharactersOn) {
    const std::string file = std::string(10000, 'x') + "/y.psb";
    EXPECT_EQ(backup(stick_.name(), 1, file), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(wholeBackup(stick_.path(file))));
}

// Whoever may call the service may write there, too: only the bus policy is in between.
TEST_F(BackupWorker, followsPathOffTheStick) {
    const TemporaryDirectory elsewhere;
    const std::string file = "../../.." + elsewhere.path("made/a.psb");
    device_.order("BR.backup", "write", "3");
    EXPECT_EQ(backup(stick_.name(), 1, file), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(wholeBackup(stick_.path(file))));
    EXPECT_EQ(readFile(elsewhere.path("made/a.psb")), "bbb");
}

}  // namespace
}  // namespace test_support

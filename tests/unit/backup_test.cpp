// A backup: the space check before it, and its worker with parent directories and a file in the
// way.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/device/device_calls.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/process_table.h"
#include "tests/unit/job_fixture.h"
#include "tests/unit/watched_calls.h"

namespace test_support {
namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr std::uint64_t kMost = ~std::uint64_t{0};

class Backup : public JobTest {
protected:
    Backup() { stick_.addFile("a.psb", "old"); }

    void TearDown() override {
        if (clock_.sleeps().empty()) {
            EXPECT_EQ(readFile(stick_.path("a.psb")), "old") << "lost to a backup that was refused";
        }
        JobTest::TearDown();
    }

    void orderSize(std::uint64_t bytes) {
        device_.order("BR.getBackupSize", "bytes", std::to_string(bytes));
    }

    const Stick stick_{1, {"8m"}};
};

// Whether something is mounted there is nobody's question.
TEST_F(Backup, takesAnythingUnderMountBaseForStick) {
    stick_.addDirectory("folder");
    orderSize(kMost);
    for (const char* mount : {"USB_X60.1/folder", "USB_X60.1/a.psb", "..", "USB_X60.1/", ""}) {
        EXPECT_EQ(backup(mount, 1, "a.psb"), 3) << mount;
    }
}

TEST_F(Backup, checksNameThenStickThenSpace) {
    orderSize(kMost);
    EXPECT_EQ(backup("USB_X60.2", 1, "a.txt"), 1);
    EXPECT_EQ(backup("USB_X60.1", 1, "a.txt"), 1);
    EXPECT_EQ(backup("USB_X60.2", 1, "../USB_X60.1/a.psb"), 2);
    EXPECT_THAT(device_.calls(), IsEmpty());
    EXPECT_EQ(backup("USB_X60.1", 1, "a.psb"), 3);
}

TEST_F(Backup, asksWithWordOfItsKind) {
    orderSize(kMost);
    Calls expected;
    int number = 0;
    for (const std::uint32_t type : {1U, 2U, 3U, 4U, 0U, 0xFFFFFFFFU}) {
        EXPECT_EQ(backup(stick_.name(), type, "a.psb"), 3) << type;
        const char* words[] = {"", "fullbackup", "recipes", "userdatabase"};
        expected = expected + completed(sizeQuery(++number, type <= 3 ? words[type] : ""));
    }
    EXPECT_THAT(device_.calls(), ElementsAreArray(expected));
}

// On a controller and the thread of its own, which are given back.
TEST_F(Backup, answers3WhenQueryFails) {
    const auto failing = [&](const char* step, std::int64_t status) {
        device_.clearOrders();
        device_.clearRecord();
        device_.orderStatus(step, status);
        EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 3) << step << " " << status;
        return device_.calls();
    };
    const auto before = openDescriptorsOf(getpid());
    int number = 0;
    for (const std::int64_t status : {std::int64_t{1}, std::int64_t{-1}, std::int64_t{1} << 32U}) {
        EXPECT_THAT(failing("BR.connect", status),
                    ElementsAreArray(refused(sizeQuery(++number, "fullbackup"))));
        EXPECT_THAT(failing("BR.getBackupSize", status),
                    ElementsAreArray(completed(sizeQuery(++number, "fullbackup"))));
    }
    device_.order("BR.create", "null");
    device_.clearRecord();
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 3);
    EXPECT_THAT(device_.calls(), testing::ElementsAre("BRCreateController() = null"));
    EXPECT_EQ(openDescriptorsOf(getpid()), before);
}

TEST_F(Backup, answers3WhenStickGoesDuringQuery) {
    makeDirectories(stickPath(2));
    during(
        "BR.getBackupSize", [] { std::filesystem::remove(stickPath(2)); },
        [&] { EXPECT_EQ(backup(stickName(2), 1, "a.psb"), 3); });
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "fullbackup"))));
}

// What the file in its place takes does not count.
TEST_F(Backup, fitsIntoExactlyFreeSpace) {
    constexpr std::uint64_t kHalf = 4U * 1024U * 1024U;
    stick_.addFile("a.psb", std::string(kHalf, 'x'));
    orderSize(kHalf + 1);
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 3);
    EXPECT_EQ(std::filesystem::file_size(stick_.path("a.psb")), kHalf);
    orderSize(kHalf);
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0);
}

TEST_F(Backup, countsBlocksFreeToRoot) {
    struct statfs64 fileSystem {};
    fileSystem.f_bsize = 512;
    fileSystem.f_frsize = 4096;
    fileSystem.f_blocks = std::uint64_t{1} << 40U;
    fileSystem.f_bfree = (std::uint64_t{1} << 33U) + 1;
    fileSystem.f_bavail = 1;
    WatchedCalls calls;
    calls.setFileSystem(fileSystem);
    orderSize(512 * fileSystem.f_bfree + 1);
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 3);
    orderSize(512 * fileSystem.f_bfree);
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0);
}

TEST_F(Backup, fitsWhenLibraryLeavesSizeAlone) {
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0);
}

// ---- the worker --------------------------------------------------------------------------------

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

TEST_F(BackupWorker, keepsEmptyDirectoryThatItLiesIn) {
    stick_.addDirectory("a.psb");
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb/."), 0);
    EXPECT_TRUE(exists(stick_.path("a.psb")));
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

TEST_F(BackupWorker, cutsParentAfter255Characters) {
    const std::string first = std::string(200, 'd') + "/";
    const std::string kept = first + std::string(255 - stick_.path(first).size(), 'e');
    EXPECT_EQ(backup(stick_.name(), 1, kept + "e/a.psb"), 0);
    EXPECT_TRUE(exists(stick_.path(kept)));
    EXPECT_FALSE(exists(stick_.path(kept + "e")));
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

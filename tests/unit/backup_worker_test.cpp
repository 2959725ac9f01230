// The worker of a backup: parent directories, the file in its way, the device manager's work.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

// ---- the device manager's work
// ------------------------------------------------------------------------

TEST_F(BackupWorker, backsUpOnAControllerAndAThreadOfItsOwn) {
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(wholeBackup(stick_.path("a.psb"))));
    int worker = 0;
    for (const DoubleRecord& call : device_.records()) {
        const bool isQuery = call.text.find("BR1") != std::string::npos;
        EXPECT_EQ(call.onMainThread, isQuery) << call.text;
        if (!isQuery) {
            worker = worker == 0 ? call.thread : worker;
            EXPECT_EQ(call.thread, worker) << call.text;
        }
    }
}

TEST_F(BackupWorker, isStartedBeforeTheLaunchTakesItsSecond) {
    const int atRest = threadsOf(getpid());
    int whileSleeping = 0;
    device_.order("BR.setWorkDirectory", "hang", device_.gate());
    clock_.whileSleeping([&] { whileSleeping = threadsOf(getpid()); });
    EXPECT_EQ(numberOf(manager_.DoBackup(stick_.name(), 1, "a.psb")), 0);
    EXPECT_THAT(clock_.sleeps(), testing::ElementsAre(1U));
    EXPECT_GT(whileSleeping, atRest);
}

TEST_F(BackupWorker, goesToDestructionWhenTheDeviceManagerDoesNotTakeTheConnection) {
    stick_.addFile("a.psb");
    during(
        "BR.setWorkDirectory", [&] { device_.orderStatus("BR.connect", 0x100000000); },
        [&] { EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0); });
    EXPECT_THAT(device_.calls(),
                ElementsAreArray(completed(sizeQuery(1, "fullbackup")) +
                                 refused(backupTo(2, stick_.path("a.psb"), "fullbackup"))));
    EXPECT_FALSE(exists(stick_.path("a.psb"))) << "deleting comes before connecting";
}

TEST_F(BackupWorker, endsWhenItGetsNoController) {
    const std::string target = stick_.path("a.psb");
    during(
        "BR.disconnect", [&] { device_.order("BR.create", "null"); },
        [&] { EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0); });
    const Calls null{"BRCreateController() = null"};
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "fullbackup")) + null));
}

TEST_F(BackupWorker, disconnectsAfterABackupThatFailed) {
    device_.orderStatus("BR.backup", -1);
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(wholeBackup(stick_.path("a.psb"))));
}

// The library may use the log until a controller is destroyed: see the address sanitizer.
TEST_F(BackupWorker, andTheSizeQueryLendTheLibraryALogForAsLongAsItHasAController) {
    const std::string credential(64, 'c');
    const PersistentRecord record(recordWith(credential));
    device_.order("*", "log", "0123456");
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0);
    std::vector<std::string> answers;
    for (const char* controller : {"BR1", "BR2"}) {
        for (int call = 0; call < 5; ++call) {  // from setLog to the destruction
            answers.push_back(std::string(controller) + ".readCredential() = 0 \"" + credential +
                              "\"");
        }
    }
    EXPECT_THAT(device_.logAnswers(), ElementsAreArray(answers));
}

TEST_F(BackupWorker, leavesNoDescriptorOpenHoweverItEnds) {
    const auto before = openDescriptorsOf(getpid());
    device_.order("BR.backup", "write", "100");
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0);
    device_.orderStatus("BR.backup", 5);
    EXPECT_EQ(backup(stick_.name(), 1, "b.psb"), 0);
    EXPECT_EQ(openDescriptorsOf(getpid()), before);
}

// ---- the file in its way
// ------------------------------------------------------------------------------

TEST_F(BackupWorker, deletesTheExistingFileBeforeTheDeviceManagerHasItsTurn) {
    stick_.addFile("a.psb", "old");
    stick_.addFile("b.psb", "other");
    bool existed = true;
    during(
        "BR.setWorkDirectory", [&] { existed = exists(stick_.path("a.psb")); },
        [&] { EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0); });
    EXPECT_FALSE(existed);
    EXPECT_EQ(readFile(stick_.path("b.psb")), "other");
}

TEST_F(BackupWorker, leavesTheExistingFileAloneWhenTheBackupIsRefused) {
    stick_.addFile("a.psb", "old");
    device_.order("BR.getBackupSize", "bytes", "18446744073709551615");
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 3);
    EXPECT_EQ(backup("USB_X60.2", 1, "../USB_X60.1/a.psb"), 2);
    EXPECT_EQ(readFile(stick_.path("a.psb")), "old");
}

TEST_F(BackupWorker, removesAnEmptyDirectoryOfThatName) {
    stick_.addDirectory("a.psb");
    device_.order("BR.backup", "write", "3");
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0);
    EXPECT_EQ(readFile(stick_.path("a.psb")), "bbb");
}

TEST_F(BackupWorker, passesADirectoryWithContentsToTheDeviceManager) {
    stick_.addFile("a.psb/kept", "kept");
    EXPECT_EQ(backup(stick_.name(), 1, "a.psb"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(wholeBackup(stick_.path("a.psb"))));
    EXPECT_EQ(readFile(stick_.path("a.psb/kept")), "kept");
}

TEST_F(BackupWorker, goesOnWhenTheStickIsReadOnly) {
    Stick stick(2);
    stick.addFile("a.psb", "old");
    stick.makeReadOnly();
    device_.order("BR.backup", "write", "100");
    EXPECT_EQ(backup(stick.name(), 1, "new/a.psb"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(wholeBackup(stick.path("new/a.psb"))));
    EXPECT_FALSE(exists(stick.path("new")));
    EXPECT_EQ(readFile(stick.path("a.psb")), "old");
}

// ---- parent directories
// -------------------------------------------------------------------------------

TEST_F(BackupWorker, makesTheMissingParentDirectoriesForItsOwnerAlone) {
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

TEST_F(BackupWorker, makesThemBeforeTheDeviceManagerHasItsTurn) {
    bool existed = false;
    during(
        "BR.setWorkDirectory", [&] { existed = exists(stick_.path("a/b")); },
        [&] { EXPECT_EQ(backup(stick_.name(), 1, "a/b/c.psb"), 0); });
    EXPECT_TRUE(existed);
}

TEST_F(BackupWorker, goesOnWhenAParentCannotBeMade) {
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

TEST_F(BackupWorker, makesParentsOf255CharactersAndNotMore) {
    const std::string whole = longDirectory(stick_, 255);
    ASSERT_EQ(stick_.path(whole).size(), 255U);
    EXPECT_EQ(backup(stick_.name(), 1, whole + "/a.psb"), 0);
    EXPECT_TRUE(exists(stick_.path(whole)));
}

TEST_F(BackupWorker, cutsALongerParentOffAtCharacter255) {
    const std::string longer = longDirectory(stick_, 256);
    EXPECT_EQ(backup(stick_.name(), 1, longer + "/a.psb"), 0);
    EXPECT_FALSE(exists(stick_.path(longer)));
    EXPECT_TRUE(exists(stick_.path(longer.substr(0, longer.size() - 1))));
    EXPECT_THAT(device_.calls(), ElementsAreArray(wholeBackup(stick_.path(longer + "/a.psb"))));
}

TEST_F(BackupWorker, makesNothingOfWhatComesAfterASlashAtCharacter255) {
    const std::string upToSlash = longDirectory(stick_, 254);
    EXPECT_EQ(backup(stick_.name(), 1, upToSlash + "/deeper/a.psb"), 0);
    EXPECT_TRUE(exists(stick_.path(upToSlash)));
    EXPECT_FALSE(exists(stick_.path(upToSlash + "/deeper")));
}

// ---- hostile paths
// ------------------------------------------------------------------------------------

TEST_F(BackupWorker, passesAPathOf10000CharactersOn) {
    const std::string file = std::string(10000, 'x') + "/y.psb";
    EXPECT_EQ(backup(stick_.name(), 1, file), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(wholeBackup(stick_.path(file))));
}

TEST_F(BackupWorker, passesFormatsAndControlCharactersOnAsTheyAre) {
    const std::string file = "%n%s/\x01\n\x7F\xFF%.psb";
    device_.order("BR.backup", "write", "3");
    EXPECT_EQ(backup(stick_.name(), 1, file), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(wholeBackup(stick_.path(file))));
    EXPECT_EQ(readFile(stick_.path(file)), "bbb");
}

// Whoever may call the service may write there, too: only the bus policy is in between.
TEST_F(BackupWorker, leavesTheStickWhereThePathSaysSo) {
    const TemporaryDirectory elsewhere;
    const std::string file = "../../.." + elsewhere.path("made/a.psb");
    device_.order("BR.backup", "write", "3");
    EXPECT_EQ(backup(stick_.name(), 1, file), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(wholeBackup(stick_.path(file))));
    EXPECT_EQ(readFile(elsewhere.path("made/a.psb")), "bbb");
}

}  // namespace
}  // namespace test_support

// The checks before a backup: name, stick and space, in this order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
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

// Bytes in the free blocks of a file system, and in those that ordinary users may take.
std::uint64_t bytesFree(const std::string& path) {
    struct statfs64 status {};
    EXPECT_EQ(statfs64(path.c_str(), &status), 0);
    return static_cast<std::uint64_t>(status.f_bsize) * status.f_bfree;
}

std::uint64_t bytesForEverybody(const std::string& path) {
    struct statfs64 status {};
    EXPECT_EQ(statfs64(path.c_str(), &status), 0);
    return static_cast<std::uint64_t>(status.f_bsize) * status.f_bavail;
}

class Backup : public JobTest {
protected:
    void orderSize(std::uint64_t bytes) {
        device_.order("BR.getBackupSize", "bytes", std::to_string(bytes));
    }
    bool nothingWasStarted() const { return clock_.sleeps().empty(); }
};

// ---- name and stick
// -----------------------------------------------------------------------------------

TEST_F(Backup, refusesANameWithoutTheMarker) {
    const Stick stick(1);
    for (const char* name : {"", "backup.txt", "a.fwf", "a.PSB", "psb", "a.ps", "dir/", "%n"}) {
        EXPECT_EQ(backup(stick.name(), 1, name), 1) << name;
    }
    EXPECT_THAT(device_.calls(), IsEmpty());
    EXPECT_TRUE(nothingWasStarted());
}

TEST_F(Backup, findsTheMarkerAnywhereInTheName) {
    const Stick stick(1);
    orderSize(kMost);  // stops each at the check after the next
    for (const char* name : {"a.psb", ".psb", "x.psb.old", "set.psb/x", "../a.psb"}) {
        EXPECT_EQ(backup(stick.name(), 1, name), 3) << name;
    }
}

TEST_F(Backup, refusesAStickThatIsNotThere) {
    const Stick stick(1);
    const std::vector<std::string> strangers{"USB_X60.9", "USB_X60.1/none", "%n",
                                             std::string(10000, 'x'), std::string(300, '.')};
    for (const std::string& mount : strangers) {
        EXPECT_EQ(backup(mount, 1, "a.psb"), 2) << mount;
    }
    EXPECT_THAT(device_.calls(), IsEmpty());
    EXPECT_TRUE(nothingWasStarted());
}

// Whether something is mounted there is nobody's question.
TEST_F(Backup, takesWhateverLiesUnderTheMountBaseForAStick) {
    const Stick stick(1);
    stick.addFile("file");
    stick.addDirectory("folder");
    orderSize(kMost);
    for (const char* mount : {"USB_X60.1/folder", "USB_X60.1/file", "..", "USB_X60.1/", ""}) {
        EXPECT_EQ(backup(mount, 1, "a.psb"), 3) << mount;
    }
}

TEST_F(Backup, looksAtTheNameFirstAndAtTheStickBeforeTheSpace) {
    orderSize(kMost);
    EXPECT_EQ(backup("USB_X60.1", 1, "a.txt"), 1);
    EXPECT_EQ(backup("USB_X60.1", 1, "a.psb"), 2);
    EXPECT_THAT(device_.calls(), IsEmpty());
    const Stick stick(1);
    EXPECT_EQ(backup("USB_X60.1", 1, "a.txt"), 1);
    EXPECT_THAT(device_.calls(), IsEmpty());
    EXPECT_EQ(backup("USB_X60.1", 1, "a.psb"), 3);
}

// ---- the size query
// ----------------------------------------------------------------------------------

TEST_F(Backup, asksForTheSizeOnAControllerOfItsOwn) {
    const Stick stick(1);
    orderSize(kMost);
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 3);
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "fullbackup"))));
    for (const DoubleRecord& call : device_.records()) {
        EXPECT_TRUE(call.onMainThread) << call.text;
    }
    EXPECT_TRUE(nothingWasStarted());
}

TEST_F(Backup, asksWithTheWordOfItsKind) {
    const Stick stick(1);
    orderSize(kMost);
    Calls expected;
    int number = 0;
    for (const std::uint32_t type : {1U, 2U, 3U, 4U, 0U, 0xFFFFFFFFU}) {
        EXPECT_EQ(backup(stick.name(), type, "a.psb"), 3) << type;
        const char* words[] = {"", "fullbackup", "recipes", "userdatabase"};
        expected = expected + completed(sizeQuery(++number, type <= 3 ? words[type] : ""));
    }
    EXPECT_THAT(device_.calls(), ElementsAreArray(expected));
}

TEST_F(Backup, isTooLargeWhenNoControllerCanBeCreated) {
    const Stick stick(1);
    device_.order("BR.create", "null");
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 3);
    EXPECT_THAT(device_.calls(), testing::ElementsAre("BRCreateController() = null"));
    EXPECT_TRUE(nothingWasStarted());
}

TEST_F(Backup, isTooLargeWhenTheDeviceManagerDoesNotTakeTheConnection) {
    const Stick stick(1);
    Calls expected;
    int number = 0;
    for (const std::int64_t status : std::vector<std::int64_t>{1, -1, 0x100000000, INT64_MIN}) {
        device_.orderStatus("BR.connect", status);
        EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 3) << status;
        expected = expected + refused(sizeQuery(++number, "fullbackup"));
    }
    EXPECT_THAT(device_.calls(), ElementsAreArray(expected));
    EXPECT_TRUE(nothingWasStarted());
}

TEST_F(Backup, isTooLargeWhenTheSizeCannotBeLearnt) {
    const Stick stick(1);
    orderSize(0);
    Calls expected;
    int number = 0;
    for (const std::int64_t status : std::vector<std::int64_t>{1, -1, 0x100000000}) {
        device_.orderStatus("BR.getBackupSize", status);
        EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 3) << status;
        expected = expected + completed(sizeQuery(++number, "fullbackup"));
    }
    EXPECT_THAT(device_.calls(), ElementsAreArray(expected));
    EXPECT_TRUE(nothingWasStarted());
}

TEST_F(Backup, isTooLargeForAStickThatGoesDuringTheQuery) {
    const std::string path = stickPath(1);
    makeDirectories(path);
    during(
        "BR.getBackupSize", [&] { std::filesystem::remove(path); },
        [&] { EXPECT_EQ(backup(stickName(1), 1, "a.psb"), 3); });
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "fullbackup"))));
    EXPECT_TRUE(nothingWasStarted());
}

TEST_F(Backup, leavesNoDescriptorOpenWhereverTheQueryFails) {
    const Stick stick(1);
    const auto before = openDescriptorsOf(getpid());
    for (const char* step : {"BR.getBackupSize", "BR.connect"}) {
        device_.orderStatus(step, 1);
        EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 3) << step;
    }
    EXPECT_EQ(openDescriptorsOf(getpid()), before);
}

// ---- space
// --------------------------------------------------------------------------------------------

TEST_F(Backup, fitsWhenItIsAsLargeAsTheFreeSpace) {
    const Stick stick(1, {"8m", "/dev/sda1", false});
    stick.addFile("half", std::string(4U * 1024U * 1024U, 'x'));
    const std::uint64_t space = bytesFree(stick.path());
    ASSERT_EQ(space, 4U * 1024U * 1024U);
    orderSize(space + 1);
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 3);
    EXPECT_TRUE(nothingWasStarted());
    orderSize(space);
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 0);
    orderSize(space - 1);
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 0);
}

TEST_F(Backup, isMeasuredAgainstMoreThan32BitsOfSpace) {
    const Stick stick(1, {"1t", "/dev/sda1", false});
    const std::uint64_t space = bytesFree(stick.path());
    ASSERT_EQ(space, std::uint64_t{1} << 40U);
    orderSize(space + 1);
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 3);
    orderSize(space);
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 0);
}

TEST_F(Backup, isMeasuredInBlocksThatAreFreeToRoot) {
    const Stick stick(1);
    struct statfs64 fileSystem {};
    fileSystem.f_bsize = 512;
    fileSystem.f_frsize = 4096;
    fileSystem.f_blocks = std::uint64_t{1} << 40U;
    fileSystem.f_bfree = (std::uint64_t{1} << 33U) + 1;
    fileSystem.f_bavail = 1;
    WatchedCalls calls;
    calls.setFileSystem(fileSystem);
    orderSize(512 * fileSystem.f_bfree + 1);
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 3);
    orderSize(512 * fileSystem.f_bfree);
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 0);
}

TEST_F(Backup, ofAbsurdSizeFitsNowhere) {
    const Stick stick(1);
    for (const std::uint64_t size :
         {std::uint64_t{1} << 63U, (std::uint64_t{1} << 63U) + 1, kMost}) {
        orderSize(size);
        EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 3) << size;
    }
    EXPECT_TRUE(nothingWasStarted());
}

TEST_F(Backup, ofNoSizeFitsOnAFullStick) {
    const Stick stick(1, {"64k", "/dev/sda1", false});
    stick.addFile("all", std::string(64U * 1024U, 'x'));
    ASSERT_EQ(bytesFree(stick.path()), 0U);
    orderSize(1);
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 3);
    orderSize(0);
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 0);
}

TEST_F(Backup, whoseSizeTheLibraryLeavesAloneCountsAsEmpty) {
    const Stick stick(1);
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 0);
}

TEST_F(Backup, mayTakeTheBlocksThatAreKeptForRoot) {
    if (const std::string reason = LoopStick::whyUnavailable(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    LoopStickOptions options;
    options.reservedPercent = 20;
    const LoopStick stick(1, options);
    const std::uint64_t space = bytesFree(stick.path());
    ASSERT_LT(bytesForEverybody(stick.path()) + 1, space);
    orderSize(space + 1);
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 3);
    orderSize(space);
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 0);
}

}  // namespace
}  // namespace test_support

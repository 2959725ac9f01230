// The space check before a backup.
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

// Bytes in the free blocks of a file system.
std::uint64_t bytesFree(const std::string& path) {
    struct statfs64 status {};
    EXPECT_EQ(statfs64(path.c_str(), &status), 0);
    return static_cast<std::uint64_t>(status.f_bsize) * status.f_bfree;
}

class Backup : public JobTest {
protected:
    void orderSize(std::uint64_t bytes) {
        device_.order("BR.getBackupSize", "bytes", std::to_string(bytes));
    }
    bool nothingWasStarted() const { return clock_.sleeps().empty(); }
};

// Whether something is mounted there is nobody's question.
TEST_F(Backup, takesAnythingUnderMountBaseForStick) {
    const Stick stick(1);
    stick.addFile("file");
    stick.addDirectory("folder");
    orderSize(kMost);
    for (const char* mount : {"USB_X60.1/folder", "USB_X60.1/file", "..", "USB_X60.1/", ""}) {
        EXPECT_EQ(backup(mount, 1, "a.psb"), 3) << mount;
    }
}

TEST_F(Backup, checksNameThenStickThenSpace) {
    orderSize(kMost);
    EXPECT_EQ(backup("USB_X60.1", 1, "a.txt"), 1);
    EXPECT_EQ(backup("USB_X60.1", 1, "a.psb"), 2);
    EXPECT_THAT(device_.calls(), IsEmpty());
    const Stick stick(1);
    EXPECT_EQ(backup("USB_X60.1", 1, "a.txt"), 1);
    EXPECT_THAT(device_.calls(), IsEmpty());
    EXPECT_EQ(backup("USB_X60.1", 1, "a.psb"), 3);
}

TEST_F(Backup, asksWithWordOfItsKind) {
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

// On a controller and the thread of its own, which are given back.
TEST_F(Backup, answers3WhenQueryFails) {
    const Stick stick(1);
    const auto failing = [&](const char* step, std::int64_t status) {
        device_.clearOrders();
        device_.clearRecord();
        orderSize(0);
        device_.orderStatus(step, status);
        EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 3) << step << " " << status;
        EXPECT_TRUE(nothingWasStarted());
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
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 3);
    EXPECT_THAT(device_.calls(), testing::ElementsAre("BRCreateController() = null"));
    EXPECT_EQ(openDescriptorsOf(getpid()), before);
}

TEST_F(Backup, answers3WhenStickGoesDuringQuery) {
    const std::string path = stickPath(1);
    makeDirectories(path);
    during(
        "BR.getBackupSize", [&] { std::filesystem::remove(path); },
        [&] { EXPECT_EQ(backup(stickName(1), 1, "a.psb"), 3); });
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "fullbackup"))));
    EXPECT_TRUE(nothingWasStarted());
}

TEST_F(Backup, fitsIntoExactlyFreeSpace) {
    const Stick stick(1, {"8m", "/dev/sda1"});
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

TEST_F(Backup, countsBlocksFreeToRoot) {
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

TEST_F(Backup, fitsWhenLibraryLeavesSizeAlone) {
    const Stick stick(1);
    EXPECT_EQ(backup(stick.name(), 1, "a.psb"), 0);
}

}  // namespace
}  // namespace test_support

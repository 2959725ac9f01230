// Finding the mounted sticks and their capacity.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <memory>

#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/printed_text.h"
#include "tests/support/process/process_table.h"
#include "tests/unit/watched_calls.h"
#include "transfer/tf_mngr.h"

namespace test_support {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class StickEnumeration : public testing::Test {
protected:
    std::vector<std::string> names() {
        std::vector<std::string> result;
        for (const UsbStickInfo& stick : manager_.enumerateUsbSticks()) {
            result.push_back(stick.name);
        }
        return result;
    }

    TfMngr manager_;
};

TEST_F(StickEnumeration, listsAscendingNumbersAndSkipsGaps) {
    const std::vector<std::vector<int>> orders{{2, 4}, {3, 1}, {4}, {4, 3, 2, 1}};
    for (const std::vector<int>& order : orders) {
        std::vector<std::unique_ptr<Stick>> sticks;
        std::vector<std::string> expected;
        for (const int number : order) {
            sticks.push_back(std::make_unique<Stick>(number));
            expected.push_back(stickName(number));
        }
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(names(), expected);
    }
}

TEST_F(StickEnumeration, ignoresNumbersOutOfRange) {
    const Stick below(kFirstStick - 1);
    const Stick above(5);  // a number of its own: callers rely on the limit
    const Stick first(kFirstStick * 10);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(StickEnumeration, fillsNameTwiceAndSizesInBytes) {
    const Stick stick(1, {"8m", "/dev/sda1"});
    stick.addFile("file", std::string(1U << 20U, 'x'));
    const std::vector<UsbStickInfo> found = manager_.enumerateUsbSticks();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].name, "USB_X60.1");
    EXPECT_EQ(found[0].mountName, "USB_X60.1");
    EXPECT_EQ(found[0].totalBytes, 8U << 20U);
    EXPECT_EQ(found[0].freeBytes, 7U << 20U);
}

TEST_F(StickEnumeration, readsEverythingAgainEachTime) {
    Stick stick(1);
    EXPECT_THAT(names(), ElementsAre("USB_X60.1"));
    stick.addFile("file", std::string(1U << 20U, 'x'));
    const std::uint64_t before = manager_.enumerateUsbSticks().at(0).freeBytes;
    unlink(stick.path("file").c_str());
    EXPECT_GT(manager_.enumerateUsbSticks().at(0).freeBytes, before);
    stick.pull();
    EXPECT_THAT(names(), IsEmpty());
}

// The free space is that of the super-user, blocks are f_bsize bytes, and products have 64 bits.
TEST_F(StickEnumeration, multipliesBlocksByBlockSizeIn64Bits) {
    const Stick stick(1);
    struct statfs64 fileSystem {};
    fileSystem.f_bsize = 65536;
    fileSystem.f_frsize = 512;
    fileSystem.f_blocks = (1ULL << 47U) + 3;
    fileSystem.f_bfree = (1ULL << 33U) + 1;
    fileSystem.f_bavail = 7;
    WatchedCalls watched;
    watched.setFileSystem(fileSystem);
    std::vector<UsbStickInfo> found;
    EXPECT_EQ(printedBy([&] { found = manager_.enumerateUsbSticks(); }),
              "Disk size: 9223372036854972416 Byte\nFree size: 562949953486848 Byte\n");
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].totalBytes, 9223372036854972416ULL);
    EXPECT_EQ(found[0].freeBytes, 562949953486848ULL);
}

TEST_F(StickEnumeration, includesEveryDirectoryBelowAMountedParent) {
    const Mount parent("/media", "/dev/sda1", "tmpfs", 0, "size=3m");
    makeDirectories(stickPath(1));
    makeDirectories(stickPath(3));
    makeDirectories(stickPath(kLastStick + 1));
    EXPECT_THAT(names(), ElementsAre("USB_X60.1", "USB_X60.3"));
    for (const UsbStickInfo& stick : manager_.enumerateUsbSticks()) {
        EXPECT_EQ(stick.totalBytes, 3U << 20U);
    }
}

TEST_F(StickEnumeration, skipsAStickWhoseStatfsFails) {
    const Stick second(2);
    const ReplacedFile table(kMountTable, mountLine("/dev/sda1", "/media/usb/USB_X60.1") +
                                              mountLine("/dev/sdb1", "/media/usb/USB_X60.2"));
    const std::string printed = printedBy([&] { EXPECT_THAT(names(), ElementsAre("USB_X60.2")); });
    EXPECT_EQ(printed, "Disk size: 16777216 Byte\nFree size: 16777216 Byte\n");
}

TEST_F(StickEnumeration, isEmptyWithoutAReadableMountTable) {
    const Stick stick(1);
    const std::vector<std::string> open = openDescriptorsOf(getpid());
    const auto expectNone = [&](const char* which) {
        EXPECT_EQ(printedBy([&] { EXPECT_THAT(names(), IsEmpty()) << which; }), "");
        EXPECT_FALSE(manager_.isMountedUsbDevice(stick.path())) << which;
    };
    {
        const ReplacedFile table(kMountTable);
        expectNone("missing");
    }
    {
        const ReplacedFile table(kMountTable);
        makeDirectories(kMountTable);
        expectNone("a directory");
    }
    {
        const ReplacedFile table(kMountTable, mountLine("/dev/sda1", stick.path()));
        const WatchedCalls watched(
            [](auto& call, auto /*index*/) { return call.name == "setmntent" ? EACCES : 0; });
        expectNone("not permitted");
    }
    {
        const ReplacedFile table(kMountTable, "");
        expectNone("empty");
    }
    EXPECT_THAT(names(), ElementsAre("USB_X60.1"));
    EXPECT_EQ(openDescriptorsOf(getpid()), open);
}

TEST_F(StickEnumeration, readsTheMountTableOnce) {
    const Stick first(1);
    const Stick fourth(4);
    const ReplacedFile table(
        kMountTable, mountLine("/dev/sda1", first.path()) + mountLine("/dev/sdb1", fourth.path()));
    const WatchedCalls watched;
    EXPECT_THAT(names(), ElementsAre("USB_X60.1", "USB_X60.4"));
    EXPECT_EQ(watched.count("setmntent", "/etc/mtab"), 1U);
    EXPECT_EQ(watched.count("endmntent"), 1U);
    EXPECT_LE(watched.count("getmntent_r"), 3U);
    EXPECT_EQ(watched.count("statfs64"), 2U);
    EXPECT_EQ(watched.count("statfs64", first.path()), 1U);
    EXPECT_EQ(watched.count("statfs64", fourth.path()), 1U);
}

struct MountCase {
    std::string table;
    std::string path;
    bool mounted;
};

// Options that make a line longer than any buffer for it.
std::string longLine(const std::string& source, const std::string& directory) {
    return source + " " + directory + " vfat " + std::string(10000, 'o') + " 0 0\n";
}

TEST(MountCheck, followsTheMountTable) {
    const std::string one = "/media/usb/USB_X60.1";
    const std::vector<MountCase> checks{
        {"", one, false},
        {mountLine("/dev/sda1", one), one, true},
        {mountLine("/dev/sda1", one), one + "/", true},
        {mountLine("/dev/sda1", one + "/"), one, false},
        {mountLine("/dev/sda1", one), "/media/usb/USB_X60.2", false},
        // A directory counts for every path that begins with its name.
        {mountLine("/dev/sda1", one), one + "0", true},
        {mountLine("/dev/sda1", "/media/usb/USB_X60.10"), one, false},
        {mountLine("/dev/sda1", "/"), one, true},
        {mountLine("/dev/sda1", "/"), "", false},
        {mountLine("/dev/sda1", "/med"), one, true},
        {mountLine("/dev/sda1", "/media"), one, true},
        {mountLine("/dev/sda1", "/media/usb"), one, true},
        {mountLine("/dev/sda1", "/media/usb2"), one, false},
        {mountLine("/dev/sda1", "/MEDIA"), one, false},
        // The source decides.
        {mountLine("rootfs", "/"), one, false},
        {mountLine("rootfs", one), one, false},
        {mountLine("/dev/sd", one), one, true},
        {mountLine("/dev/s", one), one, false},
        {mountLine("/dev/mmcblk0p1", one), one, false},
        {mountLine("x/dev/sda1", one), one, false},
        {mountLine("dev/sda1", one), one, false},
        {mountLine("/DEV/SDA1", one), one, false},
        {mountLine("/dev/sd" + std::string(3000, 'a'), one), one, true},
        {mountLine("/dev/sd" + std::string(3000, 'a'), one), "/media/usb/USB_X60.2", false},
        // What does not count does not end the search.
        {mountLine("rootfs", "/") + mountLine("/dev/mmcblk0p1", one) + mountLine("/dev/sda1", one),
         one, true},
        {mountLine("/dev/sda1", "/media/usb/USB_X60.2") + mountLine("/dev/sdb1", one), one, true},
        {mountLine("/dev/sda1", one) + mountLine("rootfs", "/"), one, true},
        // How the table is written.
        {"# /dev/sda1 " + one + " vfat rw 0 0\n\n \n" + mountLine("proc", "/proc"), one, false},
        {"\n\n\t/dev/sda1\t" + one + "\tvfat\trw\t0\t0", one, true},
        {"/dev/sda1 " + one, one, true},
        {mountLine("/dev/sda1", "/media/my\\040stick"), "/media/my stick/x", true},
        {mountLine("/dev/sda1", "/media/my\\040stick"), "/media/my\\040stick", false},
        {mountLine("/dev/sda1", "/media/a\\011b\\012c\\134d"), "/media/a\tb\nc\\d", true},
        {mountLine("/dev/sda1", one + "\\040copy"), one, false},
        {mountLine("/dev/sd\\040a", one), one, true},
        {longLine("/dev/sda1", one), one, true},
        {longLine("/dev/sdb1", "/media/usb/USB_X60.2") + mountLine("/dev/sda1", one), one, true},
        {longLine("/dev/sdb1", "/media/usb/USB_X60.2"), one, false},
        {mountLine("/dev/sda1", "/" + std::string(5000, 'd')), one, false},
    };
    TfMngr manager;
    for (const MountCase& check : checks) {
        const ReplacedFile table(kMountTable, check.table);
        EXPECT_EQ(manager.isMountedUsbDevice(check.path), check.mounted)
            << check.path << " in\n"
            << check.table.substr(0, 200);
    }
}

TEST(FormatString, formatsLikePrintf) {
    EXPECT_EQ(TfMngr::formatString("USB_X60.%d", 4), "USB_X60.4");
    EXPECT_EQ(TfMngr::formatString("%s-%5.2f|%" PRIu64 "%%", "a", 3.14159, ~std::uint64_t{0}),
              "a- 3.14|18446744073709551615%");
    EXPECT_EQ(TfMngr::formatString("%s", ""), "");
    EXPECT_EQ(TfMngr::formatString("a%cb", 0), "a");
}

TEST(FormatString, keepsWhatFitsIntoItsBuffer) {
    for (const std::size_t length : {1022U, 1023U}) {
        const std::string text(length, 'x');
        EXPECT_EQ(TfMngr::formatString("%s", text.c_str()), text);
    }
    const std::string kept(1023, 'x');
    for (const std::size_t length : {1024U, 1025U, 100000U}) {
        EXPECT_EQ(TfMngr::formatString("%s", std::string(length, 'x').c_str()), kept);
    }
    EXPECT_EQ(TfMngr::formatString("%2000d", 1), std::string(1023, ' '));
}

TEST(MountPath, joinsTheMountBaseAndTheIdentifier) {
    EXPECT_EQ(TfMngr::mountPath("USB_X60.1"), "/media/usb/USB_X60.1");
    EXPECT_EQ(TfMngr::mountPath(""), "/media/usb/");
    EXPECT_EQ(TfMngr::mountPath("../x//y/"), "/media/usb/../x//y/");
}

}  // namespace
}  // namespace test_support

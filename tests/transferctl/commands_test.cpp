// Commands on the real service that show what is on the sticks and change it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device/device_double.h"
#include "tests/support/device/stick.h"
#include "tests/support/process/service_process.h"
#include "tests/transferctl/client.h"

namespace test_support {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class Command : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(service_.waitUntilAnswers()); }

    Stick stick_{1, {"16m", "/dev/sda1"}};
    DeviceDouble device_;
    ServiceProcess service_{{{}, device_.environment()}};
};
using SticksCommand = Command;
using LsCommand = Command;
using PackageCommand = Command;
using MkdirCommand = Command;
using RmCommand = Command;
using NameCommand = Command;
using StatusCommand = Command;

TEST_F(SticksCommand, printsATableTabsOrJson) {
    stick_.addFile("a", std::string(1048576, 'a'));
    EXPECT_EQ(shownOnTerminal({"sticks"}),
              "STICK          SIZE      FREE  USED\n"
              "USB_X60.1  16.0 MiB  15.0 MiB   6 %\n");
    EXPECT_EQ(outputOf({"sticks"}), "USB_X60.1\t16777216\t15728640\t1048576\n");
    EXPECT_EQ(outputOf({"sticks", "--json"}),
              R"({"sticks":[{"name":"USB_X60.1","size":16777216,"free":15728640}]})"
              "\n");
}

TEST_F(LsCommand, letsNoNameControlTheTerminal) {
    for (const char* const name :
         {"\x1b]0;x\x07", "new\nline", "\u202egpj.exe", "inv\xfflid", "%n", "-rf", "\u009b31m"}) {
        stick_.addFile(name, "");
    }
    stick_.addDirectory("dir");
    EXPECT_EQ(shownOnTerminal({"ls", "1:"}),
              "NAME              SIZE\n"
              "dir/                 -\n"
              "\\x1b]0;x\\x07   0 bytes\n"
              "%n             0 bytes\n"
              "-rf            0 bytes\n"
              "inv\uFFFDlid        0 bytes\n"
              "new\\x0aline    0 bytes\n"
              "\\u009b31m      0 bytes\n"
              "\\u202egpj.exe  0 bytes\n");
    for (const char byte : outputOf({"ls", "--json", "1:"}) + errorOf(1, {"rm", "1:\x1b]0;x"})) {
        EXPECT_TRUE(byte == '\n' || static_cast<unsigned char>(byte) >= ' ');
    }
}

TEST_F(LsCommand, listsADirectoryOrAFile) {
    stick_.addFile("d/b", "12");
    stick_.addFile("d/a/x");
    stick_.addFile("d/A", "");
    stick_.addDirectory("empty");
    EXPECT_EQ(outputOf({"ls", "1:d"}), "a/\t-\nA\t0\nb\t2\n");
    EXPECT_EQ(outputOf({"ls", "USB_X60.1:/d/b"}), "b\t2\n");
    EXPECT_EQ(outputOf({"ls", "1:empty"}), "");
    EXPECT_EQ(outputOf({"ls", "1:.hidden"}), "");  // nobody can tell whether it is there
}

TEST_F(LsCommand, saysWhatIsMissing) {
    EXPECT_EQ(errorOf(1, {"ls", "1:d/c"}),
              "transferctl: no such file or directory: USB_X60.1:d/c\n");
    EXPECT_EQ(errorOf(1, {"ls", "2:"}), "transferctl: stick not mounted: USB_X60.2\n");
}

TEST_F(LsCommand, tellsProgramsOfARefusalAsJson) {
    const CommandResult result = transferctl({"--json", "ls", "2:"});
    EXPECT_EQ(result.end, exited(1));
    EXPECT_EQ(result.output, R"({"error":"stick not mounted: USB_X60.2","status":1,"code":null})"
                             "\n");
    EXPECT_EQ(result.error, "");
}

TEST_F(PackageCommand, listsWhatTheDeviceManagerAccepts) {
    const Stick second(2, {"8m", "/dev/sdb1"});
    stick_.addFile("b/good.psb", "123");
    stick_.addFile("bad.psb");
    second.addFile("new.fwf", "4");
    second.addFile("s.psb", "56");
    device_.order("BR.checkBackupFile", "reject", "bad");
    EXPECT_EQ(outputOf({"backups"}), "USB_X60.1:b/good.psb\t3\nUSB_X60.2:s.psb\t2\n");
    EXPECT_EQ(outputOf({"backups", "1:b"}), "USB_X60.1:b/good.psb\t3\n");
    EXPECT_EQ(outputOf({"updates", "2", "1"}), "USB_X60.2:new.fwf\t1\n");
    EXPECT_EQ(outputOf({"updates", "--json", "2:"}),
              R"({"files":[{"place":"USB_X60.2:new.fwf","stick":"USB_X60.2","path":"new.fwf",)"
              R"("name":"new.fwf","kind":"file","size":1}]})"
              "\n");
    EXPECT_EQ(errorOf(1, {"backups", "3:"}), "transferctl: stick not mounted: USB_X60.3\n");
}

TEST_F(PackageCommand, warnsThatAFullListMayBeCut) {
    for (int i = 0; i < 31; ++i) {
        stick_.addFile(std::to_string(i) + ".psb");
    }
    const CommandResult result = transferctl({"backups", "1:"});
    EXPECT_EQ(result.end, exited(0));
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 30);
    EXPECT_THAT(result.error, HasSubstr("there may be more"));
}

TEST_F(MkdirCommand, makesADirectoryAndItsParents) {
    EXPECT_EQ(outputOf({"mkdir", "1:a/b/"}), "created USB_X60.1:a/b\n");
    EXPECT_TRUE(exists(stick_.path("a/b")));
}

TEST_F(MkdirCommand, saysWhyThereIsNoNewDirectory) {
    stick_.addDirectory("a");
    EXPECT_EQ(errorOf(1, {"mkdir", "1:a"}), "transferctl: exists already: USB_X60.1:a\n");
    EXPECT_EQ(errorOf(1, {"mkdir", "2:a"}), "transferctl: stick not mounted: USB_X60.2\n");
    stick_.makeReadOnly();  // the service answers that it has tried
    EXPECT_THAT(errorOf(1, {"mkdir", "1:c"}), HasSubstr("stick full or read-only?"));
}

TEST_F(RmCommand, removesAFileOrAnEmptyDirectory) {
    stick_.addFile("d/.f");
    EXPECT_EQ(outputOf({"rm", "--", "1:d/.f"}), "removed USB_X60.1:d/.f\n");
    EXPECT_EQ(outputOf({"rm", "1:d", "--json"}), "{\"removed\":\"USB_X60.1:d\"}\n");
    EXPECT_FALSE(exists(stick_.path("d")));
}

TEST_F(RmCommand, saysWhyItIsRefused) {
    stick_.addFile("d/f");
    stick_.addFile("h/.hidden");
    EXPECT_EQ(errorOf(1, {"rm", "1:d"}), "transferctl: directory not empty: USB_X60.1:d\n");
    EXPECT_EQ(errorOf(1, {"rm", "1:x"}), "transferctl: no such file or directory: USB_X60.1:x\n");
    EXPECT_THAT(errorOf(1, {"rm", "1:.x"}), HasSubstr("not there, or not allowed"));
    EXPECT_THAT(errorOf(1, {"rm", "1:h"}), HasSubstr("hidden files"));
    stick_.makeReadOnly();
    EXPECT_THAT(errorOf(1, {"rm", "1:d/f"}), HasSubstr("read-only?"));
}

TEST_F(NameCommand, printsTheProposalOfTheService) {
    EXPECT_THAT(outputOf({"name"}), StartsWith("DEVICE-"));
    EXPECT_THAT(outputOf({"name", "--json"}), StartsWith("{\"name\":\"DEVICE-"));
    device_.orderStatus("Vesk.startTransaction", 1);
    EXPECT_THAT(errorOf(1, {"name"}), HasSubstr("cannot read the device's name"));
}

TEST_F(StatusCommand, tellsProcessAndSticks) {
    const std::string process = std::to_string(*service_.processId());
    EXPECT_THAT(outputOf({"status"}),
                HasSubstr(", process " + process + "\nsticks   1\njob      none"));
    EXPECT_THAT(outputOf({"--json", "status"}),
                HasSubstr("\"pid\":" + process + ",\"sticks\":1,\"job\":null}"));
}

}  // namespace
}  // namespace test_support

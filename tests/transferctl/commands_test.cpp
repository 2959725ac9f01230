// transferctl against the real service: what is on the sticks, and changes to it.
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

class Commands : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(service_.waitUntilAnswers()); }

    // Runs a command that has to be refused, and returns what it says.
    static std::string refused(const std::vector<std::string>& arguments) {
        const CommandResult result = transferctl(arguments);
        EXPECT_EQ(result.end, exited(1)) << result.output << result.error;
        EXPECT_EQ(result.output, "");
        return result.error;
    }

    // Runs a command that has to be done, and returns what it prints.
    static std::string done(const std::vector<std::string>& arguments) {
        const CommandResult result = transferctl(arguments);
        EXPECT_EQ(result.end, exited(0)) << result.output << result.error;
        return result.output;
    }

    Stick stick_{1, {"16m", "/dev/sda1", false}};
    DeviceDouble device_;
    ServiceProcess service_{{{}, device_.environment(), {}, {}, {}}};
};

TEST_F(Commands, showSticksInColumnsOnATerminalAndExactlyElsewhere) {
    stick_.addFile("a", std::string(1048576, 'a'));
    EXPECT_EQ(transferctlOnTerminal({"sticks"}).output,
              "STICK          SIZE      FREE  USED\n"
              "USB_X60.1  16.0 MiB  15.0 MiB   6 %\n");
    EXPECT_EQ(done({"sticks"}), "USB_X60.1\t16777216\t15728640\t1048576\n");
    EXPECT_EQ(done({"sticks", "--json"}),
              "{\"sticks\":[{\"name\":\"USB_X60.1\",\"size\":16777216,\"free\":15728640}]}\n");
}

TEST_F(Commands, letNoNameReachTheTerminal) {
    for (const char* const name :
         {"\x1b]0;x\x07", "new\nline", "\u202egpj.exe", "inv\xfflid", "%n", "-rf", "\u009b31m"}) {
        stick_.addFile(name, "");
    }
    stick_.addDirectory("dir");
    EXPECT_EQ(transferctlOnTerminal({"ls", "1:"}).output,
              "NAME              SIZE\n"
              "dir/                 -\n"
              "\\x1b]0;x\\x07   0 bytes\n"
              "%n             0 bytes\n"
              "-rf            0 bytes\n"
              "inv\uFFFDlid        0 bytes\n"
              "new\\x0aline    0 bytes\n"
              "\\u009b31m      0 bytes\n"
              "\\u202egpj.exe  0 bytes\n");
    for (const char byte : done({"ls", "--json", "1:"}) + refused({"rm", "1:\x1b]0;x"})) {
        EXPECT_TRUE(byte == '\n' || static_cast<unsigned char>(byte) >= ' ');
    }
}

TEST_F(Commands, listADirectoryAFileOrSayWhatIsMissing) {
    stick_.addFile("d/b", "12");
    stick_.addFile("d/a/x");
    stick_.addDirectory("empty");
    EXPECT_EQ(done({"ls", "1:d"}), "a/\t-\nb\t2\n");
    EXPECT_EQ(done({"ls", "USB_X60.1:/d/b"}), "b\t2\n");
    EXPECT_EQ(done({"ls", "1:empty"}), "");
    EXPECT_EQ(refused({"ls", "1:d/c"}), "transferctl: no such file or directory: USB_X60.1:d/c\n");
    EXPECT_EQ(refused({"ls", "2:"}), "transferctl: stick not mounted: USB_X60.2\n");
}

TEST_F(Commands, listWhatTheDeviceManagerAccepts) {
    const Stick second(2, {"8m", "/dev/sdb1", false});
    stick_.addFile("b/good.psb", "123");
    stick_.addFile("bad.psb");
    second.addFile("new.fwf", "4");
    second.addFile("s.psb", "56");
    device_.order("BR.checkBackupFile", "reject", "bad");
    EXPECT_EQ(done({"backups"}), "USB_X60.1:b/good.psb\t3\nUSB_X60.2:s.psb\t2\n");
    EXPECT_EQ(done({"backups", "1:b"}), "USB_X60.1:b/good.psb\t3\n");
    EXPECT_EQ(done({"updates", "2", "1"}), "USB_X60.2:new.fwf\t1\n");
    EXPECT_EQ(done({"updates", "--json", "2:"}),
              "{\"files\":[{\"place\":\"USB_X60.2:new.fwf\",\"stick\":\"USB_X60.2\","
              "\"path\":\"new.fwf\",\"name\":\"new.fwf\",\"kind\":\"file\",\"size\":1}]}\n");
    EXPECT_EQ(refused({"backups", "3:"}), "transferctl: stick not mounted: USB_X60.3\n");
}

TEST_F(Commands, sayThatAPackageListMayBeCut) {
    for (int i = 0; i < 31; ++i) {
        stick_.addFile(std::to_string(i) + ".psb");
    }
    const CommandResult result = transferctl({"backups", "1:"});
    EXPECT_EQ(result.end, exited(0));
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 30);
    EXPECT_THAT(result.error, HasSubstr("there may be more"));
}

TEST_F(Commands, makeADirectoryAndTellWhetherItIsThere) {
    EXPECT_EQ(done({"mkdir", "1:a/b/"}), "created USB_X60.1:a/b\n");
    EXPECT_TRUE(exists(stick_.path("a/b")));
    EXPECT_EQ(refused({"mkdir", "1:a/b"}), "transferctl: exists already: USB_X60.1:a/b\n");
    EXPECT_EQ(refused({"mkdir", "2:a"}), "transferctl: stick not mounted: USB_X60.2\n");
    stick_.makeReadOnly();
    EXPECT_THAT(refused({"mkdir", "1:c"}), HasSubstr("has tried, but the directory is not there"));
}

TEST_F(Commands, removeOrSayWhyNot) {
    stick_.addFile("d/f");
    EXPECT_EQ(refused({"rm", "1:d"}), "transferctl: directory not empty: USB_X60.1:d\n");
    EXPECT_EQ(refused({"rm", "1:x"}), "transferctl: no such file or directory: USB_X60.1:x\n");
    EXPECT_EQ(done({"rm", "1:d/f", "--json"}), "{\"removed\":\"USB_X60.1:d/f\"}\n");
    EXPECT_FALSE(exists(stick_.path("d/f")));
    stick_.addFile("d/.hidden");
    EXPECT_THAT(refused({"rm", "1:d"}), HasSubstr("hidden files"));
    EXPECT_EQ(done({"rm", "--", "1:d/.hidden"}), "removed USB_X60.1:d/.hidden\n");
    EXPECT_EQ(done({"rm", "1:d"}), "removed USB_X60.1:d\n");
}

TEST_F(Commands, proposeTheServicesName) {
    EXPECT_THAT(done({"name"}), StartsWith("DEVICE-"));
    EXPECT_THAT(done({"name", "--json"}), StartsWith("{\"name\":\"DEVICE-"));
    device_.orderStatus("Vesk.startTransaction", 1);
    EXPECT_THAT(refused({"name"}), HasSubstr("device's name cannot be read"));
}

TEST_F(Commands, tellThatTheServiceRuns) {
    const std::string process = std::to_string(*service_.processId());
    EXPECT_THAT(done({"status"}), HasSubstr(", process " + process + "\nsticks   1\n"));
    EXPECT_THAT(done({"--json", "status"}),
                HasSubstr("\"pid\":" + process + ",\"sticks\":1,\"job\":null}"));
}

TEST_F(Commands, tellProgramsOfARefusalAsJson) {
    const CommandResult result = transferctl({"--json", "ls", "2:"});
    EXPECT_EQ(result.end, exited(1));
    EXPECT_EQ(result.output,
              "{\"error\":\"stick not mounted: USB_X60.2\",\"status\":1,\"code\":null}\n");
    EXPECT_EQ(result.error, "");
}

}  // namespace
}  // namespace test_support

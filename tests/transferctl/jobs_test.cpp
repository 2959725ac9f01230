// Jobs started by transferctl on the real service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "tests/support/device/device_double.h"
#include "tests/support/device/simulator.h"
#include "tests/support/device/stick.h"
#include "tests/support/process/service_process.h"
#include "tests/transferctl/client.h"
#include "tests/transferctl/stand_in_service.h"

namespace test_support {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::StartsWith;

class ClientJobs : public testing::Test {
protected:
    void SetUp() override {
        device_.order("BR.backup", "write", "100");
        startService();
    }

    void startService() {
        service_ =
            std::make_unique<ServiceProcess>(ServiceOptions{{}, device_.environment(), {}, {}, {}});
        ASSERT_TRUE(service_->waitUntilAnswers());
    }

    // Makes the device manager accept none, so that a wait goes on.
    void rejectBackups() { device_.orderStatus("BR.checkBackupFile", 5); }

    Stick stick_{1};
    DeviceDouble device_;
    std::unique_ptr<ServiceProcess> service_;
};

TEST_F(ClientJobs, waitForABackupOfTheTypeAndNameAskedFor) {
    const CommandResult result =
        transferctl({"backup", "--type", "users", "--name", "-a.psb", "--wait", "1:d"});
    EXPECT_EQ(result.end, exited(0)) << result.error;
    EXPECT_THAT(result.output, StartsWith("backup done: USB_X60.1:d/-a.psb, 100 bytes in 0:"));
    EXPECT_THAT(device_.calls(),
                Contains("BR2.backup(\"/media/usb/USB_X60.1/d/-a.psb\", \"userdatabase\")"));
}

TEST_F(ClientJobs, startABackupUnderTheProposedNameAndSayThatItIsNotDone) {
    const CommandResult result = transferctl({"backup", "1:"});
    EXPECT_EQ(result.end, exited(0)) << result.error;
    EXPECT_THAT(result.output, StartsWith("backup started, not done: USB_X60.1:DEVICE-"));
    EXPECT_TRUE(device_.waitForCall("BR2.backup(\"/media/usb/USB_X60.1/DEVICE-"));
}

TEST_F(ClientJobs, areOneInOneLifeOfTheServiceUnlessForced) {
    stick_.addFile("a.psb");
    stick_.addFile("u.fwf");
    EXPECT_EQ(
        transferctl({"restore", "--json", "1:a.psb"}).output,
        "{\"job\":\"restore\",\"file\":\"USB_X60.1:a.psb\",\"started\":true,\"done\":false}\n");
    EXPECT_THAT(transferctl({"status"}).output, HasSubstr("restore of USB_X60.1:a.psb"));
    for (const char* const job : {"update", "restore", "backup"}) {
        const CommandResult second = transferctl({job, "1:u.fwf"});
        EXPECT_EQ(second.end, exited(1)) << job << second.error;
    }
    EXPECT_THAT(transferctl({"update", "1:u.fwf"}).error, HasSubstr("restore of USB_X60.1:a.psb"));
    EXPECT_THAT(device_.calls(), testing::Not(Contains(StartsWith("FU"))));
    EXPECT_EQ(transferctl({"update", "--force", "1:u.fwf"}).end, exited(0));
    EXPECT_TRUE(device_.waitForCall("FU1.update(\"/media/usb/USB_X60.1USB_X60.1/"));
}

TEST_F(ClientJobs, areFreeAgainInTheNextLifeOfTheService) {
    stick_.addFile("a.psb");
    EXPECT_EQ(transferctl({"restore", "1:a.psb"}).end, exited(0));
    service_.reset();
    startService();
    EXPECT_EQ(transferctl({"restore", "1:a.psb"}).end, exited(0));
}

TEST_F(ClientJobs, thatTheServiceRefusesLeaveNoNote) {
    EXPECT_THAT(transferctl({"backup", "--name", "a", "1:"}).error, HasSubstr("bad file name"));
    device_.order("BR.getBackupSize", "bytes", "99999999999");
    const CommandResult tooLarge = transferctl({"backup", "--json", "1:a.psb"});
    EXPECT_EQ(tooLarge.end, exited(1));
    EXPECT_THAT(tooLarge.output, HasSubstr("\"code\":3"));
    EXPECT_THAT(transferctl({"update", "1:u.fwf"}).error, HasSubstr("no such file"));
    EXPECT_THAT(transferctl({"restore", "1:r.psb"}).error, HasSubstr("no such file"));
    EXPECT_THAT(transferctl({"status"}).output, HasSubstr("none started"));
}

TEST_F(ClientJobs, replaceAFileOnlyWhenForced) {
    stick_.addFile("a.psb", "old");
    const CommandResult refused = transferctl({"backup", "1:a.psb"});
    EXPECT_EQ(refused.end, exited(1));
    EXPECT_THAT(refused.error, HasSubstr("exists already"));
    EXPECT_EQ(readFile(stick_.path("a.psb")), "old");
    EXPECT_EQ(transferctl({"backup", "--force", "--wait", "1:a.psb"}).end, exited(0));
    EXPECT_EQ(readFile(stick_.path("a.psb")).size(), 100U);
}

// Until the service came to remove it, it would pass for the finished backup.
TEST_F(ClientJobs, removeAFileToBeReplacedBeforeTheyStart) {
    stick_.addFile("a.psb", "old");
    device_.orderStatus("BR.getBackupSize", 5);
    EXPECT_EQ(transferctl({"backup", "--force", "1:a.psb"}).end, exited(1));
    EXPECT_FALSE(exists(stick_.path("a.psb")));
}

TEST_F(ClientJobs, drawTheirProgressOnATerminalAndClearItAtTheEnd) {
    const std::string output = transferctlOnTerminal({"backup", "-w", "1:a.psb"}).output;
    EXPECT_THAT(output, HasSubstr("]  100 bytes  "));
    EXPECT_THAT(output, HasSubstr("\r\033[Kbackup done: "));
}

TEST_F(ClientJobs, endTheirWaitWhenTheTimeIsOver) {
    rejectBackups();
    const CommandResult result = transferctl({"backup", "--wait", "--timeout", "1.8", "1:a.psb"});
    EXPECT_EQ(result.end, exited(4));
    EXPECT_THAT(result.error, HasSubstr("within the time limit"));
}

TEST_F(ClientJobs, endTheirWaitWhenTheServiceEnds) {
    rejectBackups();
    ChildProcess waiting(transferctlCommand({"backup", "--wait", "1:a.psb"}));
    ASSERT_TRUE(device_.waitForCall("BR3.checkBackupFile"));
    service_->stop();
    EXPECT_EQ(waiting.waitForEnd(), exited(3));
    EXPECT_TRUE(waiting.waitForError("the service has ended, and the backup with it"));
}

TEST_F(ClientJobs, endTheirWaitWhenTheStickGoes) {
    rejectBackups();
    ChildProcess waiting(transferctlCommand({"backup", "--wait", "1:a.psb"}));
    ASSERT_TRUE(device_.waitForCall("BR3.checkBackupFile"));
    stick_.pull();
    EXPECT_EQ(waiting.waitForEnd(), exited(1));
    EXPECT_TRUE(waiting.waitForError("stick not mounted: USB_X60.1"));
}

TEST_F(ClientJobs, endTheirWaitWhenTheFileGoes) {
    rejectBackups();
    ChildProcess waiting(transferctlCommand({"backup", "--wait", "--json", "1:a.psb"}));
    ASSERT_TRUE(device_.waitForCall("BR3.checkBackupFile"));
    EXPECT_EQ(transferctl({"rm", "1:a.psb"}).end, exited(0));
    EXPECT_EQ(waiting.waitForEnd(), exited(1));
    EXPECT_TRUE(waiting.waitForOutput("the backup has failed"));
}

TEST(SimulatedJobs, areBackupsThatTheDeviceManagerAccepts) {
    const TemporaryDirectory state;
    const Stick stick(1);
    Simulator simulator(state.path(), {"--job-seconds", "0"});
    ASSERT_TRUE(simulator.waitUntilListens());
    ServiceProcess service;
    ASSERT_TRUE(service.waitUntilAnswers());
    const CommandResult result =
        transferctl({"--json", "backup", "--type", "recipes", "--wait", "1:b/a b.psb"});
    EXPECT_EQ(result.end, exited(0)) << result.error;
    EXPECT_THAT(result.output, StartsWith("{\"job\":\"backup\",\"file\":\"USB_X60.1:b/a b.psb\","
                                          "\"started\":true,\"done\":true,\"size\":"));
    EXPECT_THAT(transferctl({"backups"}).output, StartsWith("USB_X60.1:b/a b.psb\t"));
}

// Codes that the real service gives only in states that transferctl notices before.
TEST(RefusedJobs, areToldInWordsForEveryCode) {
    const std::string stick = "([<'USB_X60.1'>, <'USB_X60.1'>, <uint64 1>, <uint64 1>],)";
    const std::vector<std::pair<std::string, std::string>> cases{
        {"-1", "no thread could be created"}, {"2", "stick not mounted"}, {"77", "code 77"}};
    for (const auto& [code, words] : cases) {
        const StandInService service(
            {{"GetUSBStickDetails", stick}, {"DoOSUpdate", "(" + code + ",)"}});
        const CommandResult result = transferctl({"update", "1:u.fwf"});
        EXPECT_EQ(result.end, exited(1));
        EXPECT_THAT(result.error, HasSubstr(words));
    }
}

}  // namespace
}  // namespace test_support

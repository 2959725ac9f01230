// Jobs started by transferctl, on the real service and on one that answers as told.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "tests/support/bus/fake_service.h"
#include "tests/support/device/device_double.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/unique_fd.h"
#include "tests/support/process/waiting.h"
#include "tests/transferctl/client.h"

namespace test_support {
namespace {

using Replies = FakeService::Replies;

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class Job : public testing::Test {
protected:
    void SetUp() override {
        device_.order("BR.backup", "write", "100");
        startService();
    }

    void startService() {
        service_ = std::make_unique<ServiceProcess>(ServiceOptions{{}, device_.environment()});
        ASSERT_TRUE(service_->waitUntilAnswers());
    }

    Stick stick_{1};
    DeviceDouble device_;
    std::unique_ptr<ServiceProcess> service_;
};
using BackupCommand = Job;
using RestoreCommand = Job;

TEST_F(BackupCommand, waitsForTheFileAskedFor) {
    EXPECT_THAT(outputOf({"backup", "--type", "users", "--name", "-a.psb", "--wait", "1:d"}),
                StartsWith("backup done: USB_X60.1:d/-a.psb, 100 bytes in 0:"));
    EXPECT_THAT(device_.calls(),
                Contains("BR2.backup(\"/media/usb/USB_X60.1/d/-a.psb\", \"userdatabase\")"));
}

TEST_F(BackupCommand, takesTheNameThatTheServiceProposes) {
    EXPECT_THAT(outputOf({"backup", "1:"}),
                StartsWith("backup started, not done: USB_X60.1:DEVICE-"));
    EXPECT_TRUE(device_.waitForCall("BR2.backup(\"/media/usb/USB_X60.1/DEVICE-"));
}

TEST_F(BackupCommand, replacesAFileOnlyWhenForced) {
    stick_.addFile("a.psb", "old");
    EXPECT_THAT(errorOf(1, {"backup", "1:a.psb"}), HasSubstr("exists already"));
    EXPECT_EQ(readFile(stick_.path("a.psb")), "old");
    EXPECT_THAT(outputOf({"backup", "--json", "--force", "--wait", "1:a.psb"}),
                StartsWith(R"({"job":"backup","file":"USB_X60.1:a.psb","started":true,)"
                           R"("done":true,"size":100,"milliseconds":)"));
    EXPECT_EQ(readFile(stick_.path("a.psb")).size(), 100U);
}

// Until the service came to remove it, it would pass for the finished backup.
TEST_F(BackupCommand, removesTheOldFileFirst) {
    stick_.addFile("a.psb", "old");
    device_.orderStatus("BR.getBackupSize", 5);
    errorOf(1, {"backup", "--force", "1:a.psb"});
    EXPECT_FALSE(exists(stick_.path("a.psb")));
}

TEST_F(BackupCommand, saysThatTheOldFileStays) {
    stick_.addFile("a.psb/full", "a directory that is not empty");
    EXPECT_THAT(errorOf(1, {"backup", "--force", "1:a.psb"}), HasSubstr("cannot be replaced"));
}

TEST_F(BackupCommand, drawsProgressOnATerminalAndClearsIt) {
    const std::string output = shownOnTerminal({"backup", "-w", "1:a.psb"});
    EXPECT_THAT(output, HasSubstr("\r\033[K100 bytes  "));
    EXPECT_THAT(output, HasSubstr("\r\033[Kbackup done: "));
}

TEST_F(RestoreCommand, reportsItsStartAsJson) {
    stick_.addFile("a.psb");
    EXPECT_EQ(outputOf({"restore", "--json", "1:a.psb"}),
              R"({"job":"restore","file":"USB_X60.1:a.psb","started":true,"done":false})"
              "\n");
}

TEST_F(Job, isTheOnlyOneInAProcessOfTheService) {
    stick_.addFile("a.psb");
    stick_.addFile("u.fwf");
    outputOf({"restore", "1:a.psb"});
    EXPECT_THAT(outputOf({"status"}), HasSubstr("restore of USB_X60.1:a.psb"));
    EXPECT_THAT(outputOf({"status", "--json"}),
                HasSubstr(R"("job":{"job":"restore","file":"USB_X60.1:a.psb"})"));
    for (const char* const job : {"update", "restore", "backup"}) {
        EXPECT_THAT(errorOf(1, {job, "1:u.fwf"}), HasSubstr("restore of USB_X60.1:a.psb"));
    }
    EXPECT_THAT(device_.calls(), Not(Contains(StartsWith("FU"))));
}

TEST_F(Job, isStartedAfterAnotherWhenForced) {
    stick_.addFile("a.psb");
    stick_.addFile("u.fwf");
    outputOf({"restore", "1:a.psb"});
    outputOf({"update", "--force", "1:u.fwf"});
    EXPECT_TRUE(device_.waitForCall("FU1.update(\"/media/usb/USB_X60.1USB_X60.1/"));
}

TEST_F(Job, isFreeAgainAfterARestartOfTheService) {
    stick_.addFile("a.psb");
    outputOf({"restore", "1:a.psb"});
    service_.reset();
    startService();
    outputOf({"restore", "1:a.psb"});
}

TEST_F(Job, isStartedWithAWarningWithoutARecord) {
    stick_.addFile("a.psb");
    std::filesystem::remove("/run/transferctl-job");  // of another test in this process
    makeDirectories("/run/transferctl-job/in-the-way");
    const CommandResult result = transferctl({"restore", "1:a.psb"});
    std::filesystem::remove_all("/run/transferctl-job");
    EXPECT_EQ(result.end, exited(0));
    EXPECT_THAT(result.error, HasSubstr("not on record"));
}

TEST_F(Job, needsAFileThatExists) {
    EXPECT_THAT(errorOf(1, {"restore", "1:r.psb"}), HasSubstr("no such file: USB_X60.1:r.psb"));
    EXPECT_THAT(errorOf(1, {"update", "1:u.fwf"}), HasSubstr("no such file: USB_X60.1:u.fwf"));
    EXPECT_THAT(errorOf(1, {"update", "1:.u.fwf"}), HasSubstr("no such file"));  // says the service
}

class WaitForBackup : public Job {
protected:
    // Starts a backup that the device manager does not accept, and waits until it has been asked.
    void begin(const Words& limit = {}) {
        device_.orderStatus("BR.checkBackupFile", 5);
        Words command{"backup", "--wait", "1:a.psb"};
        command.insert(command.end(), limit.begin(), limit.end());
        waiting_ = std::make_unique<ChildProcess>(transferctlCommand(command));
        ASSERT_TRUE(device_.waitForCall("BR3.checkBackupFile"));
    }

    std::unique_ptr<ChildProcess> waiting_;
};

TEST_F(WaitForBackup, exits4AtTheTimeLimit) {
    begin({"--timeout", "8"});
    EXPECT_EQ(waiting_->waitForEnd(), exited(4));
    EXPECT_TRUE(waiting_->waitForError("within the time limit, the backup may still run"));
}

TEST_F(WaitForBackup, exits3WhenTheServiceEnds) {
    begin();
    service_->stop();
    EXPECT_EQ(waiting_->waitForEnd(), exited(3));
    EXPECT_TRUE(waiting_->waitForError("the service has ended, and the backup with it"));
}

TEST_F(WaitForBackup, exits1WhenTheStickGoes) {
    begin();
    stick_.pull();
    EXPECT_EQ(waiting_->waitForEnd(), exited(1));
    EXPECT_TRUE(waiting_->waitForError("stick not mounted: USB_X60.1"));
}

TEST_F(WaitForBackup, exits1WhenTheFileGoes) {
    begin();
    outputOf({"rm", "1:a.psb"});
    EXPECT_EQ(waiting_->waitForEnd(), exited(1));
    EXPECT_TRUE(waiting_->waitForError("its file has gone again"));
}

const std::string kNoFile = "(@av [],)";
std::string fileOfSize(int size) {
    return "([<uint32 1>, <'a.psb'>, <uint64 " + std::to_string(size) + ">, <'/'>],)";
}

// A service with one stick that starts every backup.
class OneStickService : public FakeService {
public:
    // `looks` are the listings of the stick, one after another.
    explicit OneStickService(const std::vector<std::string>& looks, Replies others = {})
        : FakeService(kServiceName, repliesWith(looks, std::move(others))) {}

private:
    static Replies repliesWith(const std::vector<std::string>& looks, Replies replies) {
        replies["GetUSBStickDetails"] = {
            "([<'USB_X60.1'>, <'USB_X60.1'>, <uint64 1>, <uint64 1>],)"};
        replies["GetDirectoryIndex"] = looks;
        replies["DoBackup"] = {"(0,)"};
        return replies;
    }
};

// It reads the whole file for an answer.
TEST(WaitingClient, asksTheDeviceManagerWhenTheFileStopsGrowing) {
    const OneStickService service(
        {kNoFile, fileOfSize(1), fileOfSize(2), fileOfSize(2)},
        Replies{{"GetDirectoryIndexForBackup", {kNoFile, fileOfSize(2)}}});
    outputOf({"backup", "--wait", "1:a.psb"});
    EXPECT_THAT(
        service.calls(),
        ElementsAre(StartsWith("GetUSB"), StartsWith("GetDirectoryIndex("), StartsWith("DoBackup"),
                    StartsWith("GetDirectoryIndex("), StartsWith("GetDirectoryIndexForBackup"),
                    StartsWith("GetDirectoryIndex("), StartsWith("GetDirectoryIndex("),
                    StartsWith("GetDirectoryIndexForBackup")));
}

TEST(WaitingClient, givesUpAFileThatIsMissingThreeTimesInARow) {
    const OneStickService service(
        {kNoFile, kNoFile, fileOfSize(1), kNoFile, kNoFile, fileOfSize(2), kNoFile});
    EXPECT_THAT(errorOf(1, {"backup", "--wait", "1:a.psb"}), HasSubstr("has gone again"));
    const std::vector<std::string> calls = service.calls();
    EXPECT_EQ(
        std::count_if(calls.begin(), calls.end(),
                      [](const std::string& call) { return call.find("GetDirectoryIndex(") == 0; }),
        9);
}

using KindCase = std::pair<std::string, std::string>;  // the type and its number
class BackupKind : public testing::TestWithParam<KindCase> {};
INSTANTIATE_TEST_SUITE_P(Types, BackupKind,
                         testing::Values(KindCase{"full", "uint32 1"},
                                         KindCase{"recipes", "uint32 2"},
                                         KindCase{"users", "uint32 3"}));

TEST_P(BackupKind, isThatOfTheType) {
    const OneStickService service({kNoFile});
    outputOf({"backup", "--type", GetParam().first, "1:a.psb"});
    EXPECT_THAT(service.calls(),
                Contains("DoBackup('USB_X60.1', " + GetParam().second + ", 'a.psb')"));
}

// The service takes kind 0 for a restore of the file.
TEST(BackupType, rejectsOtherWords) {
    const OneStickService service({kNoFile});
    for (const char* const type : {"", "0", "1", "4", "Full", "full ", "restore", "all"}) {
        EXPECT_THAT(errorOf(2, {"backup", "--type", type, "1:a.psb"}), HasSubstr("--type is"));
    }
    EXPECT_THAT(service.calls(), testing::IsEmpty());
}

using CodeCase = std::tuple<std::string, std::string, std::string>;  // code, message, record
class ResultCode : public testing::TestWithParam<CodeCase> {};
INSTANTIATE_TEST_SUITE_P(Codes, ResultCode,
                         testing::Values(CodeCase{"-1", "cannot create a thread",
                                                  "restore of USB_X60.1:a.psb"},
                                         CodeCase{"1", "bad file name", "none started"},
                                         CodeCase{"2", "stick not mounted", "none started"},
                                         CodeCase{"3", "not enough space", "none started"},
                                         CodeCase{"5", "no such file", "none started"},
                                         CodeCase{"-77", "unknown result code -77", "restore of"}));

TEST_P(ResultCode, isExplained) {
    const auto& [code, words, record] = GetParam();
    const OneStickService service({fileOfSize(1)}, Replies{{"DoRestore", {"(" + code + ",)"}}});
    const CommandResult result = transferctl({"restore", "--json", "1:a.psb"});
    EXPECT_EQ(result.end, exited(1));
    EXPECT_THAT(result.output, HasSubstr(words));
    EXPECT_THAT(result.output, HasSubstr("\"code\":" + code + "}"));
}

// The service keeps the names of a job that it has taken and could not start.
TEST_P(ResultCode, keepsTakenJobsOnRecord) {
    const auto& [code, words, record] = GetParam();
    const OneStickService service({fileOfSize(1)}, Replies{{"DoRestore", {"(" + code + ",)"}}});
    errorOf(1, {"restore", "1:a.psb"});
    EXPECT_THAT(outputOf({"status"}), HasSubstr(record));
}

// The lock is that of another command, which writes the record while this one waits.
TEST(SimultaneousJob, isRefusedWhenTheOtherIsOnRecord) {
    const std::string record = "/run/transferctl-job";
    const OneStickService service({fileOfSize(1)}, Replies{{"DoRestore", {"(0,)"}}});
    outputOf({"restore", "1:a.psb"});
    const std::string started = readFile(record);
    std::filesystem::remove(record);
    UniqueFd lock(open((record + ".lock").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
    ChildProcess second(transferctlCommand({"restore", "1:a.psb"}));
    EXPECT_TRUE(eventually(
        [] { return readFile("/proc/locks").find("-> FLOCK") != std::string::npos; }, "it waits"));
    writeFile(record, started);
    lock.reset();
    EXPECT_EQ(second.waitForEnd(), exited(1));
}

// The call may have reached the service.
TEST(UnansweredJob, staysOnRecord) {
    const OneStickService service({fileOfSize(1)});
    ChildProcess client(transferctlCommand({"restore", "--timeout", "4", "1:a.psb"}));
    ASSERT_TRUE(service.waitForCall("DoRestore"));
    EXPECT_EQ(client.waitForEnd(), exited(4));
    EXPECT_THAT(outputOf({"status"}), HasSubstr("restore of USB_X60.1:a.psb"));
}

TEST(DeniedJob, isNotOnRecord) {
    const OneStickService service(
        {fileOfSize(1)}, Replies{{"DoRestore", {"error org.freedesktop.DBus.Error.AccessDenied"}}});
    errorOf(1, {"restore", "1:a.psb"});
    EXPECT_THAT(outputOf({"status"}), HasSubstr("none started"));
}

}  // namespace
}  // namespace test_support

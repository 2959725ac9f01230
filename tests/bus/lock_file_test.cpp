// The lock file of a running service, and starts that cannot have it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "tests/support/device/stick.h"
#include "tests/support/device/transfer_script.h"
#include "tests/support/files/files.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/service_messages.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/start_semaphores.h"
#include "tests/support/process/syslog_socket.h"

namespace test_support {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kRealLockFile = "/run/lock/com.morvane.transfer.pid";
constexpr mode_t kModeBits = 07777;
constexpr int kManyDescriptors = 64;

// The flags with which a process has the file open; nothing when it has not.
std::optional<int> openFlags(pid_t pid, const std::string& file) {
    for (int fd = 0; fd < kManyDescriptors; ++fd) {
        std::error_code error;
        const std::string link = "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd);
        if (std::filesystem::read_symlink(link, error) == file) {
            return openFlagsOf(pid, fd);
        }
    }
    return std::nullopt;
}

TEST(LockFile, holdsIdForOwnerOnly) {
    ServiceProcess service{{{}, {}, {}, 0}};
    ASSERT_TRUE(service.waitUntilAnswers());
    EXPECT_EQ(readFile(kLockFile), std::to_string(*service.commandInside()) + "\n");
    struct stat status {};
    ASSERT_EQ(lstat(kLockFile, &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(status.st_mode & kModeBits, 0600U);
}

TEST(LockFile, isLockedAndClosedOnExec) {
    const TransferScript script("ls -l /proc/self/fd >/tmp/open-in-script");
    ServiceProcess service;
    ASSERT_TRUE(service.waitUntilAnswers());
    EXPECT_EQ(lockHolder(kLockFile), service.processId());
    const std::optional<int> flags = openFlags(*service.processId(), kRealLockFile);
    ASSERT_TRUE(flags.has_value());
    EXPECT_EQ(*flags & O_ACCMODE, O_RDWR);
    EXPECT_NE(*flags & O_CLOEXEC, 0);
    const std::string inScript = readFile("/tmp/open-in-script");
    EXPECT_THAT(inScript, HasSubstr(" 1 -> "));
    EXPECT_THAT(inScript, Not(HasSubstr("com.morvane.transfer.pid")));
}

TEST(LockFile, isTakenOverFromKilledRun) {
    writeFile(kLockFile, "4194304\nand more text than a process id takes\n");
    {
        ServiceProcess service;
        ASSERT_TRUE(service.waitUntilAnswers());
        EXPECT_EQ(readFile(kLockFile), std::to_string(*service.commandInside()) + "\n");
        service.kill();
    }
    EXPECT_TRUE(exists(kLockFile));
    EXPECT_EQ(lockHolder(kLockFile), std::nullopt);
    ServiceProcess again;
    ASSERT_TRUE(again.waitUntilAnswers());
    EXPECT_EQ(lockHolder(kLockFile), again.processId());
}

TEST(LockFile, holdsIdOfDaemon) {
    ServiceProcess service(kAsDaemon);
    ASSERT_TRUE(service.waitUntilAnswers());
    EXPECT_EQ(lockHolder(kLockFile), service.processId());
    EXPECT_EQ(readFile(kLockFile), std::to_string(*innermostId(*service.processId())) + "\n");
    EXPECT_NE(innermostId(*service.processId()), service.commandInside());
}

// A start that finds no place for its lock file.
struct NoPlace {
    const char* name;
    void (*spoil)(std::optional<Mount>& mount);
    bool withoutPowers;
    const char* reason;
};

constexpr const char* kFolder = "/run/lock";
constexpr const char* kAway = "/run/lock-away";

const std::vector<NoPlace> kNoPlaces{
    {"missingFolder", [](auto& /*mount*/) { std::rename(kFolder, kAway); }, false,
     "No such file or directory"},
    {"readOnlyFolder", [](auto& mount) { mount.emplace(kFolder, "none", "tmpfs", MS_RDONLY, ""); },
     false, "Read-only file system"},
    {"folderOfOthers", [](auto& mount) { mount.emplace(kFolder, "none", "tmpfs", 0, "mode=555"); },
     true, "Permission denied"},
};

class MissingLockFile : public testing::TestWithParam<NoPlace> {
protected:
    MissingLockFile() { GetParam().spoil(mount_); }
    ~MissingLockFile() override { std::rename(kAway, kFolder); }

    ServiceOptions options(const std::vector<std::string>& arguments) const {
        return {arguments,
                {},
                {},
                {},
                GetParam().withoutPowers ? kWithoutPowers : std::vector<std::string>()};
    }

    const LogMessage message_ =
        errorMessage("Service already started. Shutting down com.morvane.transfer");
    std::optional<Mount> mount_;
    SyslogSocket log_;
};

TEST_P(MissingLockFile, endsServiceWith255) {
    ServiceProcess service(options({}));
    EXPECT_THAT(service.waitForAllEnds(), ElementsAre(exited(255)));
    EXPECT_EQ(service.standardOutput(), asPrinted({message_}));
    EXPECT_EQ(service.standardError(),
              std::string("coudln't create lockfile.\n: ") + GetParam().reason + "\n");
    ASSERT_TRUE(log_.waitFor(message_.text));
    EXPECT_THAT(log_.messages(), ElementsAre(message_));
}

TEST_P(MissingLockFile, endsDaemonWith2AfterLauncher) {
    ServiceProcess service(options({"-d"}));
    EXPECT_THAT(service.waitForAllEnds(), testing::UnorderedElementsAre(exited(0), exited(2)));
    EXPECT_EQ(service.waitForCommandEnd(), exited(0));
    EXPECT_EQ(service.standardError(), "");
    ASSERT_TRUE(log_.waitFor(message_.text));
    EXPECT_FALSE(StartSemaphores::exists());
}

INSTANTIATE_TEST_SUITE_P(For, MissingLockFile, testing::ValuesIn(kNoPlaces),
                         [](const auto& place) { return std::string(place.param.name); });

}  // namespace
}  // namespace test_support

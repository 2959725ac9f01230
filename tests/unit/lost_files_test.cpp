// Files are never lost: a job changes nothing but its own file, and a backup that does not begin
// leaves alone what lies in its place.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/device/stick.h"
#include "tests/support/files/file_snapshot.h"
#include "tests/support/files/files.h"
#include "tests/support/files/odd_sticks.h"
#include "tests/support/process/unique_fd.h"
#include "tests/unit/job_fixture.h"
#include "tests/unit/watched_calls.h"

namespace test_support {

namespace fs = std::filesystem;

namespace {

constexpr int kJobs = 80;

class RandomJob : public JobTest, public testing::WithParamInterface<unsigned> {
protected:
    RandomJob() { device_.order("BR.backup", "write", "5"); }

    // Each has a manager of its own, so that it works on its own names.
    int start(const std::string& kind, const std::string& mount, const std::string& file) {
        TfMngr manager;
        const JobResult result = kind == "backup"    ? manager.DoBackup(mount, 1, file)
                                 : kind == "restore" ? manager.DoRestore(mount, file)
                                                     : manager.DoOSUpdate(mount, file);
        waitForWorkers();
        return numberOf(result);
    }

    OddSticks sticks_{GetParam()};
};

TEST_P(RandomJob, changesOnlyItsFile) {
    for (int number = 0; number < kJobs && !HasFailure(); ++number) {
        const std::string kind = sticks_.oneOf({"backup", "backup", "restore", "update"});
        const std::string mount = sticks_.mount();
        const std::string file = sticks_.path();
        if (!staysOnSticks(targetOf(mount, file))) {
            continue;
        }
        SCOPED_TRACE(kind + " '" + mount + "' '" + file + "'");
        FileSnapshot before = snapshotOf("/media");
        const int answer = start(kind, mount, file);
        FileSnapshot after = snapshotOf("/media");
        if (kind == "backup" && answer == 0) {
            // Missing parents are made, so only then the place is known. It may be a link.
            const std::string target = physicalPath(targetOf(mount, file));
            for (const std::string& mine : {target, fs::weakly_canonical(target).string()}) {
                before.erase(mine);
                after.erase(mine);
            }
        }
        if (answer == 0) {
            EXPECT_TRUE(addsOnlyDirectories(before, after))
                << testing::PrintToString(changedPaths(before, after));
        } else {
            EXPECT_EQ(changedPaths(before, after), std::vector<std::string>());
        }
    }
}

INSTANTIATE_TEST_SUITE_P(WithSeed, RandomJob, testing::Range(0U, 3U));

// ---- a backup that does not begin --------------------------------------------------------------

class RefusedBackup : public JobTest {
protected:
    // Each gives the code of the refusal, which must have left the file as it was.
    int codeOfBackup(const std::string& mount, const std::string& file) {
        const int code = backup(mount, 1, file);
        EXPECT_EQ(contents(), "old");
        return code;
    }
    int codeOfBackup() { return codeOfBackup(stick_.name(), "a.psb"); }

    Stick stick_{1};

private:
    // Of the file in the backup's place; a stick that has been pulled lives on in `root_`.
    std::string contents() const {
        return readFile("/proc/self/fd/" + std::to_string(root_.get()) + "/a.psb");
    }
    static UniqueFd rootOf(const Stick& stick) {
        stick.addFile("a.psb", "old");
        return UniqueFd(open(stick.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }

    const UniqueFd root_ = rootOf(stick_);
};

TEST_F(RefusedBackup, forItsNameKeepsFile) {
    for (const char* name : {"", "a", "a.ps", "a.PSB", "a.p/../sb", "a.fwf"}) {
        EXPECT_EQ(codeOfBackup(stick_.name(), name), 1) << name;
    }
}

TEST_F(RefusedBackup, forItsStickKeepsFile) {
    EXPECT_EQ(codeOfBackup("USB_X60.2", "../USB_X60.1/a.psb"), 2);
    EXPECT_EQ(codeOfBackup("USB_X60.1/missing", "../a.psb"), 2);
    stick_.pull();
    rmdir(stick_.path().c_str());
    EXPECT_EQ(codeOfBackup(), 2);
}

TEST_F(RefusedBackup, byDeviceManagerKeepsFile) {
    const auto refusedWith = [this](const char* operation, const char* key, const char* value) {
        device_.clearOrders();
        device_.order(operation, key, value);
        return codeOfBackup();
    };
    EXPECT_EQ(refusedWith("BR.create", "null", ""), 3);
    EXPECT_EQ(refusedWith("BR.connect", "status", "1"), 3);
    EXPECT_EQ(refusedWith("BR.connect", "status", "-4294967296"), 3);
    EXPECT_EQ(refusedWith("BR.getBackupSize", "status", "7"), 3);
}

TEST_F(RefusedBackup, forWantOfSpaceKeepsFile) {
    device_.order("BR.getBackupSize", "bytes", std::to_string(16U * 1024U * 1024U));
    EXPECT_EQ(codeOfBackup(), 3) << "what the file itself would free does not count";
}

TEST_F(RefusedBackup, withoutSizeOfStickKeepsFile) {
    const WatchedCalls watched(
        [](const WatchedCall& call, std::size_t) { return call.name == "statfs64" ? EIO : 0; });
    EXPECT_EQ(codeOfBackup(), 3);
    EXPECT_EQ(watched.count("statfs64"), 1U);
}

}  // namespace
}  // namespace test_support

// Files are never lost: after each of many calls the sticks hold what a model of the service says,
// byte for byte, and a backup that does not begin leaves alone what lies in its place.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <string>

#include "tests/support/device/stick.h"
#include "tests/support/files/modelled_sticks.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/printed_text.h"
#include "tests/support/process/unique_fd.h"
#include "tests/unit/job_fixture.h"
#include "tests/unit/watched_calls.h"

namespace test_support {
namespace {

// ---- any calls ---------------------------------------------------------------------------------

constexpr int kCallsInALife = 24;  // few, for the texts of jobs are joined
// Lives of the service, each with sticks of its own. One takes the emulator several times as long.
int lives() {
    return emulated() ? 40 : 160;
}

constexpr int kLifeShards = 8;  // each a test of its own, so that they can run side by side

// One life of the service.
struct Life {
    explicit Life(std::uint32_t seed) : caller(seed, HostileCaller::Text::AnyBytes) {}

    HostileCaller caller;
    ModelledSticks sticks{caller};
    ModelService model{sticks.model()};
    TfMngr manager;
};

class GeneratedCalls : public JobTest, public testing::WithParamInterface<int> {
protected:
    // Random calls, and sticks that come and go in between.
    void live(std::uint32_t seed);

    std::map<std::string, int> answers_;  // how often each answer was given

private:
    void call(Life& life, const Operation& operation);
    JobCircumstances arrange(Life& life, const Operation& operation);
    void refuseJob(HostileCaller& caller);
    int callOnMachine(TfMngr& manager, const Operation& operation);
};

int performed(TfMngr& manager, const Operation& operation) {
    const auto& [request, mount, path, type] = operation;
    switch (request) {
        case Request::DeleteFile:
            return manager.DeleteFile(mount, path) ? 1 : 0;
        case Request::CreateDirectory:
            return manager.CreateDirectory(mount, path) ? 1 : 0;
        case Request::Backup:
            return numberOf(manager.DoBackup(mount, type, path));
        case Request::Restore:
            return numberOf(manager.DoRestore(mount, path));
        case Request::Update:
            return numberOf(manager.DoOSUpdate(mount, path));
        case Request::ListDirectory:
            manager.getRestoreFilesList(mount, path);
            return 0;
        case Request::ListBackups:
            manager.getBackupFilesList(mount, path);
            return 0;
        case Request::ListUpdates:
            manager.getUpdateFilesList(mount, path);
            return 0;
    }
    return -1;
}

// The calls of the device manager that a backup asks for room with, each failing.
void GeneratedCalls::refuseJob(HostileCaller& caller) {
    switch (caller.number(1, 4)) {
        case 1:
            device_.order("BR.create", "null");
            break;
        case 2:
            device_.orderStatus("BR.connect", 5);
            break;
        case 3:
            device_.orderStatus("BR.getBackupSize", -1);
            break;
        default:
            device_.order("BR.getBackupSize", "bytes", "18446744073709551615");
    }
}

JobCircumstances GeneratedCalls::arrange(Life& life, const Operation& operation) {
    JobCircumstances job;
    device_.clearOrders();
    if (operation.request != Request::Backup) {
        return job;
    }
    job.refused = life.caller.happens(35);
    if (job.refused) {
        refuseJob(life.caller);
    } else if (life.caller.happens(80) && !life.model.wouldWriteIntoAPipe(operation)) {
        job.writes = std::string(static_cast<std::size_t>(life.caller.number(0, 50)), 'b');
        device_.order("BR.backup", "write", std::to_string(job.writes->size()));
        device_.orderStatus("BR.backup", life.caller.number(0, 1));
    }
    return job;
}

int GeneratedCalls::callOnMachine(TfMngr& manager, const Operation& operation) {
    forgetJobs();
    const int answer = performed(manager, operation);
    waitForWorkers();
    return answer;
}

void GeneratedCalls::call(Life& life, const Operation& operation) {
    JobCircumstances job = arrange(life, operation);
    // The size of a stick is the last that is asked: it may fail, or the stick may go just then.
    const bool fails = !job.refused && life.caller.happens(10);
    const bool goes = !job.refused && !fails && life.caller.happens(8);
    const int pulled = goes ? life.caller.number(1, 2) : 0;
    job.lastCheck = [&] {
        if (pulled != 0) {
            life.sticks.pullFromModel(pulled);
        }
        return !fails;
    };
    int answer = -1;
    const std::string printed = printedBy([&] {
        const WatchedCalls watched([&](const WatchedCall& watchedCall, std::size_t) {
            if (watchedCall.name != "statfs64") {
                return 0;
            }
            if (pulled != 0) {
                life.sticks.pullFromMachine(pulled);
            }
            return fails ? EIO : 0;
        });
        answer = callOnMachine(life.manager, operation);
    });
    EXPECT_EQ(answer, life.model.answer(operation, job));
    EXPECT_EQ(printed, life.model.takePrinted());
    EXPECT_TRUE(life.sticks.agree());
    ++answers_[std::to_string(static_cast<int>(operation.request)) + ":" + std::to_string(answer)];
}

void GeneratedCalls::live(std::uint32_t seed) {
    Life life(seed);
    for (int number = 0; number < kCallsInALife && !HasFailure(); ++number) {
        if (life.caller.happens(8)) {
            life.sticks.exchange(life.caller.number(1, 2));
        } else if (life.caller.happens(8)) {
            life.sticks.setReadOnly(life.caller.number(1, 2), life.caller.happens(50));
        }
        const Operation operation = life.caller.next(life.sticks.model());
        SCOPED_TRACE("seed " + std::to_string(seed) + ", call " + std::to_string(number) + ": " +
                     describe(operation));
        call(life, operation);
    }
}

TEST_P(GeneratedCalls, changeOnTheSticksWhatTheModelSays) {
    for (int seed = GetParam(); seed < lives() && !HasFailure(); seed += kLifeShards) {
        live(static_cast<std::uint32_t>(seed));
    }
    for (const char* answer :
         {"0:0", "0:1", "1:0", "1:1", "2:0", "2:1", "2:2", "2:3", "3:0", "4:0", "4:5"}) {
        EXPECT_GT(answers_[answer], 0) << answer << " was never answered";
    }
}

INSTANTIATE_TEST_SUITE_P(Shard, GeneratedCalls, testing::Range(0, kLifeShards));

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

TEST_F(RefusedBackup, forItsNameKeepsTheFile) {
    for (const char* name : {"", "a", "a.ps", "a.PSB", "a.p/../sb", "a.fwf"}) {
        EXPECT_EQ(codeOfBackup(stick_.name(), name), 1) << name;
    }
}

TEST_F(RefusedBackup, forItsStickKeepsTheFile) {
    EXPECT_EQ(codeOfBackup("USB_X60.2", "../USB_X60.1/a.psb"), 2);
    EXPECT_EQ(codeOfBackup("USB_X60.1/missing", "../a.psb"), 2);
    stick_.pull();
    rmdir(stick_.path().c_str());
    EXPECT_EQ(codeOfBackup(), 2);
}

TEST_F(RefusedBackup, byTheDeviceManagerKeepsTheFile) {
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

TEST_F(RefusedBackup, forWantOfSpaceKeepsTheFile) {
    device_.order("BR.getBackupSize", "bytes", std::to_string(16U * 1024U * 1024U));
    EXPECT_EQ(codeOfBackup(), 3) << "what the file itself would free does not count";
}

TEST_F(RefusedBackup, withoutTheSizeOfItsStickKeepsTheFile) {
    const WatchedCalls watched(
        [](const WatchedCall& call, std::size_t) { return call.name == "statfs64" ? EIO : 0; });
    EXPECT_EQ(codeOfBackup(), 3);
    EXPECT_EQ(watched.count("statfs64"), 1U);
}

}  // namespace
}  // namespace test_support

// Files are never lost to calls over the bus: the sticks of the running service hold what a model
// of it says.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/bus/job_calls.h"
#include "tests/bus/steady_service.h"
#include "tests/support/device/device_double.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/files/modelled_sticks.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

constexpr int kShards = 3;  // each a test of its own, so that they can run side by side
constexpr int kCalls = 60;

// Exists before the service, which needs its environment.
struct WithDevice {
    DeviceDouble device_;
};

class FilesOnTheBus : private WithDevice, public SteadyService {
protected:
    FilesOnTheBus() : SteadyService(device_.environment()) {}

    // As ModelService answers.
    int answer(const Operation& operation) const {
        const auto& [request, mount, path, type] = operation;
        switch (request) {
            case Request::DeleteFile:
                return reply("DeleteFile", operation).text() == "(true,)" ? 1 : 0;
            case Request::CreateDirectory:
                return reply("CreateDirectory", operation).text() == "(true,)" ? 1 : 0;
            case Request::Backup:
                return doBackup(bus_, mount, type, path);
            case Request::Restore:
                return doRestore(bus_, mount, path);
            case Request::Update:
                return doOsUpdate(bus_, mount, path);
            case Request::ListDirectory:
                return reply("GetDirectoryIndex", operation).error.empty() ? 0 : kNoAnswer;
            case Request::ListBackups:
                return reply("GetBackupFilesList", operation).error.empty() ? 0 : kNoAnswer;
            case Request::ListUpdates:
                return reply("GetDirectoryIndexForUpdate", operation).error.empty() ? 0 : kNoAnswer;
        }
        return kNoAnswer;
    }
    using WithDevice::device_;

private:
    Reply reply(const char* method, const Operation& operation) const {
        return bus_.transfer(
            method, g_variant_new("(ss)", operation.mount.c_str(), operation.path.c_str()));
    }
};

class GeneratedBusCalls : public FilesOnTheBus, public testing::WithParamInterface<int> {
protected:
    // Has the machine and the model do the same.
    void call(const Operation& operation) {
        SCOPED_TRACE(describe(operation));
        EXPECT_EQ(answer(operation), model_.answer(operation, job_));
        EXPECT_TRUE(waitForWorker());
        EXPECT_TRUE(sticks_.agree());
    }

    HostileCaller caller_{static_cast<std::uint32_t>(GetParam()), HostileCaller::Text::Utf8};
    ModelledSticks sticks_{caller_};
    ModelService model_{sticks_.model()};
    JobCircumstances job_;

private:
    testing::AssertionResult waitForWorker() const {
        const auto hasEnded = [](const DoubleRecord& record) {
            return !record.onMainThread && record.text.rfind("BRDestroyController", 0) == 0;
        };
        return eventually(
            [&] {
                const std::vector<DoubleRecord> all = device_.records();
                return std::count_if(all.begin(), all.end(), hasEnded) == model_.jobs();
            },
            "the worker ends");
    }
};

// A job that starts takes a second, so there is one, at the end, on a file that is there.
TEST_P(GeneratedBusCalls, changeOnTheSticksWhatTheModelSays) {
    device_.orderStatus("BR.connect", 1);
    job_.refused = true;
    for (int number = 0; number < kCalls && !HasFailure(); ++number) {
        const Operation operation = caller_.next(sticks_.model());
        if (operation.request != Request::Restore && operation.request != Request::Update) {
            call(operation);
        }
    }
    const std::string inTheWay = stickPath(1) + "/in the way.psb";
    writeFile(inTheWay, "old");
    sticks_.model().adopt(inTheWay);
    call({Request::Backup, stickName(1), "in the way.psb", 1});
    EXPECT_EQ(readFile(inTheWay), "old");

    device_.clearOrders();
    device_.order("BR.backup", "write", "5");
    job_ = {false, "bbbbb"};
    call({Request::Backup, stickName(1), "in the way.psb", 1});
    EXPECT_EQ(readFile(inTheWay), "bbbbb");
    EXPECT_TRUE(service_.waitForOutput(model_.takePrinted()));
}

INSTANTIATE_TEST_SUITE_P(Shard, GeneratedBusCalls, testing::Range(0, kShards));

#if !defined(__SANITIZE_THREAD__)  // it makes threads itself
TEST_F(FilesOnTheBus, stayWhenTheBackupHasNoThread) {
    const Stick stick(1);
    stick.addFile("a.psb", "old");
    device_.order("pthread_create", "refuse");
    EXPECT_EQ(doBackup(bus_, stick.name(), 1, "a.psb"), -1);
    EXPECT_EQ(readFile(stick.path("a.psb")), "old");
}
#endif

}  // namespace
}  // namespace test_support

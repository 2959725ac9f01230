// The ground of the jobs' unit tests: a transfer manager between a double of the device's libraries
// and a clock that takes no time.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/device/device_double.h"
#include "tests/support/process/waiting.h"
#include "tests/unit/controlled_clock.h"
#include "transfer/tf_mngr.h"

namespace test_support {

inline int numberOf(JobResult result) {
    return static_cast<int>(result);
}

class JobTest : public testing::Test {
protected:
    ~JobTest() override {
        // Jobs on joined names make directories beside the sticks.
        std::filesystem::remove_all("/media/usb");
    }

    void TearDown() override {
        device_.openGate();
        waitForWorkers();
    }

    // Each calls the manager, waits until the worker has ended, if one was started, and returns the
    // answer's number.
    int backup(const std::string& mntId, std::uint32_t type, const std::string& file) {
        return onceDone(manager_.DoBackup(mntId, type, file));
    }
    int restore(const std::string& mntId, const std::string& file) {
        return onceDone(manager_.DoRestore(mntId, file));
    }
    int update(const std::string& mntId, const std::string& file) {
        return onceDone(manager_.DoOSUpdate(mntId, file));
    }

    // Makes `operation` ("BR.backup") stand still once it has been called, until `meanwhile` has
    // run on another thread; then the gate is open for good. For one operation in a test.
    void during(const std::string& operation, const std::function<void()>& meanwhile,
                const std::function<void()>& job) {
        device_.order(operation, "hang", device_.gate());
        std::thread other([&] {
            EXPECT_TRUE(eventually(
                [&] {
                    const std::vector<std::string> calls = device_.calls();
                    return !calls.empty() &&
                           calls.back().find(operation.substr(2)) != std::string::npos;
                },
                operation + " is called"));
            meanwhile();
            device_.openGate();
        });
        job();
        other.join();
    }

    // Waits until every worker that was started has gone.
    void waitForWorkers() {
        const auto allHaveGone = [this] {
            const std::vector<DoubleRecord> records = device_.records();
            // Every launch sleeps once.
            return std::count_if(records.begin(), records.end(), isLastCall) ==
                       static_cast<std::ptrdiff_t>(clock_.sleeps().size()) &&
                   std::none_of(records.begin(), records.end(), isOfRunningWorker);
        };
        EXPECT_TRUE(eventually(allHaveGone, "the workers end"));
    }

    DeviceDouble device_;
    ControlledClock clock_;
    TfMngr manager_;

private:
    int onceDone(JobResult result) {
        waitForWorkers();
        return numberOf(result);
    }

    // The last that the device libraries see of a worker.
    static bool isLastCall(const DoubleRecord& record) {
        return !record.onMainThread && (record.entry.find("DestroyController(") == 2 ||
                                        record.entry == "BRCreateController() = null");
    }
    static bool isOfRunningWorker(const DoubleRecord& record) {
        return !record.onMainThread && exists("/proc/self/task/" + std::to_string(record.thread));
    }
};

}  // namespace test_support

// The ground of the jobs' unit tests: a transfer manager between a double of the device's libraries
// and a clock that takes no time.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "tests/support/device/device_double.h"
#include "tests/unit/controlled_clock.h"
#include "transfer/tf_mngr.h"

namespace test_support {

inline int numberOf(JobResult result) {
    return static_cast<int>(result);
}

class JobTest : public testing::Test {
protected:
    ~JobTest() override;
    void TearDown() override;

    // Each calls the manager, waits until the worker has ended, if one was started, and returns the
    // answer's number.
    int backup(const std::string& mntId, std::uint32_t type, const std::string& file);
    int restore(const std::string& mntId, const std::string& file);
    int update(const std::string& mntId, const std::string& file);

    // Makes `operation` ("BR.backup") stand still once it has been called, until `meanwhile` has
    // run on another thread; then the gate is open for good. For one operation in a test.
    void during(const std::string& operation, const std::function<void()>& meanwhile,
                const std::function<void()>& job);

    // Waits until every worker that was started has gone.
    void waitForWorkers();
    // Empties the record of a device that has seen many jobs; none may be running.
    void forgetJobs();

    DeviceDouble device_;
    ControlledClock clock_;
    TfMngr manager_;

private:
    std::size_t forgotten_ = 0;  // launches
};

}  // namespace test_support

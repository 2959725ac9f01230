// A service that has to come out of a test as it went in.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_double.h"
#include "tests/support/process/service_process.h"

namespace test_support {

class SteadyService : public testing::Test {
protected:
    // Without doubles the service uses the stub libraries.
    explicit SteadyService(const std::vector<std::string>& environment = {})
        : service_({{}, environment}) {}

    void SetUp() override;

    // The same process answers, and the descriptors that are open are those of the beginning.
    void TearDown() override;

    ServiceProcess service_;
    const SystemBus bus_;

private:
    std::vector<std::string> sortedDescriptors() const;

    std::optional<pid_t> process_;
    std::vector<std::string> descriptors_;
};

// A base, because it has to exist before the service, which needs its environment.
struct WithDouble {
    DeviceDouble device_;
};

class SteadyServiceWithDouble : protected WithDouble, public SteadyService {
protected:
    SteadyServiceWithDouble() : SteadyService(device_.environment()) {}
};

}  // namespace test_support

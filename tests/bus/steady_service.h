// A service that has to come out of a test as it went in.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_double.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/syslog_socket.h"
#include "tests/support/process/waiting.h"

namespace test_support {

class SteadyService : public testing::Test {
protected:
    // Without doubles the service uses the stub libraries.
    explicit SteadyService(const std::vector<std::string>& environment = {})
        : service_({{}, environment}) {}

    void SetUp() override {
        ASSERT_TRUE(service_.waitUntilAnswers());
        process_ = service_.processId();
        descriptors_ = sortedDescriptors();
    }

    // The same process answers, and the descriptors that are open are those of the beginning.
    void TearDown() override {
        EXPECT_EQ(bus_.transfer("GetUSBStickDetails").type(), "(av)");
        EXPECT_EQ(service_.processId(), process_);
        EXPECT_TRUE(eventually([this] { return sortedDescriptors() == descriptors_; },
                               "the descriptors of the beginning"))
            << testing::PrintToString(descriptors_) << " became "
            << testing::PrintToString(sortedDescriptors());
    }

    // The reply of the transfer interface, or "error NAME"; `arguments` in GVariant's text form.
    std::string ask(const std::string& method, const std::string& arguments = "()") const {
        return bus_.transfer(method, g_variant_new_parsed(arguments.c_str())).printed();
    }

    ServiceProcess service_;
    const SystemBus bus_;

private:
    std::vector<std::string> sortedDescriptors() const {
        std::vector<std::string> all = service_.openDescriptors();
        std::sort(all.begin(), all.end());
        return all;
    }

    std::optional<pid_t> process_;
    std::vector<std::string> descriptors_;
};

// Bases, because both have to exist before the service.
struct WithLog {
    SyslogSocket log_;
};
struct WithDouble {
    DeviceDouble device_;
};

class SteadyServiceWithDouble : protected WithDouble, public SteadyService {
protected:
    SteadyServiceWithDouble() : SteadyService(device_.environment()) {}
};

}  // namespace test_support

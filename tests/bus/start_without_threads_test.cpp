// The start of a service that gets no thread for its connection to the bus.
//
// Not under the thread sanitizer, which makes threads itself.
#if !defined(__SANITIZE_THREAD__)

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/device/device_double.h"
#include "tests/support/process/service_messages.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/start_semaphores.h"
#include "tests/support/process/syslog_socket.h"

namespace test_support {
namespace {

using testing::UnorderedElementsAreArray;

struct Way {
    const char* name;
    std::vector<std::string> arguments;
    std::vector<ProcessEnd> endsWithoutThreads;
};

// A service that has come to its main loop, has asked to be connected, and can have no further
// thread.
class StartWithoutThreads : public testing::TestWithParam<Way> {
protected:
    void SetUp() override {
        // GLib's own thread, without which it ends the process, is granted.
        device_.order("pthread_create", "granted", "1");
        device_.order("pthread_create", "refuse");
        service_.emplace(ServiceOptions{GetParam().arguments, device_.environment(), {}, {}, {}});
        ASSERT_TRUE(log_.waitFor("Init Main loop"));
    }

    SyslogSocket log_;
    DeviceDouble device_;
    std::optional<ServiceProcess> service_;
};

TEST_P(StartWithoutThreads, isOneWithoutABus) {
    EXPECT_THAT(service_->waitForAllEnds(),
                UnorderedElementsAreArray(GetParam().endsWithoutThreads));
    EXPECT_TRUE(log_.waitFor("Could not register servicename on bus"));
    EXPECT_EQ(service_->standardError(), "");
    EXPECT_FALSE(StartSemaphores::exists());
}

TEST_P(StartWithoutThreads, goesOnWithTheFirstThreadThatItGets) {
    device_.clearOrders();
    EXPECT_TRUE(service_->waitUntilAnswers());
}

INSTANTIATE_TEST_SUITE_P(As, StartWithoutThreads,
                         testing::Values(Way{"aForegroundService", {}, {exited(2)}},
                                         Way{"aDaemon", {"-d"}, {exited(0), exited(2)}}),
                         [](const auto& one) { return std::string(one.param.name); });

}  // namespace
}  // namespace test_support

#endif

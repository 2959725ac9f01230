// The control interface: Quit and Init acknowledge, log, and change nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/bus/system_bus.h"
#include "tests/support/process/service_messages.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/syslog_socket.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

class ControlMethod : public testing::TestWithParam<const char*> {
protected:
    SyslogSocket log_;
    ServiceProcess service_;
    const SystemBus bus_;
};

TEST_P(ControlMethod, isLoggedAndChangesNothing) {
    ASSERT_TRUE(service_.waitUntilAnswers());
    for (int calls = 0; calls < 2; ++calls) {
        EXPECT_EQ(bus_.call(kControlPath, kControlInterface, GetParam()).printed(), "()");
    }
    EXPECT_EQ(bus_.transfer("GetUSBStickDetails").printed(), "(@av [],)");
    // The line end is part of the message, so an empty line follows on standard output.
    const std::string message = std::string("[NFO] ") + GetParam() + "() Method invoked by DBus\n";
    const std::vector<std::string> all = startUpMessages({message, message});
    ASSERT_TRUE(service_.waitForOutput(asPrinted(all)));
    EXPECT_EQ(service_.standardOutput(), asPrinted(all));
    EXPECT_EQ(service_.standardError(), "");
    ASSERT_TRUE(eventually([&] { return log_.messages().size() >= all.size(); }, "the log"));
    EXPECT_THAT(log_.messages(), testing::ElementsAreArray(all));
    EXPECT_TRUE(service_.processId());
}

INSTANTIATE_TEST_SUITE_P(Named, ControlMethod, testing::Values("Quit", "Init"));

}  // namespace
}  // namespace test_support

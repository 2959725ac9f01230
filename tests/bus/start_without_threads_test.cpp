// The start of a service that gets no thread for its connection to the bus.
//
// Not under the thread sanitizer: each thread takes memory of its own there, so that how many there
// may be cannot be told from the address space.
#if !defined(__SANITIZE_THREAD__)

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/lock_file.h"
#include "tests/support/service_messages.h"
#include "tests/support/service_process.h"
#include "tests/support/start_semaphores.h"
#include "tests/support/syslog_socket.h"
#include "tests/support/transfer_script.h"

namespace test_support {
namespace {

using testing::UnorderedElementsAreArray;

struct Way {
    const char* name;
    std::vector<std::string> arguments;
    std::vector<ProcessEnd> endsWithoutThreads;
};

void PrintTo(const Way& way, std::ostream* out) {
    *out << way.name;
}

// A service that has come to its main loop, has asked to be connected, and can have no further
// thread.
class StartWithoutThreads : public testing::TestWithParam<Way> {
protected:
    void SetUp() override {
        if (const std::string reason = whyThreadsCannotBeForbidden(); !reason.empty()) {
            GTEST_SKIP() << reason;
        }
        const HeldTransferScript script;
        service_.emplace(ServiceOptions{GetParam().arguments, {}, {}, {}, {}});
        ASSERT_TRUE(script.waitUntilEntered());
        process_ = lockHolder(kLockFile).value_or(0);
        ASSERT_GT(process_, 0);
        // GLib's own thread, without which it ends the process, is granted.
        ASSERT_TRUE(forbidThreadsIn(process_, 1));
        script.release();
        ASSERT_TRUE(log_.waitFor("Init Main loop"));
    }

    SyslogSocket log_;
    std::optional<ServiceProcess> service_;
    pid_t process_ = 0;
};

TEST_P(StartWithoutThreads, isOneWithoutABus) {
    EXPECT_THAT(service_->waitForAllEnds(),
                UnorderedElementsAreArray(GetParam().endsWithoutThreads));
    EXPECT_TRUE(log_.waitFor("Could not register servicename on bus"));
    EXPECT_EQ(service_->standardError(), "");
    EXPECT_FALSE(StartSemaphores::exists());
}

TEST_P(StartWithoutThreads, goesOnWithTheFirstThreadThatItGets) {
    ASSERT_TRUE(allowThreadsIn(process_));
    EXPECT_TRUE(service_->waitUntilAnswers());
}

INSTANTIATE_TEST_SUITE_P(As, StartWithoutThreads,
                         testing::Values(Way{"aForegroundService", {}, {exited(2)}},
                                         Way{"aDaemon", {"-d"}, {exited(0), exited(2)}}),
                         [](const auto& one) { return std::string(one.param.name); });

}  // namespace
}  // namespace test_support

#endif

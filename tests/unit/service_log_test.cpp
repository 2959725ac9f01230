// The logging helper: what goes to syslog and what to standard output, to the byte.
#include "service/service_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "tests/support/process/child_process.h"
#include "tests/support/process/service_messages.h"
#include "tests/support/process/syslog_socket.h"

namespace test_support {
namespace {

using testing::ElementsAre;

TEST(ServiceLog, printsTagMessageAndLineEnd) {
    SyslogSocket log;
    const CommandResult result = runForked([] {
        serviceLog(LOG_ERR, log_tag::kError, "one %s", "error");
        serviceLog(LOG_INFO, log_tag::kInfo, "number %d", -7);
        serviceLog(LOG_DEBUG, log_tag::kDebug, "no arguments");
    });
    EXPECT_EQ(result.output, "[ERR] one error\n[NFO] number -7\n[DEB] no arguments\n");
    EXPECT_EQ(result.error, "");
    ASSERT_TRUE(log.waitFor("no arguments"));
    EXPECT_THAT(log.messages(),
                ElementsAre("[ERR] one error", "[NFO] number -7", "[DEB] no arguments"));
}

TEST(ServiceLog, keepsALineEndOfTheMessage) {
    SyslogSocket log;
    const CommandResult result =
        runForked([] { serviceLog(LOG_INFO, log_tag::kInfo, "line end\n"); });
    EXPECT_EQ(result.output, "[NFO] line end\n\n");
    ASSERT_TRUE(log.waitFor("line end"));
    EXPECT_THAT(log.messages(), ElementsAre("[NFO] line end\n"));
}

TEST(ServiceLog, formatsLongMessagesWhole) {
    SyslogSocket log;
    const std::string longText(2000, 'x');
    const CommandResult result = runForked([&] {
        serviceLog(LOG_INFO, log_tag::kInfo, "%s|%d|%c|%.1f|%lu", longText.c_str(), 1, 'c', 2.5,
                   3UL);
    });
    const std::string formatted = longText + "|1|c|2.5|3";
    EXPECT_EQ(result.output, "[NFO] " + formatted + "\n");
    ASSERT_TRUE(log.waitFor("|2.5|3"));
    EXPECT_THAT(log.messages(), ElementsAre("[NFO] " + formatted));
}

TEST(ServiceLog, doesNotFlushStandardOutput) {
    const CommandResult result = runForked([] {
        serviceLog(LOG_INFO, log_tag::kInfo, "still in the buffer");
        syscall(SYS_exit_group, 0);  // the sanitizers' _exit writes the buffer out
    });
    EXPECT_EQ(result.end, exited(0));
    EXPECT_EQ(result.output, "");
}

TEST(ServiceLog, callsSyslogFirst) {
    SyslogSocket log;
    const CommandResult result = runForked([] {
        int ends[2] = {};
        if (pipe(ends) != 0 || close(ends[0]) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) {
            return;
        }
        std::setvbuf(stdout, nullptr, _IONBF, 0);
        std::signal(SIGPIPE, SIG_DFL);  // the first byte to standard output kills
        serviceLog(LOG_ERR, log_tag::kError, "heard anyway");
    });
    EXPECT_EQ(result.end, killedBy(SIGPIPE));
    EXPECT_TRUE(log.waitFor("heard anyway"));
}

}  // namespace
}  // namespace test_support

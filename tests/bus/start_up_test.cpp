// The start of the service in the foreground: what it does, prints and logs, and in which order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/support/bus/system_bus.h"
#include "tests/support/device/transfer_script.h"
#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/service_messages.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/start_semaphores.h"
#include "tests/support/process/syslog_socket.h"

namespace test_support {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr const char* kLastStep = "Init Main loop\n";

class StartUp : public testing::Test {
protected:
    StartUp() {
        unlink(kEnabledFile);
        clearTransferScriptRuns();
    }

    SyslogSocket log_;
};

TEST_F(StartUp, printsAndLogsItsSteps) {
    ServiceProcess service;
    ASSERT_TRUE(service.waitUntilAnswers());
    ASSERT_TRUE(service.waitForOutput(kLastStep));
    EXPECT_EQ(service.standardOutput(), asPrinted(startUpMessages()));
    EXPECT_EQ(service.standardError(), "");
    EXPECT_EQ(innermostId(*service.processId()), service.commandInside());
    EXPECT_FALSE(StartSemaphores::exists());
    ASSERT_TRUE(log_.waitFor("Init Main loop"));
    EXPECT_THAT(log_.messages(), ElementsAreArray(startUpMessages()));
    if (!emulated()) {
        EXPECT_THAT(log_.datagrams(), Each(testing::HasSubstr(" com-morvane-transfer-service: ")));
    }
}

TEST_F(StartUp, locksMarksAndRunsScriptFirst) {
    const HeldTransferScript script("[ -e /tmp/transfer.enabled ] && touch /tmp/marked-first");
    ServiceProcess service;
    ASSERT_TRUE(script.waitUntilEntered());
    EXPECT_TRUE(exists("/tmp/marked-first"));
    EXPECT_THAT(transferScriptRuns(), ElementsAre(kScriptStart));
    EXPECT_EQ(lockHolder(kLockFile), service.outsideId(*service.commandInside()));
    EXPECT_FALSE(SystemBus::hasOwner(kServiceName));
    EXPECT_EQ(service.standardOutput(), "");
    EXPECT_THAT(log_.messages(), IsEmpty());

    script.release();
    ASSERT_TRUE(service.waitUntilAnswers());
    ASSERT_TRUE(service.waitForOutput(kLastStep));
    EXPECT_EQ(service.standardOutput(), asPrinted(startUpMessages()));
    EXPECT_THAT(transferScriptRuns(), ElementsAre(kScriptStart)) << "the script runs once";
    unlink("/tmp/marked-first");
}

TEST_F(StartUp, goesOnWithoutSystemLog) {
    ASSERT_EQ(rename("/dev/log", "/dev/log-away"), 0);
    ServiceProcess service;
    EXPECT_TRUE(service.waitUntilAnswers());
    EXPECT_TRUE(service.waitForOutput(kLastStep));
    EXPECT_EQ(service.standardOutput(), asPrinted(startUpMessages()));
    EXPECT_EQ(rename("/dev/log-away", "/dev/log"), 0);
}

TEST_F(StartUp, ignoresUnknownOptions) {
    // What stands behind "--" is no option, so this stays in the foreground.
    ServiceProcess service{{{"word", "-x", "--no", "-y", "--", "-d"}}};
    ASSERT_TRUE(service.waitUntilAnswers());
    const std::string report = buildPath("com-morvane-transfer-service") + ": invalid option -- '";
    ASSERT_TRUE(service.waitForError(report + "y'\n"));
    EXPECT_EQ(service.standardError(), report + "x'\n" + report + "-'\n" + report + "n'\n" +
                                           report + "o'\n" + report + "y'\n");
    ASSERT_TRUE(service.waitForOutput(kLastStep));
    EXPECT_EQ(service.standardOutput(), asPrinted(startUpMessages()));
}

TEST_F(StartUp, endsSecondInstanceWith255) {
    ServiceProcess first;
    ASSERT_TRUE(first.waitUntilAnswers());
    ASSERT_TRUE(log_.waitFor("Init Main loop"));
    const std::string id = readFile(kLockFile);
    const std::unique_ptr<ChildProcess> second =
        first.enter(runnable(buildPath("com-morvane-transfer-service")));
    EXPECT_EQ(second->waitForEnd(), exited(255));

    const std::string message = "[ERR] Service already started. Shutting down com.morvane.transfer";
    EXPECT_EQ(second->standardOutput(), asPrinted({message}));
    EXPECT_EQ(second->standardError(),
              "PID-File already locked.\n: Resource temporarily unavailable\n");
    ASSERT_TRUE(log_.waitFor("already started"));
    EXPECT_THAT(log_.messages(), ElementsAreArray(startUpMessages({message})));
    EXPECT_EQ(readFile(kLockFile), id);
    EXPECT_TRUE(first.processId().has_value());
    EXPECT_THAT(transferScriptRuns(), ElementsAre(kScriptStart)) << "the second ran it, too";
}

}  // namespace
}  // namespace test_support

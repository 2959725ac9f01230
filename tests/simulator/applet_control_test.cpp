// The simulated applet control as a program; the tests of the whole device look at it on the bus.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/files/paths.h"
#include "tests/support/process/child_process.h"

namespace {

// Runs it with these lines, which printf makes, as its input.
test_support::CommandResult follow(const std::string& lines) {
    return test_support::runCommand(test_support::runnableAfter(
        {"/bin/sh", "-c", "lines=$1; shift; printf -- \"$lines\" | \"$@\"", "sh", lines},
        test_support::buildPath("applet-control")));
}

TEST(SimulatedAppletControl, takesLowestId) {
    EXPECT_THAT(follow("-2147483648\\n").output, testing::HasSubstr(": applet -2147483648\n"));
}

TEST(SimulatedAppletControl, logsLinesThatMakeNoSense) {
    const auto result = follow("x\\n\\n2147483648\\n1 \\nother=1\\norganizationName=\\377\\n");
    EXPECT_EQ(result.end, test_support::exited(0));
    for (const std::string line :
         {"no applet id: x", "no applet id: ", "no applet id: 2147483648", "no applet id: 1 ",
          "no applet id: other=1", "no text for a property: organizationName=\\377"}) {
        EXPECT_THAT(result.output, testing::HasSubstr(": " + line + "\n"));
    }
}

}  // namespace

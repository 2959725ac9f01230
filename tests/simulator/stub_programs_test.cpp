// The stub libraries and the applet control of the simulated device.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/files/paths.h"
#include "tests/support/process/child_process.h"

namespace test_support {
namespace {

TEST(StubLibrary, exportsItsInterfaceOnly) {
    const auto names = [](const std::string& library) {
        return runCommand({"nm", "-D", "--defined-only", "-f", "posix", "-C", buildPath(library)});
    };
    const auto client = names("libDeviceManagerClient.so");
    ASSERT_EQ(client.end, exited(0)) << client.error;
    EXPECT_THAT(client.output,
                testing::MatchesRegex("BRCreateController T[^\n]*\nBRDestroyController T[^\n]*\n"
                                      "FUCreateController T[^\n]*\nFUDestroyController T[^\n]*\n"));
    const auto vesk = names("libVesk.so");
    ASSERT_EQ(vesk.end, exited(0)) << vesk.error;
    EXPECT_THAT(vesk.output, testing::MatchesRegex("(VeskServiceInterface::[^\n]*\n)+"));
}

// Runs it with these lines, which printf makes, as its input.
CommandResult follow(const std::string& lines) {
    return runCommand(runnableAfter(
        {"/bin/sh", "-c", "lines=$1; shift; printf -- \"$lines\" | \"$@\"", "sh", lines},
        buildPath("applet-control")));
}

TEST(SimulatedAppletControl, takesLowestId) {
    EXPECT_THAT(follow("-2147483648\\n").output, testing::HasSubstr(": applet -2147483648\n"));
}

TEST(SimulatedAppletControl, logsLinesThatMakeNoSense) {
    const auto result = follow("x\\n\\n2147483648\\n1 \\nother=1\\norganizationName=\\377\\n");
    EXPECT_EQ(result.end, exited(0));
    for (const std::string line :
         {"no applet id: x", "no applet id: ", "no applet id: 2147483648", "no applet id: 1 ",
          "no applet id: other=1", "no text for a property: organizationName=\\377"}) {
        EXPECT_THAT(result.output, testing::HasSubstr(": " + line + "\n"));
    }
}

}  // namespace
}  // namespace test_support

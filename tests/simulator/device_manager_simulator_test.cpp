// The simulator as a program: its port, its options, its complaints.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/simulator/device_manager_fixture.h"
#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/child_process.h"

namespace test_support {
namespace {

TEST(DeviceManagerSimulator, refusesBusyPort) {
    const TemporaryDirectory folder;
    const std::string path = buildPath("device-manager-simulator");
    const std::vector<std::string> options = {"--state", folder.path("first"),
                                              "--credential-record="};
    ChildProcess first(runnable(path, options));
    ASSERT_TRUE(first.waitForOutput("listens on"));
    const auto second =
        runCommand(runnable(path, {"--state", folder.path("second"), "--credential-record="}));
    EXPECT_EQ(second.end, exited(1));
    EXPECT_THAT(second.error,
                testing::MatchesRegex("device-manager-simulator: [^\n]*5001[^\n]*\n"));
    EXPECT_FALSE(exists(folder.path("second")));
}

TEST(DeviceManagerSimulator, takesFreePort) {
    const TemporaryDirectory folder;
    ChildProcess simulator(
        runnable(buildPath("device-manager-simulator"),
                 {"--state", folder.path("state"), "--credential-record=", "--port", "0"}));
    ASSERT_TRUE(simulator.waitForOutput(", state in "));
    const std::string output = simulator.standardOutput();
    const std::size_t begin = output.find("127.0.0.1:");
    const std::string endpoint = output.substr(begin, output.find(',', begin) - begin);
    EXPECT_NE(endpoint, "127.0.0.1:0");
    EXPECT_EQ(BackupRestore(BRCreateController())->connect(endpoint.c_str(), ""), 0) << endpoint;
}

TEST(DeviceManagerSimulator, refusesWrongOptions) {
    const TemporaryDirectory folder;
    writeFile(folder.path("file"), "");
    const std::vector<std::pair<std::vector<std::string>, int>> cases = {
        {{"--nonsense"}, 2},
        {{"stray"}, 2},
        {{"--port", "70000"}, 2},
        {{"--job-seconds", "-1"}, 2},
        {{"--make-update", "1.0"}, 2},
        {{"--order", "delay", "soon"}, 2},
        {{"--order", "delay", "1", "2"}, 2},
        {{"--order", "status"}, 1},
        {{"--set-name", "a\xFF", "--state", folder.path("state")}, 1},
        {{"--print-name", "--state", folder.path("missing")}, 1},
        {{"--make-update", "new", folder.path("a.fwf")}, 1},
        {{"--make-update", "1.0", folder.path("missing/a.fwf")}, 1},
        {{"--credential-record=", "--state", folder.path("file")}, 1},
        {{"--credential-record", folder.path("file/record"), "--state", folder.path("state")}, 1},
    };
    for (const auto& [options, status] : cases) {
        const auto result = runCommand(runnable(buildPath("device-manager-simulator"), options));
        EXPECT_EQ(result.end, exited(status)) << testing::PrintToString(options);
        EXPECT_THAT(result.error, testing::MatchesRegex("device-manager-simulator: [^\n]+\n"));
    }
}

}  // namespace
}  // namespace test_support

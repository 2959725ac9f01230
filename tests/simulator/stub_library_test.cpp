// What takes the place of the device's libraries and its transfer script, as files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/child_process.h"

namespace test_support {
namespace {

using testing::HasSubstr;

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

TEST(StubLibrary, hasPlainNameAsSoname) {
    for (const std::string library : {"libDeviceManagerClient.so", "libVesk.so"}) {
        const auto result = runCommand({"readelf", "-d", buildPath(library)});
        ASSERT_EQ(result.end, exited(0)) << result.error;
        EXPECT_THAT(result.output, HasSubstr("Library soname: [" + library + "]"));
    }
}

TEST(TransferScript, writesItsArgumentsAsOneLine) {
    const std::string script = sourcePath("simulator/transfer.sh");
    const std::string before = readFile("/run/log/transfer-script");
    EXPECT_EQ(runCommand({"/bin/sh", script, "TF_STATE_SNC_START", "true", "true"}).end, exited(0));
    EXPECT_EQ(readFile("/run/log/transfer-script"), before + "TF_STATE_SNC_START true true\n");
}

}  // namespace
}  // namespace test_support

// What only the executable itself shows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"

namespace test_support {
namespace {

TEST(ServiceExecutable, holdsStopCommandWithLeadingBlank) {
    const std::string command =
        " /bin/sh /etc/morvane/transfer/transfer.sh TF_STATE_SNC_STOP true true";
    EXPECT_THAT(readFile(buildPath("com-morvane-transfer-service")),
                testing::HasSubstr('\0' + command + '\0'));
}

}  // namespace
}  // namespace test_support

// What --json prints.
#include <gtest/gtest.h>

#include "transferctl/json_text.h"

namespace transferctl {
namespace {

TEST(Json, isOneLineThatAnyReaderTakes) {
    File file{false, "\"a\\\x1b\n\u202e\u009b", 7, {"USB_X60.1", "d/x"}};
    EXPECT_EQ(listToJson("files", std::vector<File>{file}).line(),
              "{\"files\":[{\"place\":\"USB_X60.1:d/x\",\"stick\":\"USB_X60.1\",\"path\":\"d/x\","
              "\"name\":\"\\\"a\\\\\\u001b\\n\\u202e\\u009b\",\"kind\":\"file\",\"size\":7}]}\n");
    EXPECT_EQ(listToJson("sticks", std::vector<Stick>()).line(), "{\"sticks\":[]}\n");
}

TEST(Json, endsAtNumbersThatReadersTake) {
    const Stick stick{"USB_X60.1", ~0ULL, 1ULL << 62U};
    EXPECT_EQ(
        toJson(stick).line(),
        "{\"name\":\"USB_X60.1\",\"size\":9223372036854775807,\"free\":4611686018427387904}\n");
}

TEST(Json, ofAFailureSaysWhatTheExitStatusSaysToo) {
    EXPECT_EQ(toJson(Failure(ExitStatus::kRefused, "no \xff", 3)).line(),
              "{\"error\":\"no \uFFFD\",\"status\":1,\"code\":3}\n");
    EXPECT_EQ(toJson(Failure(ExitStatus::kTimeLimit, "late")).line(),
              "{\"error\":\"late\",\"status\":4,\"code\":null}\n");
}

}  // namespace
}  // namespace transferctl

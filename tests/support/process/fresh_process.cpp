// A test that runs partly in a process of its own.
#include "tests/support/process/fresh_process.h"

#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "tests/support/files/paths.h"

namespace test_support {
namespace {

constexpr const char* kFreshMark = "MORVANE_TEST_FRESH_PROCESS";

std::vector<std::string> currentTestAlone() {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = std::string(test->test_suite_name()) + "." + test->name();
    return runnable(ownExecutable(), {"--gtest_filter=" + name});
}

ChildOptions marked() {
    ChildOptions options;
    // Where this process runs a share of the tests, the test may be none of the new one's share.
    options.environment = {std::string(kFreshMark) + "=1", "GTEST_TOTAL_SHARDS=1",
                           "GTEST_SHARD_INDEX=0"};
    return options;
}

}  // namespace

bool isFreshProcess() {
    return std::getenv(kFreshMark) != nullptr;
}

void note(const std::string& line) {
    const std::string text = line + "\n";
    if (write(ChildProcess::kReportFd, text.data(), text.size()) < 0) {
        ADD_FAILURE() << "nobody takes the note " << line;
    }
}

FreshProcess::FreshProcess() : ChildProcess(currentTestAlone(), marked()) {}

testing::AssertionResult FreshProcess::waitForNote(const std::string& line) const {
    const std::string text = line + "\n";
    if (streams().waitFor(kReportStream,
                          [&](const std::string& all) { return all.find(text) != all.npos; })) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "no note " << line << " among:\n"
                                       << notes() << "standard error:\n"
                                       << standardError();
}

}  // namespace test_support

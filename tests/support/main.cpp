// The entry of every test executable: into the sandbox, then GoogleTest.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "tests/support/files/paths.h"
#include "tests/support/process/sandbox.h"

namespace {

bool leftToTheProcessor(const testing::TestResult& result) {
    const std::string reason = result.GetTestPartResult(0).message();
    return test_support::emulated() &&
           reason.find(test_support::kEmulatorCannot) != std::string::npos;
}

// Where the environment variable CI is set nothing may be left out but what an emulator cannot do:
// a skipped test fails.
class SkipsAreFailures : public testing::EmptyTestEventListener {
public:
    void OnTestEnd(const testing::TestInfo& test) override {
        if (test.result()->Skipped() && !leftToTheProcessor(*test.result())) {
            ADD_FAILURE() << "skipped, although CI is set and asks for every test";
        }
    }
};

// Listing needs no sandbox: the build and ctest ask for the names on any machine.
bool onlyLists(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--gtest_list_tests") == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (!onlyLists(argc, argv)) {
        test_support::enterSandbox(argc, argv);
    }
    testing::InitGoogleMock(&argc, argv);
    if (std::getenv("CI") != nullptr) {
        auto listener = std::make_unique<SkipsAreFailures>();
        testing::UnitTest::GetInstance()->listeners().Append(listener.release());
    }
    return RUN_ALL_TESTS();
}

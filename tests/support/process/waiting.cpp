// Waiting for a condition instead of for a time.
#include "tests/support/process/waiting.h"

#include <algorithm>
#include <cstdlib>
#include <thread>

#include "tests/support/files/paths.h"

namespace test_support {

using namespace std::chrono_literals;

std::chrono::milliseconds patience() {
    const bool slow = sanitized() || emulated() || std::getenv("MORVANE_SERVICE_RUNNER") != nullptr;
    return slow ? 60s : 10s;
}

bool waitUntil(const std::function<bool()>& holds, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    std::chrono::milliseconds pause(1);
    while (!holds()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::milliseconds(20));
    }
    return true;
}

testing::AssertionResult eventually(const std::function<bool()>& holds, const std::string& what) {
    if (waitUntil(holds)) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "waited in vain: " << what;
}

testing::AssertionResult eventuallyHolds(const std::function<std::vector<std::string>()>& strings,
                                         const std::string& part) {
    const bool found = waitUntil([&] {
        const std::vector<std::string> all = strings();
        return std::any_of(all.begin(), all.end(), [&](const std::string& string) {
            return string.find(part) != std::string::npos;
        });
    });
    if (found) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure()
           << "waited for " << part << "\nbut got " << testing::PrintToString(strings());
}

}  // namespace test_support

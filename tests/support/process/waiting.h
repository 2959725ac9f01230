// Waiting for a condition instead of for a time.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace test_support {

// How long a test waits for what must happen before it fails: far longer than any machine needs.
std::chrono::milliseconds patience();

// Returns true as soon as `holds` does, false when it has not within `limit`.
bool waitUntil(const std::function<bool()>& holds, std::chrono::milliseconds limit = patience());

// waitUntil for ASSERT_TRUE and EXPECT_TRUE: `what` says what was waited for.
testing::AssertionResult eventually(const std::function<bool()>& holds, const std::string& what);

// Waits until one of the strings holds `part`, and says on failure what they are instead.
testing::AssertionResult eventuallyHolds(const std::function<std::vector<std::string>()>& strings,
                                         const std::string& part);

}  // namespace test_support

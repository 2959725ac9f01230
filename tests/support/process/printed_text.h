// What a piece of code prints.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace test_support {

// Runs `body` and returns what this process wrote to standard output meanwhile.
inline std::string printedBy(const std::function<void()>& body) {
    testing::internal::CaptureStdout();
    body();
    return testing::internal::GetCapturedStdout();
}

}  // namespace test_support

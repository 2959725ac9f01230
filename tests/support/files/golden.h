// The committed replies and descriptions of tests/golden.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"

namespace test_support {

// The text of tests/golden/<file>; fails the test and is empty when it cannot be read.
inline std::string goldenText(const std::string& file) {
    std::string text = readFile(sourcePath("tests/golden/" + file));
    EXPECT_NE(text, "") << "no golden text " << file;
    return text;
}

}  // namespace test_support

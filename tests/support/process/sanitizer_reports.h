// What the sanitizers of a started process have to say, also of a daemon without a standard error.
#pragma once

#include <string>
#include <vector>

#include "tests/support/files/files.h"

namespace test_support {

// Gives a process of a sanitizer build a folder for its reports; finding one there fails the test.
class SanitizerReports {
public:
    // Environment entries for the process, on top of the settings that the tests run with.
    std::vector<std::string> environment() const;

    // Every report written by now, empty when there is none.
    std::string text() const;

private:
    TemporaryDirectory folder_;
};

}  // namespace test_support

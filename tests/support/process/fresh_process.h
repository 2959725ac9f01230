// A test that runs partly in a process of its own which has used neither threads nor the bus.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/support/process/child_process.h"

namespace test_support {

// Whether this is a process that a FreshProcess has started.
bool isFreshProcess();

// In a fresh process: a line for FreshProcess::notes() of the test that started it.
void note(const std::string& line);

// Starts this test executable anew with the current test alone. The test asks isFreshProcess() at
// its beginning to know which part it is to play. What runs in a fresh process is not seen by the
// other part but through its notes, its outputs (next to GoogleTest's own) and its end.
class FreshProcess : public ChildProcess {
public:
    FreshProcess();

    // All lines by now, each with its line end.
    std::string notes() const { return report(); }
    testing::AssertionResult waitForNote(const std::string& line) const;
};

}  // namespace test_support

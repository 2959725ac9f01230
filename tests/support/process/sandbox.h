// Puts a test executable into the project's sandbox before any test runs.
#pragma once

namespace test_support {

// Returns when this process is inside the sandbox. Otherwise replaces it by itself, with the same
// arguments, run through simulator/sandbox/sandbox; ends with a message and status 2 when that
// fails. Call it first in main, before any thread exists.
void enterSandbox(int argc, char** argv);

}  // namespace test_support

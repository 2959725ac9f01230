// Tells whether this process is inside the project's sandbox.
#pragma once

#include <string>

namespace test_support {

// The reason why this process is not inside the sandbox; empty when it is. Inside means: the
// sandbox's mark exists and names the ipc and net namespaces that this process is in.
std::string whyOutsideSandbox();

}  // namespace test_support

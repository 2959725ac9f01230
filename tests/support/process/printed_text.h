// What a piece of code prints.
#pragma once

#include <functional>
#include <string>

namespace test_support {

// Runs `body` and returns what this process wrote to standard output meanwhile. Throws
// std::system_error when the output cannot be diverted.
std::string printedBy(const std::function<void()>& body);

}  // namespace test_support

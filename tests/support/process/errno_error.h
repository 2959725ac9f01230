// The failure of a system call, as an exception.
#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace test_support {

// Throws std::system_error for errno, with `what`, the call or the path, in front of its text.
[[noreturn]] inline void throwErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace test_support

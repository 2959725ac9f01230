// Which system calls are made to fail, and in which ways.
#pragma once

#include <string>
#include <vector>

namespace faults {

// The error numbers with which a call of this number is made to fail, likeliest first; none for a
// call that cannot fail or whose failure cannot be brought about (system_calls.cpp says which).
const std::vector<int>& errorsOf(long number);

// "openat"; the number itself for a call that system_calls.cpp does not list.
std::string systemCallName(long number);

// "EMFILE".
std::string errorName(int error);

}  // namespace faults

// The settings library at its plainest: every call succeeds at once and nothing is recorded. It
// makes no system call and, up to a name of 15 bytes, no allocation, so that neither counts as the
// service's own.
#pragma once

#include <string_view>

namespace plain_vesk {

// What every setting holds. Whoever sets it keeps the text for as long as it may be read.
extern std::string_view deviceName;

}  // namespace plain_vesk

// The service's lock file, as another process sees it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace test_support {

inline constexpr const char* kLockFile = "/var/lock/com.morvane.transfer.pid";

// The process, as this one sees it, that holds a write lock on the whole of the file; nothing when
// there is none, or one on a part of it. Opens and closes the file, so the holder must not ask.
std::optional<pid_t> lockHolder(const std::string& path);

}  // namespace test_support

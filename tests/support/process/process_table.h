// Look-ups in the process table, always by process id, and who holds a lock.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace test_support {

// Whether the process exists and is not a zombie.
bool isRunning(pid_t pid);

// A field of /proc/PID/status, such as "Umask" or "VmSize", without the name and the blanks around
// it; nothing when the process or the field does not exist.
std::optional<std::string> statusField(pid_t pid, const std::string& name);

// Ids of the processes whose parent is `parent`.
std::vector<pid_t> childrenOf(pid_t parent);

// Ids, as seen here, of all processes in the pid namespace that `member` is in.
std::vector<pid_t> processesInNamespaceOf(pid_t member);

// The id that `pid` has in the innermost pid namespace that it is in.
std::optional<pid_t> innermostId(pid_t pid);

// What the open descriptors of a process lead to, in order of their numbers.
std::vector<std::string> openDescriptorsOf(pid_t pid);

// The flags (O_RDONLY, O_CLOEXEC, ...) with which a process has a descriptor open; nothing when it
// is not open.
std::optional<int> openFlagsOf(pid_t pid, int fd);

// Number of threads of a process, 0 when it has gone.
int threadsOf(pid_t pid);

// The service's lock file.
inline constexpr const char* kLockFile = "/var/lock/com.morvane.transfer.pid";

// The process, as this one sees it, that holds a write lock on the whole of the file; nothing when
// there is none, or one on a part of it. Opens and closes the file, so the holder must not ask.
std::optional<pid_t> lockHolder(const std::string& path);

}  // namespace test_support

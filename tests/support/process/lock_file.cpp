// The service's lock file, as another process sees it.
#include "tests/support/process/lock_file.h"

#include <fcntl.h>

#include <limits>

#include "tests/support/process/unique_fd.h"

namespace test_support {

std::optional<pid_t> lockHolder(const std::string& path) {
    const UniqueFd file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    // The last byte that a file may have: in the way of a lock of the whole file only.
    struct flock lastByte {};
    lastByte.l_type = F_WRLCK;
    lastByte.l_whence = SEEK_SET;
    lastByte.l_start = std::numeric_limits<off_t>::max();
    lastByte.l_len = 1;
    if (!file || fcntl(file.get(), F_GETLK, &lastByte) != 0 || lastByte.l_type != F_WRLCK ||
        lastByte.l_start != 0 || lastByte.l_len != 0) {
        return std::nullopt;
    }
    return lastByte.l_pid;
}

}  // namespace test_support

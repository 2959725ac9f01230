// A limit on this process's open descriptors.
#include "tests/support/process/descriptor_limit.h"

#include <unistd.h>

#include <cerrno>
#include <vector>

#include "tests/support/process/errno_error.h"
#include "tests/support/process/unique_fd.h"

namespace test_support {
namespace {

void setLimit(const rlimit& limit) {
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        throwErrno("RLIMIT_NOFILE");
    }
}

// The number above the next `more` descriptors; there may be gaps among those that are open.
rlim_t limitAbove(int more) {
    std::vector<UniqueFd> next;
    rlim_t limit = 0;
    for (int i = 0; i <= more; ++i) {
        next.emplace_back(dup(STDIN_FILENO));
        if (!next.back()) {
            throwErrno("dup");
        }
        limit = static_cast<rlim_t>(next.back().get());
    }
    return limit;
}

}  // namespace

DescriptorLimit::DescriptorLimit(int more) {
    getrlimit(RLIMIT_NOFILE, &before_);
    setLimit({limitAbove(more), before_.rlim_max});
}

DescriptorLimit::~DescriptorLimit() {
    setrlimit(RLIMIT_NOFILE, &before_);
}

rlim_t raiseDescriptorLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setLimit(limit);
    return limit.rlim_cur;
}

}  // namespace test_support

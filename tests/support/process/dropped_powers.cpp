// Root's power to ignore file modes, laid down for a while.
#include "tests/support/process/dropped_powers.h"

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>

#include "tests/support/process/errno_error.h"

namespace test_support {
namespace {

constexpr std::uint32_t kIgnoreModes = (1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH);

using Powers = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

// There is no C library call for this without a further library.
template <typename Change>
bool changePowers(Change change) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    Powers powers{};
    if (syscall(SYS_capget, &header, powers.data()) != 0) {
        return false;
    }
    change(powers[0].effective);
    return syscall(SYS_capset, &header, powers.data()) == 0;
}

}  // namespace

DroppedPowers::DroppedPowers() {
    if (!changePowers([](std::uint32_t& effective) { effective &= ~kIgnoreModes; })) {
        throwErrno("capset");
    }
}

DroppedPowers::~DroppedPowers() {
    changePowers([](std::uint32_t& effective) { effective |= kIgnoreModes; });
}

}  // namespace test_support

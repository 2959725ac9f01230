#include "tests/support/process/restrictions.h"

#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <vector>

#include "tests/support/files/paths.h"
#include "tests/support/process/unique_fd.h"

namespace test_support {
namespace {

constexpr int kRefused = 125;

// Goes on with the next instruction when the word at `offset` is `wanted`, else after `skip` more.
void addTest(std::vector<sock_filter>& program, std::size_t offset, std::uint32_t wanted,
             std::uint8_t skip) {
    program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset)));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, wanted, 0, skip));
}

std::vector<sock_filter> programFor(const DeniedCall& call) {
    std::vector<sock_filter> program;
    addTest(program, offsetof(seccomp_data, nr), static_cast<std::uint32_t>(call.number),
            call.argument ? 3 : 1);
    if (call.argument) {
        // An argument's low word comes first: every processor that this runs on is little-endian.
        addTest(program,
                offsetof(seccomp_data, args) + call.argument->index * sizeof(std::uint64_t),
                call.argument->value, 1);
    }
    const std::uint32_t fail = SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(call.error);
    program.push_back(BPF_STMT(BPF_RET | BPF_K, fail));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    return program;
}

void setLimit(const rlimit& limit) {
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        throwErrno("RLIMIT_NOFILE");
    }
}

// The number above the next `more` descriptors; there may be gaps among those that are open.
rlim_t limitAbove(int more) {
    std::vector<UniqueFd> next;
    for (int i = 0; i <= more; ++i) {
        next.emplace_back(dup(STDIN_FILENO));
        if (!next.back()) {
            throwErrno("dup");
        }
    }
    return static_cast<rlim_t>(next.back().get());
}

// Adds or drops root's power to ignore file modes. The C library has no call for this.
bool ignoreModes(bool ignore) {
    constexpr std::uint32_t kIgnoreModes = (1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH);
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> powers{};
    if (syscall(SYS_capget, &header, powers.data()) != 0) {
        return false;
    }
    std::uint32_t& effective = powers[0].effective;
    effective = ignore ? effective | kIgnoreModes : effective & ~kIgnoreModes;
    return syscall(SYS_capset, &header, powers.data()) == 0;
}

}  // namespace

std::string whyCallsCannotBeDenied() {
    return emulated() ? std::string(kEmulatorCannot) + "filter system calls" : "";
}

void denyCall(const DeniedCall& call) {
    std::vector<sock_filter> program = programFor(call);
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
        perror("cannot deny a system call");
        _exit(kRefused);
    }
}

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

DroppedPowers::DroppedPowers() {
    if (!ignoreModes(false)) {
        throwErrno("capset");
    }
}

DroppedPowers::~DroppedPowers() {
    ignoreModes(true);
}

}  // namespace test_support

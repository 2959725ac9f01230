// Makes system calls fail, by a filter in the kernel.
#include "tests/support/process/denied_call.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <vector>

#include "tests/support/files/paths.h"

namespace test_support {
namespace {

constexpr int kRefused = 125;

sock_filter statement(unsigned code, std::uint32_t operand) {
    return BPF_STMT(static_cast<std::uint16_t>(code), operand);
}

// Goes on with the next instruction when the loaded word is `wanted`, else after `skip` more.
sock_filter unlessEqual(std::uint32_t wanted, std::uint8_t skip) {
    return BPF_JUMP(static_cast<std::uint16_t>(BPF_JMP | BPF_JEQ | BPF_K), wanted, 0, skip);
}

sock_filter loadWord(std::size_t offset) {
    return statement(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset));
}

// An argument's low word comes first: the processors that this runs on are little-endian.
std::size_t offsetOf(const DeniedCall::Argument& argument) {
    return offsetof(seccomp_data, args) + argument.index * sizeof(std::uint64_t);
}

std::vector<sock_filter> programFor(const DeniedCall& call) {
    std::vector<sock_filter> program{loadWord(offsetof(seccomp_data, nr))};
    program.push_back(unlessEqual(static_cast<std::uint32_t>(call.number), call.argument ? 3 : 1));
    if (call.argument) {
        program.push_back(loadWord(offsetOf(*call.argument)));
        program.push_back(unlessEqual(call.argument->value, 1));
    }
    program.push_back(
        statement(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(call.error)));
    program.push_back(statement(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    return program;
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

}  // namespace test_support

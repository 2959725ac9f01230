// watched SOCKET COMMAND [ARG...]: runs COMMAND with every system call of it, and of what it
// starts, held until whoever listens at SOCKET has let it go on or fail.
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/stress/faults/descriptor_message.h"

namespace {

constexpr int kCannotWatch = 125;
constexpr int kCannotRun = 127;
// A message with this flag, which means nothing here, is let through: it carries the listener away.
constexpr std::uint32_t kHandOver = MSG_CONFIRM;

// Neither can these fail nor is anything waiting for them to be counted.
constexpr std::array<long, 4> kUnwatched{SYS_futex, SYS_exit, SYS_exit_group, SYS_rt_sigreturn};

[[noreturn]] void giveUp(const char* what) {
    perror(what);
    _exit(kCannotWatch);
}

sock_filter statement(unsigned code, std::size_t operand) {
    return BPF_STMT(static_cast<std::uint16_t>(code), static_cast<std::uint32_t>(operand));
}

// Lets the call through when the loaded word is `wanted`: the next instruction does that.
sock_filter skipUnless(std::size_t wanted) {
    return BPF_JUMP(static_cast<std::uint16_t>(BPF_JMP | BPF_JEQ | BPF_K),
                    static_cast<std::uint32_t>(wanted), 0, 1);
}

// Returns the descriptor at which the calls are waited for.
int installFilter() {
    const sock_filter load = statement(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr));
    const sock_filter allow = statement(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    std::array<sock_filter, 16> program{};
    std::size_t length = 0;
    program.at(length++) = load;
    for (const long number : kUnwatched) {
        program.at(length++) = skipUnless(static_cast<std::size_t>(number));
        program.at(length++) = allow;
    }
    program.at(length++) = BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_sendmsg, 0, 3);
    // The low word comes first: the processors that this runs on are little-endian.
    program.at(length++) = statement(BPF_LD | BPF_W | BPF_ABS,
                                     offsetof(seccomp_data, args) + 2 * sizeof(std::uint64_t));
    program.at(length++) = skipUnless(kHandOver);
    program.at(length++) = allow;
    program.at(length++) = statement(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF);
    const sock_fprog filter{static_cast<unsigned short>(length), program.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        giveUp("watched: no new powers");
    }
    return static_cast<int>(
        syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &filter));
}

int connectTo(const char* path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        giveUp(path);
    }
    return fd;
}

void handOver(int connection, int listener) {
    faults::DescriptorMessage message;
    cmsghdr* const header = CMSG_FIRSTHDR(&message.header);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(header), &listener, sizeof listener);
    if (sendmsg(connection, &message.header, static_cast<int>(kHandOver)) != 1) {
        giveUp("watched: cannot hand over");
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("usage: watched SOCKET COMMAND [ARG...]\n", stderr);
        return kCannotWatch;
    }
    const int connection = connectTo(argv[1]);
    const int listener = installFilter();
    if (listener < 0) {
        giveUp("watched: no filter");
    }
    handOver(connection, listener);
    execv(argv[2], argv + 2);
    return kCannotRun;
}

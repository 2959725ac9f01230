// Which system calls are made to fail, and in which ways.
#include "tests/stress/faults/system_calls.h"

#include <sys/syscall.h>

#include <cerrno>
#include <cstring>
#include <map>

namespace faults {
namespace {

struct SystemCall {
    const char* name;
    std::vector<int> errors;
};

using Table = std::map<long, SystemCall>;

const std::vector<int> kOpening{EMFILE, EACCES, ENOENT, ENOMEM, EIO, ENFILE, ENOSPC, EROFS, EINTR};
const std::vector<int> kLookingAt{ENOENT, EACCES, ENOMEM, EIO, ELOOP};
const std::vector<int> kMaking{ENOSPC, EROFS, EACCES, EIO, ENOMEM, EMLINK, EDQUOT};
const std::vector<int> kRemoving{EROFS, EACCES, EBUSY, EIO, EPERM, ENOMEM};
const std::vector<int> kDescriptors{EMFILE, ENFILE, ENOMEM};
const std::vector<int> kSending{EPIPE, ENOBUFS, ENOMEM, EAGAIN, EINTR, ECONNRESET, EIO};
const std::vector<int> kReceiving{ECONNRESET, ENOMEM, EAGAIN, EINTR, EIO};
const std::vector<int> kSockets{ENOBUFS, ENOMEM};
const std::vector<int> kStarting{EAGAIN, ENOMEM};
const std::vector<int> kWaiting{EINTR, ENOMEM};

const Table& failing() {
    static const auto* const kTable = new Table{
        {SYS_access, {"access", {ENOENT, EACCES, EIO, ENOMEM, EROFS}}},
        {SYS_chdir, {"chdir", {EACCES, ENOENT, EIO, ENOMEM}}},
        {SYS_clock_nanosleep, {"clock_nanosleep", {EINTR}}},
        {SYS_clone, {"clone", kStarting}},
        {SYS_clone3, {"clone3", kStarting}},
        {SYS_connect, {"connect", {ECONNREFUSED, EACCES, ENOENT, EAGAIN, EINTR, ETIMEDOUT}}},
        {SYS_dup2, {"dup2", {EBUSY, EINTR, EMFILE}}},
        {SYS_dup3, {"dup3", {EBUSY, EINTR, EMFILE}}},
        {SYS_eventfd2, {"eventfd2", kDescriptors}},
        {SYS_execve, {"execve", {ENOENT, EACCES, ENOMEM, E2BIG, EIO, ETXTBSY}}},
        {SYS_faccessat, {"faccessat", {ENOENT, EACCES, EIO, ENOMEM, EROFS}}},
        {SYS_fcntl, {"fcntl", {ENOLCK, EACCES, EAGAIN, EINTR, EMFILE, EIO}}},
        {SYS_fork, {"fork", kStarting}},
        {SYS_fstat, {"fstat", {EIO, ENOMEM}}},
        {SYS_fstatfs, {"fstatfs", {EIO, ENOMEM}}},
        {SYS_ftruncate, {"ftruncate", {EIO, EROFS, EINTR, EPERM}}},
        {SYS_getdents64, {"getdents64", {EIO, ENOENT, ENOMEM}}},
        {SYS_getpeername, {"getpeername", {ENOTCONN, ENOBUFS}}},
        {SYS_getrandom, {"getrandom", {EAGAIN, EINTR, ENOSYS}}},
        {SYS_getsockname, {"getsockname", kSockets}},
        {SYS_getsockopt, {"getsockopt", kSockets}},
        {SYS_inotify_add_watch, {"inotify_add_watch", {ENOSPC, ENOMEM, EACCES}}},
        {SYS_inotify_init1, {"inotify_init1", kDescriptors}},
        {SYS_ioctl, {"ioctl", {EIO, ENOTTY}}},
        {SYS_lseek, {"lseek", {EIO, ESPIPE}}},
        {SYS_mkdir, {"mkdir", kMaking}},
        {SYS_mmap, {"mmap", {ENOMEM, EAGAIN}}},
        {SYS_mprotect, {"mprotect", {ENOMEM, EACCES}}},
        {SYS_newfstatat, {"newfstatat", kLookingAt}},
        {SYS_open, {"open", kOpening}},
        {SYS_openat, {"openat", kOpening}},
        {SYS_pipe2, {"pipe2", kDescriptors}},
        {SYS_poll, {"poll", kWaiting}},
        {SYS_ppoll, {"ppoll", kWaiting}},
        {SYS_pread64, {"pread64", {EIO, EINTR}}},
        {SYS_read, {"read", {EIO, EINTR, EAGAIN}}},
        {SYS_readlink, {"readlink", kLookingAt}},
        {SYS_recvfrom, {"recvfrom", kReceiving}},
        {SYS_recvmsg, {"recvmsg", kReceiving}},
        {SYS_rmdir, {"rmdir", kRemoving}},
        {SYS_sched_getattr, {"sched_getattr", {EPERM, ENOSYS}}},
        {SYS_sched_setattr, {"sched_setattr", {EPERM, ENOSYS}}},
        {SYS_semctl, {"semctl", {EIDRM, EACCES, EPERM}}},
        {SYS_semget, {"semget", {ENOSPC, EACCES, ENOMEM}}},
        {SYS_semop, {"semop", {EIDRM, EINTR, ENOMEM, ENOSPC}}},
        {SYS_semtimedop, {"semtimedop", {EIDRM, EINTR, ENOMEM, ENOSPC, EAGAIN}}},
        {SYS_sendmsg, {"sendmsg", kSending}},
        {SYS_sendto, {"sendto", kSending}},
        {SYS_setsid, {"setsid", {EPERM}}},
        {SYS_setsockopt, {"setsockopt", kSockets}},
        {SYS_socket, {"socket", {EMFILE, ENFILE, ENOBUFS, ENOMEM, EACCES}}},
        {SYS_stat, {"stat", kLookingAt}},
        {SYS_statfs, {"statfs", {EIO, ENOENT, EACCES, ENOMEM, EINTR}}},
        {SYS_statx, {"statx", kLookingAt}},
        {SYS_unlink, {"unlink", kRemoving}},
        {SYS_vfork, {"vfork", kStarting}},
        {SYS_wait4, {"wait4", {ECHILD, EINTR}}},
        {SYS_write, {"write", {EIO, ENOSPC, EINTR, EAGAIN, EPIPE}}},
    };
    return *kTable;
}

const Table& neverFailing() {
    static const auto* const kTable = new Table{
        // Whatever it answers, the descriptor is closed; a call held back would leave it open.
        {SYS_close, {"close", {}}},
        // The C library takes its answer for an address.
        {SYS_brk, {"brk", {}}},
        // Give back, advise or set up what is there.
        {SYS_arch_prctl, {"arch_prctl", {}}},
        {SYS_madvise, {"madvise", {}}},
        {SYS_munmap, {"munmap", {}}},
        {SYS_prctl, {"prctl", {}}},
        {SYS_prlimit64, {"prlimit64", {}}},
        {SYS_rseq, {"rseq", {}}},
        {SYS_rt_sigaction, {"rt_sigaction", {}}},
        {SYS_rt_sigprocmask, {"rt_sigprocmask", {}}},
        {SYS_sched_getaffinity, {"sched_getaffinity", {}}},
        {SYS_sched_yield, {"sched_yield", {}}},
        {SYS_set_robust_list, {"set_robust_list", {}}},
        {SYS_set_tid_address, {"set_tid_address", {}}},
        {SYS_umask, {"umask", {}}},
        // Say who one is.
        {SYS_getegid, {"getegid", {}}},
        {SYS_geteuid, {"geteuid", {}}},
        {SYS_getgid, {"getgid", {}}},
        {SYS_getpid, {"getpid", {}}},
        {SYS_getppid, {"getppid", {}}},
        {SYS_gettid, {"gettid", {}}},
        {SYS_getuid, {"getuid", {}}},
        {SYS_uname, {"uname", {}}},
        // Bring about another's end or one's own, after a failure that has been counted.
        {SYS_kill, {"kill", {}}},
        {SYS_tgkill, {"tgkill", {}}},
    };
    return *kTable;
}

const SystemCall* find(long number) {
    for (const Table* table : {&failing(), &neverFailing()}) {
        const auto found = table->find(number);
        if (found != table->end()) {
            return &found->second;
        }
    }
    return nullptr;
}

}  // namespace

const std::vector<int>& errorsOf(long number) {
    static const std::vector<int> kUnlisted{ENOMEM, EPERM};
    const SystemCall* const call = find(number);
    return call != nullptr ? call->errors : kUnlisted;
}

std::string systemCallName(long number) {
    const SystemCall* const call = find(number);
    return call != nullptr ? call->name : "call-" + std::to_string(number);
}

std::string errorName(int error) {
    const char* const name = strerrorname_np(error);
    return name != nullptr ? name : std::to_string(error);
}

}  // namespace faults

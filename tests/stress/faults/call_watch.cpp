// Holds every system call of a service and what it starts, and lets one fail.
#include "tests/stress/faults/call_watch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "tests/stress/faults/descriptor_message.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/errno_error.h"
#include "tests/support/process/process_table.h"

namespace faults {
namespace {

using test_support::UniqueFd;

constexpr const char* kService = "com-morvane-transfer-service";
constexpr std::size_t kKernelName = 15;  // bytes of a thread's name that the kernel keeps

UniqueFd listenAt(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd || bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd.get(), 1) != 0) {
        test_support::throwErrno("a socket to be handed the calls at");
    }
    return fd;
}

// The descriptor that comes with one message.
UniqueFd receiveDescriptor(int connection) {
    DescriptorMessage message;
    if (recvmsg(connection, &message.header, MSG_CMSG_CLOEXEC) != 1) {
        return UniqueFd();
    }
    const cmsghdr* const header = CMSG_FIRSTHDR(&message.header);
    int fd = -1;
    if (header != nullptr && header->cmsg_type == SCM_RIGHTS) {
        std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
    }
    return UniqueFd(fd);
}

// Waits until `fd` can be read; false when `stop` can first, or nothing will ever come.
bool readableBefore(int fd, int stop) {
    std::array<pollfd, 2> both{{{fd, POLLIN, 0}, {stop, POLLIN, 0}}};
    while (poll(both.data(), both.size(), -1) < 0 && errno == EINTR) {
    }
    return both[1].revents == 0 && (both[0].revents & POLLIN) != 0;
}

bool changesCaller(int number) {
    return number == SYS_execve || number == SYS_prctl;
}

bool isOnEventDescriptor(const seccomp_notif& request) {
    if (request.data.nr != SYS_read && request.data.nr != SYS_write) {
        return false;
    }
    std::error_code error;
    return std::filesystem::read_symlink("/proc/" + std::to_string(request.pid) + "/fd/" +
                                             std::to_string(request.data.args[0]),
                                         error) == "anon_inode:[eventfd]";
}

}  // namespace

CallWatch::CallWatch()
    : socket_(listenAt(folder_.path("socket"))),
      stop_(eventfd(0, EFD_CLOEXEC)),
      thread_([this] { serve(); }) {}

CallWatch::~CallWatch() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(stop_.get(), &one, sizeof one);
    thread_.join();
}

std::vector<std::string> CallWatch::prefix() const {
    return {test_support::buildPath("tests/stress/faults/watched"), folder_.path("socket")};
}

void CallWatch::arm(const std::optional<WatchedCall>& call, int error) {
    const std::lock_guard lock(mutex_);
    armed_ = true;
    happened_ = false;
    target_ = call;
    error_ = error;
    counts_.clear();
    calls_.clear();
}

bool CallWatch::disarm() {
    const std::lock_guard lock(mutex_);
    armed_ = false;
    return happened_;
}

std::vector<WatchedCall> CallWatch::calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

void CallWatch::serve() {
    takeListener();
    while (listener_ && readableBefore(listener_.get(), stop_.get())) {
        answerOne();
    }
    listener_.reset();  // whoever is left gets ENOSYS for everything, and is about to be killed
}

void CallWatch::takeListener() {
    if (readableBefore(socket_.get(), stop_.get())) {
        // cppcheck-suppress nullPointer ; nobody asks who it is
        const UniqueFd connection(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (connection && readableBefore(connection.get(), stop_.get())) {
            listener_ = receiveDescriptor(connection.get());
        }
    }
}

void CallWatch::answerOne() {
    seccomp_notif request{};
    if (ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_RECV, &request) != 0) {
        return;  // its caller has been killed meanwhile
    }
    std::optional<seccomp_notif_resp> response = decide(request);
    if (response) {
        ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_SEND, &*response);
    }
}

std::optional<seccomp_notif_resp> CallWatch::decide(const seccomp_notif& request) {
    const auto thread = static_cast<pid_t>(request.pid);
    const int number = request.data.nr;
    const Caller caller = identify(thread);
    if (changesCaller(number)) {
        callers_.erase(thread);
    }
    seccomp_notif_resp response{request.id, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE};
    if (caller.name.empty()) {
        return response;
    }
    const std::lock_guard lock(mutex_);
    const std::string name = loaded_ ? caller.name : kLoader;
    loaded_ = loaded_ || number == SYS_munmap;  // the last that the loader does
    if (armed_) {
        const WatchedCall call{name, number, ++counts_[{name, number}],
                               isOnEventDescriptor(request)};
        calls_.push_back(call);
        if (isToFail(call)) {
            happened_ = true;
            if (error_ == kKill) {
                kill(caller.process, SIGKILL);
                return std::nullopt;
            }
            return seccomp_notif_resp{request.id, 0, -error_, 0};
        }
    }
    if (number == SYS_clock_nanosleep && caller.process == thread) {
        response.flags = 0;
    }
    return response;
}

bool CallWatch::isToFail(const WatchedCall& call) const {
    return target_ && !happened_ && call.caller == target_->caller &&
           call.number == target_->number && call.nth == target_->nth;
}

const CallWatch::Caller& CallWatch::identify(pid_t thread) {
    const auto known = callers_.find(thread);
    return known != callers_.end() ? known->second : callers_[thread] = lookUp(thread);
}

CallWatch::Caller CallWatch::lookUp(pid_t thread) {
    std::error_code error;
    const std::string program =
        std::filesystem::read_symlink("/proc/" + std::to_string(thread) + "/exe", error);
    if (program != test_support::buildPath(kService)) {
        return {};
    }
    const pid_t process =
        std::stoi(test_support::statusField(thread, "Tgid").value_or(std::to_string(thread)));
    auto place = std::find(processes_.begin(), processes_.end(), process);
    if (place == processes_.end()) {
        place = processes_.insert(place, process);
    }
    const auto index = place - processes_.begin() + 1;
    std::string name = index > 1 ? "process " + std::to_string(index) + " " : "";
    const std::string own = test_support::statusField(thread, "Name").value_or("");
    const bool unnamed = own == std::string(kService).substr(0, kKernelName);
    name += thread == process ? "main" : unnamed ? kJob : own;
    return {process, name};
}

}  // namespace faults

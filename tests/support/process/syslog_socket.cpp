// Takes the place of the system log and collects its messages.
#include "tests/support/process/syslog_socket.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <utility>

#include "tests/support/process/unique_fd.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

constexpr const char* kLogPath = "/dev/log";
constexpr const char* kOtherLogPath = "/dev/log.before-test";
constexpr std::size_t kTimeLength = 16;  // "Nov 21 03:30:00 "
constexpr mode_t kEveryone = 0666;

UniqueFd bindLog() {
    UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, kLogPath, sizeof address.sun_path - 1);
    if (!socket || bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        chmod(kLogPath, kEveryone) != 0) {
        throwErrno(kLogPath);
    }
    return socket;
}

// "<14>Nov 21 03:30:00 program[7]: text"
LogMessage parseMessage(const std::string& datagram) {
    LogMessage message;
    const std::size_t headEnd = datagram.find('>');
    if (datagram.empty() || datagram[0] != '<' || headEnd == std::string::npos) {
        message.text = datagram;
        return message;
    }
    const auto code = static_cast<int>(std::strtol(datagram.c_str() + 1, nullptr, 10));
    message.priority = LOG_PRI(code);
    message.facility = code & LOG_FACMASK;
    const std::size_t tag = std::min(headEnd + 1 + kTimeLength, datagram.size());
    const std::size_t tagEnd = datagram.find(": ", tag);
    message.text = datagram.substr(tagEnd == std::string::npos ? tag : tagEnd + 2);
    message.program = datagram.substr(tag, datagram.find_first_of("[:", tag) - tag);
    return message;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const LogMessage& message) {
    return out << "<" << message.priority << "> " << testing::PrintToString(message.text);
}

SyslogSocket::SyslogSocket() : stop_(eventfd(0, EFD_CLOEXEC)) {
    closelog();  // this process may still hold the socket of before
    if (std::rename(kLogPath, kOtherLogPath) != 0 && errno != ENOENT) {
        throwErrno(kLogPath);
    }
    socket_ = bindLog();
    std::promise<void> started;
    const std::future<void> start = started.get_future();
    thread_ = std::thread([this, started = std::move(started)]() mutable {
        started.set_value();
        run();
    });
    // A test may fork next, and its child must not inherit locks that the start of a thread holds.
    start.wait();
}

SyslogSocket::~SyslogSocket() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(stop_.get(), &one, sizeof one);
    thread_.join();
    unlink(kLogPath);
    std::rename(kOtherLogPath, kLogPath);
    closelog();
}

std::vector<LogMessage> SyslogSocket::messages() const {
    const std::lock_guard lock(mutex_);
    return messages_;
}

testing::AssertionResult SyslogSocket::waitFor(const std::string& text) const {
    std::unique_lock lock(mutex_);
    const bool found = changed_.wait_for(lock, patience(), [&] {
        return std::any_of(messages_.begin(), messages_.end(), [&](const LogMessage& message) {
            return message.text.find(text) != std::string::npos;
        });
    });
    if (found) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "no log message holds: " << text
                                       << "\nbut there are: " << testing::PrintToString(messages_);
}

void SyslogSocket::run() {
    std::array<pollfd, 2> polled{pollfd{socket_.get(), POLLIN, 0}, pollfd{stop_.get(), POLLIN, 0}};
    std::array<char, 65536> buffer{};
    for (;;) {
        poll(polled.data(), polled.size(), -1);
        const ssize_t length = recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (length >= 0) {
            const std::lock_guard lock(mutex_);
            messages_.push_back(parseMessage({buffer.data(), static_cast<std::size_t>(length)}));
            changed_.notify_all();
        } else if (polled[1].revents != 0) {
            return;
        }
    }
}

}  // namespace test_support

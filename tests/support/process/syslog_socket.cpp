#include "tests/support/process/syslog_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <map>

#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

constexpr const char* kLogPath = "/dev/log";
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

std::string printedForm(const std::string& datagram) {
    static const std::map<std::string, std::string> kTags{
        {"<11>", "[ERR] "}, {"<14>", "[NFO] "}, {"<15>", "[DEB] "}};
    const auto tag = kTags.find(datagram.substr(0, datagram.find('>') + 1));
    const std::size_t programEnd = datagram.find(": ");
    return tag == kTags.end() || programEnd == std::string::npos
               ? datagram
               : tag->second + datagram.substr(programEnd + 2);
}

}  // namespace

SyslogSocket::SyslogSocket() : before_(kLogPath), socket_(bindLog()) {
    closelog();  // this process may still hold the socket of before
    thread_ = std::thread([this] { run(); });
    // A test may fork next, and its child must not inherit locks that the start of a thread holds.
    waitUntil([this] { return started_.load(); });
}

SyslogSocket::~SyslogSocket() {
    shutdown(socket_.get(), SHUT_RDWR);
    thread_.join();
    closelog();
}

std::vector<std::string> SyslogSocket::datagrams() const {
    const std::lock_guard lock(mutex_);
    return datagrams_;
}

std::vector<std::string> SyslogSocket::messages() const {
    const std::vector<std::string> sent = datagrams();
    std::vector<std::string> messages;
    std::transform(sent.begin(), sent.end(), std::back_inserter(messages), printedForm);
    return messages;
}

testing::AssertionResult SyslogSocket::waitFor(const std::string& text) const {
    return eventuallyHolds([this] { return messages(); }, text);
}

void SyslogSocket::run() {
    started_ = true;
    std::array<char, 65536> buffer{};
    for (;;) {
        const ssize_t length = recv(socket_.get(), buffer.data(), buffer.size(), 0);
        if (length <= 0) {
            return;  // shut down
        }
        const std::lock_guard lock(mutex_);
        datagrams_.emplace_back(buffer.data(), static_cast<std::size_t>(length));
    }
}

}  // namespace test_support

// Takes the place of the system log and collects its messages.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/process/unique_fd.h"

namespace test_support {

struct LogMessage {
    int priority = 0;  // 0 to 7, LOG_EMERG to LOG_DEBUG
    int facility = 0;  // LOG_USER and so on, as in <syslog.h>
    std::string text;  // without time and program name, otherwise byte for byte
    std::string program{};  // the sender's name for itself

    bool operator==(const LogMessage& other) const {
        return priority == other.priority && text == other.text;
    }
};
std::ostream& operator<<(std::ostream& out, const LogMessage& message);

// Owns /dev/log for as long as it lives; then the socket that was there before is back. Create it
// before what it shall listen to. Throws std::system_error when /dev/log cannot be taken.
class SyslogSocket {
public:
    SyslogSocket();
    ~SyslogSocket();
    SyslogSocket(const SyslogSocket&) = delete;
    SyslogSocket& operator=(const SyslogSocket&) = delete;

    // All messages by now, of every process, in order of arrival.
    std::vector<LogMessage> messages() const;

    // Waits until a message holds `text`; says on failure what has come instead.
    testing::AssertionResult waitFor(const std::string& text) const;

private:
    void run();

    UniqueFd socket_;
    UniqueFd stop_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<LogMessage> messages_;
    std::thread thread_;
};

}  // namespace test_support

// Takes the place of the system log and collects its messages.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/files/files.h"
#include "tests/support/process/unique_fd.h"

namespace test_support {

// Owns /dev/log for as long as it lives; then the socket that was there before is back. Create it
// before what it shall listen to. Throws std::system_error when /dev/log cannot be taken.
class SyslogSocket {
public:
    SyslogSocket();
    ~SyslogSocket();
    SyslogSocket(const SyslogSocket&) = delete;
    SyslogSocket& operator=(const SyslogSocket&) = delete;

    // All by now, of every process, in order of arrival: "<14>Nov 21 03:30:00 program: message".
    std::vector<std::string> datagrams() const;

    // The same as the service prints its messages: "[NFO] message". What has another facility or
    // priority than the service's stays as it was sent.
    std::vector<std::string> messages() const;

    // Waits until a message holds `text`; says on failure what has come instead.
    testing::AssertionResult waitFor(const std::string& text) const;

private:
    void run();

    const ReplacedFile before_;
    UniqueFd socket_;
    mutable std::mutex mutex_;
    std::vector<std::string> datagrams_;
    std::atomic<bool> started_{false};
    std::thread thread_;
};

}  // namespace test_support

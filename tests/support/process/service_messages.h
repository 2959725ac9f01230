// The service's messages, as it sends them to the system log and as it prints them.
#pragma once

#include <string>
#include <vector>

#include "tests/support/process/syslog_socket.h"

namespace test_support {

LogMessage errorMessage(const std::string& text);
LogMessage infoMessage(const std::string& text);
LogMessage debugMessage(const std::string& text);

// What every start prints and logs, up to the main loop.
std::vector<LogMessage> startUpMessages();

// What a launcher says first, before the id of a new semaphore set, and last, when it succeeds.
LogMessage launcherBegins();
LogMessage launcherEnds();

// What the service says of an applet that has changed.
LogMessage appletReceived(int id);

// The messages on standard output: each with its tag and a line end.
std::string asPrinted(const std::vector<LogMessage>& messages);

// One list after the other.
std::vector<LogMessage> joined(std::vector<LogMessage> first,
                               const std::vector<LogMessage>& second);

}  // namespace test_support

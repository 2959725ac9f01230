// The service's messages, as it sends them to the system log and as it prints them.
#include "tests/support/process/service_messages.h"

#include <syslog.h>

namespace test_support {
namespace {

std::string tagOf(int priority) {
    switch (priority) {
        case LOG_ERR:
            return "[ERR] ";
        case LOG_INFO:
            return "[NFO] ";
        case LOG_DEBUG:
            return "[DEB] ";
        default:
            return "[no tag] ";
    }
}

}  // namespace

LogMessage errorMessage(const std::string& text) {
    return {LOG_ERR, LOG_USER, text};
}

LogMessage infoMessage(const std::string& text) {
    return {LOG_INFO, LOG_USER, text};
}

LogMessage debugMessage(const std::string& text) {
    return {LOG_DEBUG, LOG_USER, text};
}

std::vector<LogMessage> startUpMessages() {
    return {infoMessage("Starting DBUS Service com.morvane.transfer"),
            debugMessage("Register default Interface com.morvane.dbus under Path: /ctrl"),
            infoMessage("Register Interface: com.morvane.transfer under Path: /sacIntf"),
            infoMessage("Register as DBUS Service com.morvane.transfer"),
            debugMessage("Init Main loop")};
}

LogMessage launcherBegins() {
    return infoMessage("DBus service will be started as daemon");
}

LogMessage launcherEnds() {
    return infoMessage("Exiting parent process");
}

LogMessage appletReceived(int id) {
    return infoMessage("appletHasChanged() Signal received with ID " + std::to_string(id));
}

std::string asPrinted(const std::vector<LogMessage>& messages) {
    std::string text;
    for (const LogMessage& message : messages) {
        text += tagOf(message.priority) + message.text + "\n";
    }
    return text;
}

std::vector<LogMessage> joined(std::vector<LogMessage> first,
                               const std::vector<LogMessage>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

}  // namespace test_support

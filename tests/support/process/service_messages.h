// The service's messages as it prints them, without the line end. SyslogSocket gives them so.
#pragma once

#include <string>
#include <vector>

namespace test_support {

// What a launcher says first, before the id of a new semaphore set, and last, when it succeeds.
inline const std::string kLauncherBegins = "[NFO] DBus service will be started as daemon";
inline const std::string kLauncherEnds = "[NFO] Exiting parent process";

// What it prints when it has made the set, with the line end.
inline std::string setCreatedLine(int id) {
    return "Semaphor created ID: " + std::to_string(id) + "\n";
}

// What every start prints and logs up to the main loop, then `more`.
inline std::vector<std::string> startUpMessages(const std::vector<std::string>& more = {}) {
    std::vector<std::string> messages{
        "[NFO] Starting DBUS Service com.morvane.transfer",
        "[DEB] Register default Interface com.morvane.dbus under Path: /ctrl",
        "[NFO] Register Interface: com.morvane.transfer under Path: /sacIntf",
        "[NFO] Register as DBUS Service com.morvane.transfer", "[DEB] Init Main loop"};
    messages.insert(messages.end(), more.begin(), more.end());
    return messages;
}

// What the service says of an applet that has changed.
inline std::string appletReceived(int id) {
    return "[NFO] appletHasChanged() Signal received with ID " + std::to_string(id);
}

// The messages on standard output.
inline std::string asPrinted(const std::vector<std::string>& messages) {
    std::string output;
    for (const std::string& message : messages) {
        output += message + "\n";
    }
    return output;
}

}  // namespace test_support

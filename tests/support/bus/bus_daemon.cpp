#include "tests/support/bus/bus_daemon.h"

#include <sys/types.h>
#include <unistd.h>

#include <csignal>
#include <sstream>
#include <stdexcept>

#include "tests/support/bus/system_bus.h"
#include "tests/support/files/files.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

constexpr const char* kPidFile = "/run/dbus/pid";
constexpr const char* kSocket = "/run/dbus/system_bus_socket";
constexpr const char* kPolicyFile = "/etc/dbus-1/system.d/of-a-test.conf";

// The words of a process's command line.
std::vector<std::string> commandOf(pid_t pid) {
    std::istringstream text(readFile("/proc/" + std::to_string(pid) + "/cmdline"));
    std::vector<std::string> words;
    for (std::string word; std::getline(text, word, '\0');) {
        words.push_back(word);
    }
    return words;
}

bool answers() {
    return SystemBus::hasOwner("org.freedesktop.DBus");
}

}  // namespace

BusOutage::BusOutage() {
    const std::string text = readFile(kPidFile);
    const pid_t daemon = text.empty() ? 0 : std::stoi(text);
    command_ = daemon > 1 ? commandOf(daemon) : std::vector<std::string>();
    if (command_.empty() || kill(daemon, SIGKILL) != 0) {
        throw std::runtime_error("the sandbox has no message bus to end");
    }
    waitUntil([&] { return !isRunning(daemon); });
    unlink(kPidFile);
    unlink(kSocket);
}

BusOutage::~BusOutage() {
    start();
}

void BusOutage::start() {
    if (answers()) {
        return;
    }
    std::vector<char*> arguments;
    for (std::string& word : command_) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    // No child of the test, so it goes on when the test ends: the bus belongs to the sandbox.
    const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL |
                                                G_SPAWN_STDERR_TO_DEV_NULL);
    g_spawn_async(nullptr, arguments.data(), nullptr, flags, nullptr, nullptr, nullptr, nullptr);
    waitUntil(answers);
}

void reloadBus() {
    const SystemBus bus;
    const Reply reply = bus.call("/org/freedesktop/DBus", "org.freedesktop.DBus", "ReloadConfig",
                                 nullptr, "org.freedesktop.DBus");
    if (!reply.error.empty()) {
        throw std::runtime_error("the bus does not reload: " + reply.message);
    }
}

BusPolicy::BusPolicy(const std::string& rules) {
    writeFile(kPolicyFile, "<busconfig>" + rules + "</busconfig>\n");
    reloadBus();
}

BusPolicy::~BusPolicy() {
    unlink(kPolicyFile);
    reloadBus();
}

}  // namespace test_support

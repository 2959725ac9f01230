#include "tests/support/bus/bus_daemon.h"

#include <sys/types.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

#include "tests/support/bus/system_bus.h"
#include "tests/support/process/child_process.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

constexpr const char* kPidFile = "/run/dbus/pid";
constexpr const char* kSocket = "/run/dbus/system_bus_socket";
constexpr const char* kPolicyFile = "/etc/dbus-1/system.d/of-a-test.conf";

}  // namespace

BusOutage::BusOutage() {
    const std::string text = readFile(kPidFile);
    const pid_t daemon = text.empty() ? 0 : std::stoi(text);
    writeFile(command(), readFile("/proc/" + std::to_string(daemon) + "/cmdline"));
    if (daemon <= 1 || kill(daemon, SIGKILL) != 0) {
        throw std::runtime_error("the sandbox has no message bus to end");
    }
    waitUntil([&] { return !isRunning(daemon); });
    unlink(kPidFile);
    unlink(kSocket);
}

BusOutage::~BusOutage() {
    // No child of the test, so it goes on when the test ends: the bus belongs to the sandbox.
    runCommand({"xargs", "--null", "--arg-file", command(), "setsid", "--fork"});
    waitUntil([] { return SystemBus::hasOwner("org.freedesktop.DBus"); });
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

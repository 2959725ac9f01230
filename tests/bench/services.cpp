// The running services that the benchmarks call, and the sticks with their files.
#include "tests/bench/services.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "tests/bench/bench.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/waiting.h"

namespace bench {
namespace {

GVariant* propertyArguments(const Target& target) {
    return g_variant_new("(ss)", target.interface, "organizationName");
}

VariantPtr tryCall(const SystemBus& bus, const Target& target, const char* interface,
                   const char* method, GVariant* arguments, GError** error) {
    return VariantPtr(g_dbus_connection_call_sync(
        bus.connection(), target.name, target.path, interface, method, arguments, nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, G_MAXINT, nullptr, error));
}

VariantPtr callOrThrow(const SystemBus& bus, const Target& target, const char* interface,
                       const char* method, GVariant* arguments) {
    g_autoptr(GError) error = nullptr;
    VariantPtr reply = tryCall(bus, target, interface, method, arguments, &error);
    if (reply == nullptr) {
        throw std::runtime_error(std::string(method) + ": " + error->message);
    }
    return reply;
}

constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

}  // namespace

VariantPtr call(const SystemBus& bus, const Target& target, const char* method,
                GVariant* arguments) {
    return callOrThrow(bus, target, target.interface, method, arguments);
}

VariantPtr readProperty(const SystemBus& bus, const Target& target) {
    return callOrThrow(bus, target, kProperties, "Get", propertyArguments(target));
}

bool answers(const SystemBus& bus, const Target& target) {
    g_autoptr(GError) error = nullptr;
    return tryCall(bus, target, kProperties, "Get", propertyArguments(target), &error) != nullptr;
}

void prepareBus() {
    std::filesystem::copy(test_support::sourcePath("bench/com.morvane.bench.conf"),
                          "/etc/dbus-1/system.d");
    const SystemBus bus;
    bus.call("/org/freedesktop/DBus", "org.freedesktop.DBus", "ReloadConfig", nullptr,
             "org.freedesktop.DBus");
    const std::optional<pid_t> daemon = SystemBus::processOf("org.freedesktop.DBus");
    if (!daemon) {
        throw std::runtime_error("the message bus does not say who it is");
    }
    pin(*daemon, clientCore());
}

long memoryOf(pid_t process, const std::string& file, const std::string& field) {
    std::ifstream lines("/proc/" + std::to_string(process) + "/" + file);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, field.size() + 1, field + ":") == 0) {
            return std::strtol(line.c_str() + field.size() + 1, nullptr, 10);
        }
    }
    throw std::runtime_error("no " + field + " in " + file + ": the service has gone");
}

Daemon::Daemon() : process_({{"-d"}, {}, {}, {}, onServiceCore({})}) {
    if (!process_.waitUntilAnswers()) {
        throw std::runtime_error("the service does not answer");
    }
}

pid_t Daemon::id() const {
    const std::optional<pid_t> process = process_.processId();
    if (!process) {
        throw std::runtime_error("the service has gone");
    }
    return *process;
}

FloorService::FloorService(const std::string& program)
    : process_(onServiceCore(
          test_support::runnable(test_support::buildPath("tests/bench/" + program)))) {
    const SystemBus bus;
    if (!test_support::waitUntil([&bus] { return answers(bus, kFloor); })) {
        throw std::runtime_error("the floor service does not answer");
    }
}

std::string fillDirectory(const test_support::Stick& stick, int files) {
    std::string directory = "files of " + std::to_string(files);
    for (int number = 0; number < files; ++number) {
        stick.addFile(directory + "/DEVICE-" + std::to_string(number) + ".psb", "");
    }
    return directory;
}

GVariant* indexArguments(const std::string& directory) {
    return g_variant_new("(ss)", "USB_X60.1", directory.c_str());
}

}  // namespace bench

// The running services that the benchmarks call, and the sticks with their files.
#include "tests/bench/services.h"

#include <filesystem>
#include <stdexcept>
#include <utility>

#include "tests/support/bus/bus_daemon.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/waiting.h"

namespace bench {

VariantPtr call(const SystemBus& bus, const Target& target, const char* method,
                GVariant* arguments) {
    test_support::Reply reply =
        bus.call(target.path, target.interface, method, arguments, target.name);
    if (reply.value == nullptr) {
        throw std::runtime_error(std::string(method) + ": " + reply.message);
    }
    return std::move(reply.value);
}

void allowFloorService() {
    std::filesystem::copy(test_support::sourcePath("tests/bench/com.morvane.bench.conf"),
                          "/etc/dbus-1/system.d",
                          std::filesystem::copy_options::overwrite_existing);
    test_support::reloadBus();
}

std::vector<std::string> onServiceCore(const std::vector<std::string>& command) {
    std::vector<std::string> words{"taskset", "--cpu-list", "0"};
    words.insert(words.end(), command.begin(), command.end());
    return words;
}

Daemon::Daemon() : process_({{"-d"}, {"G_SLICE=always-malloc"}, onServiceCore({})}) {
    if (!process_.waitUntilAnswers()) {
        throw std::runtime_error("the service does not answer");
    }
}

FloorService::FloorService()
    : process_(onServiceCore({test_support::buildPath("tests/bench/floor_service")})) {
    if (!test_support::waitUntil([] { return SystemBus::hasOwner(kFloor.name); })) {
        throw std::runtime_error("the floor service has no name");
    }
}

Stick largeStick() {
    return Stick(1, {"1g", "/dev/sda1"});
}

GVariant* indexArguments(const std::string& directory) {
    return g_variant_new("(ss)", "USB_X60.1", directory.c_str());
}

}  // namespace bench

// The running services that the benchmarks call, and the sticks with their files.
#pragma once

#include <gio/gio.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/bus/system_bus.h"
#include "tests/support/device/stick.h"
#include "tests/support/process/child_process.h"
#include "tests/support/process/service_process.h"

namespace bench {

using test_support::Stick;
using test_support::SystemBus;
using test_support::VariantPtr;

// A service, its object and its interface.
struct Target {
    const char* name;
    const char* path;
    const char* interface;
};
inline constexpr Target kService{kServiceName, kTransferPath, kTransferInterface};
inline constexpr Target kFloor{"com.morvane.bench", "/floor", "com.morvane.bench"};

// Makes one call and returns its reply; throws std::runtime_error when there is none. A floating
// `arguments` is taken over.
VariantPtr call(const SystemBus& bus, const Target& target, const char* method,
                GVariant* arguments = nullptr);

// Lets the floor service own its name.
void allowFloorService();

// The command on the core of the services; the client and the message bus have the other.
std::vector<std::string> onServiceCore(const std::vector<std::string>& command);

// The service as it runs on the device: a daemon.
class Daemon {
public:
    Daemon();
    pid_t id() const { return process_.processId().value(); }

private:
    test_support::ServiceProcess process_;
};

// The least that a service can be; see floor_service.cpp.
class FloorService {
public:
    FloorService();
    pid_t id() const { return process_.id(); }

private:
    test_support::ChildProcess process_;
};

// A stick with room for large directories.
Stick largeStick();

// The arguments of GetDirectoryIndex for a directory of the first stick.
GVariant* indexArguments(const std::string& directory);

}  // namespace bench

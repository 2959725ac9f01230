// The running services that the benchmarks call, and the sticks with their files.
#pragma once

#include <gio/gio.h>
#include <sys/types.h>

#include <string>

#include "tests/support/bus/system_bus.h"
#include "tests/support/device/stick.h"
#include "tests/support/process/child_process.h"
#include "tests/support/process/service_process.h"

namespace bench {

using test_support::SystemBus;
using test_support::VariantPtr;

// A service, its object and its interface.
struct Target {
    const char* name;
    const char* path;
    const char* interface;
};
inline constexpr Target kService{test_support::kServiceName, test_support::kTransferPath,
                                 test_support::kTransferInterface};
inline constexpr Target kFloor{"com.morvane.bench", "/floor", "com.morvane.bench"};

// Makes one call and returns its reply; throws std::runtime_error when there is none. A floating
// `arguments` is taken over.
VariantPtr call(const SystemBus& bus, const Target& target, const char* method,
                GVariant* arguments = nullptr);

// The cheap call that both services answer.
VariantPtr readProperty(const SystemBus& bus, const Target& target);
// Whether the service answers it yet.
bool answers(const SystemBus& bus, const Target& target);

// Lets the floor service own its name, and pins the message bus to the client's core.
void prepareBus();

// A field of /proc/PID/FILE in kB; throws std::runtime_error when it cannot be read.
long memoryOf(pid_t process, const std::string& file, const std::string& field);

// The service as it runs on the device, a daemon on the services' core.
class Daemon {
public:
    Daemon();
    pid_t id() const;

private:
    test_support::ServiceProcess process_;
};

// The service that does next to nothing; `program` may be floor_service_cxx, the same with the C++
// library.
class FloorService {
public:
    explicit FloorService(const std::string& program = "floor_service");
    pid_t id() const { return process_.id(); }

private:
    test_support::ChildProcess process_;
};

// "files of N", made on the stick with N files in it.
std::string fillDirectory(const test_support::Stick& stick, int files);

// The arguments of GetDirectoryIndex for a directory of the first stick.
GVariant* indexArguments(const std::string& directory);

}  // namespace bench

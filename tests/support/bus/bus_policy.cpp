// The rules of the sandbox's system bus, changed by a test.
#include "tests/support/bus/bus_policy.h"

#include <unistd.h>

#include <stdexcept>

#include "tests/support/bus/system_bus.h"
#include "tests/support/files/files.h"

namespace test_support {
namespace {

constexpr const char* kOpenPolicyFile = "/etc/dbus-1/system.d/open.conf";
constexpr const char* kOpenPolicy = R"(<busconfig>
  <policy user="root">
    <allow send_destination="com.morvane.transfer"/>
  </policy>
</busconfig>
)";

}  // namespace

void reloadBus() {
    const SystemBus bus;
    const Reply reply = bus.call("/org/freedesktop/DBus", "org.freedesktop.DBus", "ReloadConfig",
                                 nullptr, "org.freedesktop.DBus");
    if (!reply.error.empty()) {
        throw std::runtime_error("the bus does not reload: " + reply.message);
    }
}

OpenBusPolicy::OpenBusPolicy() {
    writeFile(kOpenPolicyFile, kOpenPolicy);
    reloadBus();
}

OpenBusPolicy::~OpenBusPolicy() {
    unlink(kOpenPolicyFile);
    reloadBus();
}

}  // namespace test_support

// From the start of the program to its name on the bus, and to the first good answer.
#include <cstdlib>

#include "tests/bench/rows.h"
#include "tests/bench/services.h"
#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/namespace_process.h"

namespace bench {
namespace {

void onOwned(GDBusConnection* /*connection*/, const gchar* /*name*/, const gchar* /*owner*/,
             gpointer time) {
    *static_cast<gint64*>(time) = g_get_real_time();
}

// The cheapest call that both services answer.
bool answers(const SystemBus& bus, const Target& target) {
    return bus
        .call(target.path, "org.freedesktop.DBus.Properties", "Get",
              g_variant_new("(ss)", target.interface, "organizationName"), target.name)
        .error.empty();
}

// Adds the microseconds from the start of the program to both figures. It runs in a PID namespace,
// as whatever may reach the other processes has to; the shell notes when it becomes the program.
void timeStart(const SystemBus& bus, const Target& target, const std::string& program,
               std::vector<double>& owned, std::vector<double>& answered) {
    gint64 ownedAt = 0;
    const guint watch =
        g_bus_watch_name_on_connection(bus.connection(), target.name, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                       onOwned, nullptr, &ownedAt, nullptr);
    test_support::NamespaceProcess process(
        onServiceCore({"bash", "-c", "echo $EPOCHREALTIME >/tmp/started; exec \"$0\"",
                       test_support::buildPath(program)}));
    while (ownedAt == 0) {
        g_main_context_iteration(nullptr, TRUE);
    }
    while (!answers(bus, target)) {
    }
    const gint64 answeredAt = g_get_real_time();
    g_bus_unwatch_name(watch);
    process.kill();
    const auto startedAt = static_cast<gint64>(
        std::strtod(test_support::readFile("/tmp/started").c_str(), nullptr) * 1e6);
    owned.push_back(static_cast<double>(ownedAt - startedAt));
    answered.push_back(static_cast<double>(answeredAt - startedAt));
}

}  // namespace

std::vector<Row> measureStart(int rounds) {
    const SystemBus bus;
    const std::string floorIs = "floor service, same libraries and commands";
    Row owned{"start to name", floorIs, "us", 1.05};
    Row answered{"start to first good answer", floorIs, "us", 1.08};
    for (int round = 0; round < 2 * rounds; ++round) {
        timeStart(bus, kFloor, "tests/bench/floor_service", owned.floor, answered.floor);
        timeStart(bus, kService, "com-morvane-transfer-service", owned.measured, answered.measured);
    }
    return {owned, answered};
}

}  // namespace bench

// The registry of exported objects and the callbacks of the name's ownership.
#include "service/morvane_system_bus.h"

#include <gio/gio.h>
#include <syslog.h>

#include <cstdlib>
#include <vector>

#include "service/daemonize.h"
#include "service/exit_status.h"
#include "service/service_log.h"

namespace com::morvane::dbus {
namespace {

struct StartArgument {
    GDBusInterfaceBase* iface;
    int argc;
    char** argv;
};

// One for the process. Written during start-up, read by the callbacks of the main loop.
std::vector<std::string> objectPaths;
std::vector<GDBusInterfaceBase*> interfaces;  // the entry at i belongs to objectPaths[i]; not owned
std::vector<StartArgument> startArguments;
int semaphoreId = -1;  // 0 or more in a daemon

void exportInterfaces(GDBusConnection* connection) {
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        interfaces.at(i)->connectHandlers();
        // A failed export is not reported: the other objects still serve their callers.
        g_dbus_interface_skeleton_export(interfaces.at(i)->getSkeleton(), connection,
                                         objectPaths.at(i).c_str(), nullptr);
    }
}

void runStartHooks() {
    for (const StartArgument& argument : startArguments) {
        argument.iface->start(argument.argc, argument.argv);
    }
}

bool isDaemon() {
    return semaphoreId >= 0;
}

void onNameAcquired(GDBusConnection* connection, const gchar* /*name*/, gpointer /*loop*/) {
    exportInterfaces(connection);
    if (isDaemon()) {
        signalLauncher(semaphoreId);
    }
    runStartHooks();
    if (isDaemon()) {
        endHandshake(semaphoreId);
    }
}

// Kept: a daemon that loses its name later finds the set removed, so it ends with status 1 and
// not 2.
void onNameLost(GDBusConnection* /*connection*/, const gchar* /*name*/, gpointer /*loop*/) {
    serviceLog(LOG_ERR, log_tag::kError, "Could not register servicename on bus");
    if (isDaemon()) {
        releaseStarterAndExit(semaphoreId);
    }
    std::exit(kExitCannotServe);
}

}  // namespace

guint MorvaneSystemBus::ownName(const std::string& name, GMainLoop* loop) {
    if (objectPaths.empty() || interfaces.empty()) {
        serviceLog(LOG_ERR, log_tag::kError, "No Interfaces Registered");
        std::exit(kExitNothingRegistered);
    }
    const auto flags = static_cast<GBusNameOwnerFlags>(G_BUS_NAME_OWNER_FLAGS_ALLOW_REPLACEMENT |
                                                       G_BUS_NAME_OWNER_FLAGS_REPLACE);
    return g_bus_own_name(G_BUS_TYPE_SYSTEM, name.c_str(), flags, nullptr, onNameAcquired,
                          onNameLost, loop, nullptr);
}

bool MorvaneSystemBus::registerInterface(const std::string& objectPath, GDBusInterfaceBase* iface) {
    objectPaths.push_back(objectPath);
    interfaces.push_back(iface);
    return true;
}

void MorvaneSystemBus::addStartArguments(GDBusInterfaceBase* iface, int argc, char** argv) {
    startArguments.push_back({iface, argc, argv});
}

void MorvaneSystemBus::setSemaphoreId(int id) {
    semaphoreId = id;
}

}  // namespace com::morvane::dbus

// The start-up sequence of the transfer service.
#include <getopt.h>
#include <glib.h>
#include <syslog.h>

#include <vector>

#include "com.morvane.dbus/com_morvane_dbus_interface.h"
#include "service/daemonize.h"
#include "service/exit_status.h"
#include "service/heap.h"
#include "service/morvane_system_bus.h"
#include "service/pid_file.h"
#include "service/service_log.h"
#include "transfer/contract.h"
#include "transfer/dbus_interface.h"

using com::morvane::dbus::MorvaneSystemBus;

namespace {

// Returns the id of the start-up semaphore set in the daemon, which is a child of this process, and
// -1 without -d. getopt works on a copy, so the caller's argument vector stays in its order.
int daemonizeIfAsked(int argc, char** argv) {
    std::vector<char*> arguments(argv, argv + argc);
    int startSemaphore = -1;
    for (int option = 0; (option = getopt(argc, arguments.data(), "d")) != -1;) {
        if (option == 'd') {
            startSemaphore = daemonize();
            MorvaneSystemBus().setSemaphoreId(startSemaphore);
        }
    }
    optind = 1;
    return startSemaphore;
}

}  // namespace

int main(int argc, char** argv) {
    limitHeap();
    const int startSemaphore = daemonizeIfAsked(argc, argv);

    // The descriptor is kept to the end of the process: it holds the lock.
    if (lockPidFile(kServiceName) < 0) {
        serviceLog(LOG_ERR, log_tag::kError, "Service already started. Shutting down %s",
                   kServiceName);
        if (startSemaphore >= 0) {
            releaseStarterAndExit(startSemaphore);
        }
        return kExitAlreadyRunning;
    }

    // Creates the transfer manager, which tells the transfer script that the service starts.
    MorvaneSystemBus().addStartArguments(DBusInterface::getInstance(), argc, argv);
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    serviceLog(LOG_INFO, log_tag::kInfo, "Starting DBUS Service %s", kServiceName);
    serviceLog(LOG_DEBUG, log_tag::kDebug, "Register default Interface %s under Path: %s",
               kControlInterface, kControlPath);
    MorvaneSystemBus().registerInterface(kControlPath, ComMorvaneDBusInterface::getInstance());
    // Kept: the message names the bus, not the interface.
    serviceLog(LOG_INFO, log_tag::kInfo, "Register Interface: %s under Path: %s", kServiceName,
               kTransferPath);
    MorvaneSystemBus().registerInterface(kTransferPath, DBusInterface::getInstance());
    serviceLog(LOG_INFO, log_tag::kInfo, "Register as DBUS Service %s", kServiceName);
    const guint ownerId = MorvaneSystemBus().ownName(kServiceName, loop);
    serviceLog(LOG_DEBUG, log_tag::kDebug, "Init Main loop");
    g_main_loop_run(loop);

    // Nothing quits the loop: the process ends in a callback or by a signal.
    g_bus_unown_name(ownerId);
    g_main_loop_unref(loop);
    return kExitDone;
}

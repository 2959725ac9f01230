// The start-up sequence of the transfer service.
#include <getopt.h>
#include <glib.h>
#include <malloc.h>
#include <syslog.h>

#include <vector>

#include "com.morvane.dbus/com_morvane_dbus_interface.h"
#include "service/daemonize.h"
#include "service/morvane_system_bus.h"
#include "service/pid_file.h"
#include "service/service_log.h"
#include "transfer/contract.h"
#include "transfer/dbus_interface.h"

using com::morvane::dbus::MorvaneSystemBus;

namespace {

// What a large reply took goes back to the system with it. Left to itself the C library moves this
// limit up with the first large block that is freed and keeps the next ones for itself.
constexpr int kLargeBlock = 128 * 1024;

// What GLib's bus thread makes the main thread frees. With an arena for each thread such blocks
// scatter, and the heap grows by a page in some 13,000 calls; each job would also reserve another.
constexpr int kArenas = 1;

// Small blocks join their free neighbours at once, so that what the names of a long listing took
// can go back, too. Otherwise the next small blocks are cut from among them, and stay.
constexpr int kLargestUnjoined = 0;

// Acts on each -d and returns the id of the start-up semaphore set, or -1 without -d. getopt works
// on a copy, so the caller's argument vector stays in its order.
int readOptions(int argc, char** argv) {
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
    mallopt(M_MMAP_THRESHOLD, kLargeBlock);
    mallopt(M_ARENA_MAX, kArenas);
    mallopt(M_MXFAST, kLargestUnjoined);
    const int startSemaphore = readOptions(argc, argv);

    // The descriptor is kept to the end of the process: it holds the lock.
    if (lockPidFile(kServiceName) < 0) {
        serviceLog(LOG_ERR, log_tag::kError, "Service already started. Shutting down %s",
                   kServiceName);
        if (startSemaphore >= 0) {
            releaseStarterAndExit(startSemaphore);
        }
        return -1;
    }

    // Creates the transfer manager, which tells the transfer script that the service starts.
    MorvaneSystemBus().addStartArguments(DBusInterface::getInstance(), argc, argv);
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    serviceLog(LOG_INFO, log_tag::kInfo, "Starting DBUS Service %s", kServiceName);
    serviceLog(LOG_DEBUG, log_tag::kDebug,
               "Register default Interface com.morvane.dbus under Path: /ctrl");
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
    return 0;
}

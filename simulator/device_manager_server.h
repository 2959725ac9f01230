// The simulator's side of the peer connection: answers the client library, with the faults it is
// told to show, and takes the orders that change these while it runs.
#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <functional>
#include <future>
#include <list>
#include <string>

#include "com.morvane.devicemanager/com.morvane.devicemanager.h"
#include "simulator/gobject_pointer.h"
#include "simulator/simulated_device.h"
#include "simulator/simulator_behaviour.h"

// Binds 127.0.0.1:`port`, 0 for any free one; nothing is answered yet. Null and *error on failure.
GObjectPointer<GDBusServer> bindDeviceManagerPort(guint16 port, GError** error);

// Serves `device`, which outlives it, on the default main context; each call is worked on in a
// thread of its own. Destruction ends the running jobs and waits for them.
class DeviceManagerServer {
public:
    DeviceManagerServer(SimulatedDevice& device, SimulatorBehaviour behaviour,
                        GObjectPointer<GDBusServer> server);
    DeviceManagerServer(const DeviceManagerServer&) = delete;
    DeviceManagerServer& operator=(const DeviceManagerServer&) = delete;
    ~DeviceManagerServer();

private:
    friend struct CallHandlers;

    struct Outcome {
        std::string message;
        std::uint64_t bytes = 0;
    };
    struct Call {
        GDBusMethodInvocation* invocation;  // released by its answer
        std::string action;
        std::function<Outcome()> work;  // fails by an exception
        bool isConnect = false;
        bool isJob = false;
        bool answersBytes = false;
    };

    void start(const Call& call);
    void run(const Call& call);
    Outcome workOn(const Call& call);
    void finish(const Call& call, DeviceManagerStatus status, const Outcome& outcome);
    bool exportOn(GDBusConnection* connection, GError** error);

    SimulatedDevice& device_;
    LiveBehaviour behaviour_;
    std::list<std::future<void>> calls_;  // main-loop thread only
    GObjectPointer<MorvaneDevicemanager> skeleton_;
    GObjectPointer<MorvaneDevicemanagerControl> control_;
    GObjectPointer<GDBusServer> server_;
};

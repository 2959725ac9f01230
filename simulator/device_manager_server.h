// The simulator's side of the peer connection: answers the client library, with the faults that
// are raised, and takes the orders that change these while it runs.
#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <future>
#include <list>
#include <string>

#include "simulator/peer_protocol.h"
#include "simulator/simulated_device.h"
#include "simulator/simulator_behaviour.h"

// Binds 127.0.0.1:`port`, 0 for any free one; nothing is answered yet. Null and *error on failure.
GObjectPointer<GDBusServer> bindDeviceManagerPort(guint16 port, GError** error);

// Serves `device`, which outlives it, on the default main context; each call is worked on in a
// thread of its own. Destruction ends the running jobs and waits for them.
class DeviceManagerServer {
public:
    // With an empty `credentialRecord`, which is a path, any credential will do.
    DeviceManagerServer(SimulatedDevice& device, const SimulatorBehaviour& behaviour,
                        std::string credentialRecord, GObjectPointer<GDBusServer> server);
    DeviceManagerServer(const DeviceManagerServer&) = delete;
    DeviceManagerServer& operator=(const DeviceManagerServer&) = delete;
    ~DeviceManagerServer();

private:
    struct Outcome {
        std::string message;
        std::uint64_t bytes = 0;
    };
    struct Call {
        GDBusMethodInvocation* invocation;  // released by its answer
        std::string operation;
        std::string first;
        std::string second;

        std::string action() const;  // what it is called in the log
    };

    static gboolean onNewConnection(GDBusServer* server, GDBusConnection* peer, gpointer self);
    static void onClosed(GDBusConnection* peer, gboolean vanished, GError* error, gpointer self);
    static void onMethodCall(GDBusConnection* peer, const char* sender, const char* path,
                             const char* interface, const char* method, GVariant* parameters,
                             GDBusMethodInvocation* invocation, gpointer self);

    void order(const std::string& order, const std::string& value,
               GDBusMethodInvocation* invocation);
    void start(const Call& call);
    void run(const Call& call);
    Outcome workOn(const Call& call);
    Outcome carryOut(const Call& call);

    SimulatedDevice& device_;
    LiveBehaviour behaviour_;
    const std::string credentialRecord_;
    std::list<std::future<void>> calls_;  // main-loop thread only
    std::list<GObjectPointer<GDBusConnection>> peers_;  // main-loop thread only
    GObjectPointer<GDBusServer> server_;
};

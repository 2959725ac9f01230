// What both ends of the peer connection between client library and simulator must agree on.
#pragma once

#include <gio/gio.h>

#include <memory>

#include "transfer/contract.h"

constexpr const char* kDeviceManagerObject = "/deviceManager";
constexpr const char* kDeviceManagerInterface = "com.morvane.devicemanager";

struct GObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename Object>
using GObjectPointer = std::unique_ptr<Object, GObjectUnref>;

inline gboolean isAnonymousMechanism(GDBusAuthObserver* /*observer*/, const char* mechanism,
                                     gpointer /*data*/) {
    return g_strcmp0(mechanism, "ANONYMOUS") == 0 ? TRUE : FALSE;
}

// An observer for either end that allows ANONYMOUS authentication only: over TCP the others would
// need a home folder, which neither the service nor the simulator can rely on.
inline GObjectPointer<GDBusAuthObserver> anonymousOnly() {
    GObjectPointer<GDBusAuthObserver> observer(g_dbus_auth_observer_new());
    g_signal_connect(observer.get(), "allow-mechanism", G_CALLBACK(isAnonymousMechanism), nullptr);
    return observer;
}

// A connection to the simulator; the port of `endpoint` may be absent. Null and *error on failure.
inline GObjectPointer<GDBusConnection> openConnection(const char* endpoint, GError** error) {
    const GObjectPointer<GSocketClient> client(g_socket_client_new());
    g_socket_client_set_enable_proxy(client.get(), FALSE);
    const GObjectPointer<GSocketConnection> stream(g_socket_client_connect_to_host(
        client.get(), endpoint, kDeviceManagerPort, nullptr, error));
    if (stream == nullptr) {
        return nullptr;
    }
    return GObjectPointer<GDBusConnection>(g_dbus_connection_new_sync(
        G_IO_STREAM(stream.get()), nullptr, G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT,
        anonymousOnly().get(), nullptr, error));
}

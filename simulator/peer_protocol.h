// What both ends of the peer connection between client library and simulator must agree on.
#pragma once

#include <gio/gio.h>

#include "simulator/gobject_pointer.h"
#include "transfer/contract.h"

constexpr const char* kDeviceManagerObject = "/deviceManager";
constexpr const char* kDeviceManagerInterface = "com.morvane.devicemanager";
constexpr const char* kControlObject = "/control";
constexpr const char* kOrderInterface = "com.morvane.devicemanager.control";

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

// What both ends of the peer connection between client library and simulator must agree on.
#pragma once

#include <gio/gio.h>

#include <initializer_list>

#include "simulator/gobject_pointer.h"
#include "transfer/contract.h"

constexpr const char* kDeviceManagerObject = "/deviceManager";
constexpr const char* kDeviceManagerInterface = "com.morvane.devicemanager";
constexpr const char* kControlObject = "/control";
constexpr const char* kOrderInterface = "com.morvane.devicemanager.control";

// The arguments of a call: byte strings, because a path may hold any bytes. Floating.
inline GVariant* byteStrings(std::initializer_list<const char*> words) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_TUPLE);
    for (const char* word : words) {
        g_variant_builder_add_value(&builder, g_variant_new_bytestring(word));
    }
    return g_variant_builder_end(&builder);
}

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

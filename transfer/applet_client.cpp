// The proxy of the applet control and its one signal.
#include "transfer/applet_client.h"

#include <syslog.h>

#include "service/service_log.h"
#include "transfer/contract.h"
#include "transfer/dbus_interface.h"

namespace {

void onAppletChanged(MorvaneScctrl* /*proxy*/, gint id, gpointer /*data*/) {
    DBusInterface::getInstance()->manager().appletHasChanged(id);
}

}  // namespace

MorvaneScctrl* connectAppletClient(GError** error) {
    MorvaneScctrl* const proxy = morvane_scctrl_proxy_new_for_bus_sync(
        G_BUS_TYPE_SYSTEM, G_DBUS_PROXY_FLAGS_NONE, kAppletControlName, kAppletControlPath, nullptr,
        error);
    if (*error != nullptr) {
        // Kept: the information level, for the service runs on without applet changes.
        serviceLog(LOG_INFO, log_tag::kInfo, "Error creating proxy for signal applet-changed");
    }
    // Without a proxy GLib rejects the connection.
    g_signal_connect(proxy, "applet-changed", G_CALLBACK(onAppletChanged), nullptr);
    return proxy;
}

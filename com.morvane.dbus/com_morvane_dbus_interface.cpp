// The handlers of Quit and Init.
#include "com.morvane.dbus/com_morvane_dbus_interface.h"

#include <syslog.h>

#include "com.morvane.dbus/com.morvane.dbus.h"
#include "service/service_log.h"

namespace {

// Kept: Quit does not quit. The line end in the message gives an empty line on standard output.
gboolean onQuit(MorvaneDbus* skeleton, GDBusMethodInvocation* invocation, gpointer /*data*/) {
    serviceLog(LOG_INFO, log_tag::kInfo, "Quit() Method invoked by DBus\n");
    morvane_dbus_complete_quit(skeleton, invocation);
    return TRUE;
}

gboolean onInit(MorvaneDbus* skeleton, GDBusMethodInvocation* invocation, gpointer /*data*/) {
    serviceLog(LOG_INFO, log_tag::kInfo, "Init() Method invoked by DBus\n");
    morvane_dbus_complete_init(skeleton, invocation);
    return TRUE;
}

}  // namespace

ComMorvaneDBusInterface::ComMorvaneDBusInterface()
    : GDBusInterfaceBase(G_DBUS_INTERFACE_SKELETON(morvane_dbus_skeleton_new())) {}

ComMorvaneDBusInterface* ComMorvaneDBusInterface::getInstance() {
    static auto* const kInstance = new ComMorvaneDBusInterface;
    return kInstance;
}

void ComMorvaneDBusInterface::connectHandlers() {
    // Kept: the first name is spelt with an underscore; GLib takes "_" and "-" in signal names
    // alike.
    g_signal_connect(getSkeleton(), "handle_quit", G_CALLBACK(onQuit), nullptr);
    g_signal_connect(getSkeleton(), "handle-init", G_CALLBACK(onInit), nullptr);
}

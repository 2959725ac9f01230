// The simulated applet control: follows lines on standard input until it ends. The id of an applet
// is announced; "organizationName=TEXT" and "organizationDomain=TEXT" change its properties.
#include <gio/gio.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "com.morvane.scctrl/com.morvane.scctrl.h"
#include "simulator/action_log.h"
#include "transfer/contract.h"

namespace {

// One for the process; the callbacks reach it through their user data.
struct AppletControl {
    GMainLoop* loop;
    MorvaneScctrl* object;
    int status = EXIT_SUCCESS;
};

void say(const std::string& text) {
    logAction("applet control", text);
}

void fail(AppletControl* control, const std::string& reason) {
    say(reason);
    control->status = EXIT_FAILURE;
    g_main_loop_quit(control->loop);
}

void setProperty(MorvaneScctrl* object, const char* property, const std::string& line) {
    const std::string text = line.substr(line.find('=') + 1);
    if (g_utf8_validate(text.c_str(), -1, nullptr) == FALSE) {
        say("no text for a property: " + line);
        return;
    }
    g_object_set(object, property, text.c_str(), nullptr);
    say(line);
}

void announce(MorvaneScctrl* object, const std::string& line) {
    gint64 id = 0;
    if (g_ascii_string_to_signed(line.c_str(), 10, G_MININT32, G_MAXINT32, &id, nullptr) == FALSE) {
        say("no applet id: " + line);
        return;
    }
    morvane_scctrl_emit_applet_changed(object, static_cast<gint>(id));
    say("applet " + line);
}

void follow(MorvaneScctrl* object, const std::string& line) {
    if (line.rfind("organizationName=", 0) == 0) {
        setProperty(object, "organization-name", line);
    } else if (line.rfind("organizationDomain=", 0) == 0) {
        setProperty(object, "organization-domain", line);
    } else {
        announce(object, line);
    }
}

gboolean onInput(GIOChannel* input, GIOCondition /*condition*/, gpointer data) {
    auto* const control = static_cast<AppletControl*>(data);
    g_autoptr(GError) error = nullptr;
    g_autofree char* line = nullptr;
    gsize end = 0;
    const GIOStatus status = g_io_channel_read_line(input, &line, nullptr, &end, &error);
    if (error != nullptr) {
        fail(control, error->message);
    } else if (status == G_IO_STATUS_EOF) {
        say("no more applets");
        g_main_loop_quit(control->loop);
    } else if (status == G_IO_STATUS_NORMAL) {
        follow(control->object, {line, end});
    }
    return G_SOURCE_CONTINUE;
}

void onBusAcquired(GDBusConnection* bus, const char* /*name*/, gpointer data) {
    auto* const control = static_cast<AppletControl*>(data);
    g_autoptr(GError) error = nullptr;
    if (g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(control->object), bus,
                                         kAppletControlPath, &error) == FALSE) {
        fail(control, error->message);
    }
}

// Only the owner's signals count, so nothing is announced before.
void onNameAcquired(GDBusConnection* /*bus*/, const char* name, gpointer data) {
    say(std::string("owns ") + name);
    GIOChannel* const input = g_io_channel_unix_new(STDIN_FILENO);
    g_io_channel_set_encoding(input, nullptr, nullptr);  // any bytes
    g_io_add_watch(input, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), onInput, data);
    g_io_channel_unref(input);
}

void onNameLost(GDBusConnection* /*bus*/, const char* name, gpointer data) {
    fail(static_cast<AppletControl*>(data), std::string("cannot own ") + name);
}

}  // namespace

int main() {
    g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
    g_autoptr(MorvaneScctrl) object = morvane_scctrl_skeleton_new();
    morvane_scctrl_set_organization_name(object, "Morvane");
    morvane_scctrl_set_organization_domain(object, "morvane.com");
    AppletControl control{loop, object};
    const guint owner =
        g_bus_own_name(G_BUS_TYPE_SYSTEM, kAppletControlName, G_BUS_NAME_OWNER_FLAGS_NONE,
                       onBusAcquired, onNameAcquired, onNameLost, &control, nullptr);
    g_main_loop_run(loop);
    auto* const bus = g_dbus_interface_skeleton_get_connection(G_DBUS_INTERFACE_SKELETON(object));
    if (bus != nullptr) {
        g_dbus_connection_flush_sync(bus, nullptr, nullptr);
    }
    g_bus_unown_name(owner);
    return control.status;
}

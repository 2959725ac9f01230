// The simulated applet control: owns com.morvane.scctrl and follows what it reads from standard
// input, one a line, until the input ends: the id of an applet is announced as the current one,
// "organizationName=TEXT" and "organizationDomain=TEXT" change its properties.
#include <gio/gio.h>
#include <gio/gunixinputstream.h>
#include <unistd.h>

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "com.morvane.scctrl/com.morvane.scctrl.h"
#include "simulator/action_log.h"
#include "simulator/gobject_pointer.h"

namespace {

constexpr const char* kName = "com.morvane.scctrl";
constexpr const char* kPath = "/scctrlIntf";
constexpr const char* kWho = "applet control";

// One for the process; the callbacks reach it through their user data.
struct AppletControl {
    GMainLoop* loop = nullptr;
    GObjectPointer<MorvaneScctrl> object;
    GObjectPointer<GDataInputStream> input;
    int status = EXIT_SUCCESS;
};

void end(AppletControl* control, const std::string& reason) {
    logAction(kWho, reason);
    g_main_loop_quit(control->loop);
}

void fail(AppletControl* control, const std::string& reason) {
    control->status = EXIT_FAILURE;
    end(control, reason);
}

void announce(MorvaneScctrl* object, const char* line) {
    std::int32_t id = 0;
    const char* const lineEnd = line + std::strlen(line);
    const auto [stop, error] = std::from_chars(line, lineEnd, id);
    if (error != std::errc() || stop != lineEnd) {
        logAction(kWho, std::string("no applet id: ") + line);
        return;
    }
    morvane_scctrl_emit_applet_changed(object, id);
    logAction(kWho, "applet " + std::to_string(id));
}

// Whether the line sets a property. If so, changes it, and emits PropertiesChanged.
bool setProperty(MorvaneScctrl* object, const std::string& line) {
    const std::size_t separator = line.find('=');
    const std::string name = line.substr(0, separator);
    if (separator == std::string::npos ||
        (name != "organizationName" && name != "organizationDomain")) {
        return false;
    }
    const std::string text = line.substr(separator + 1);
    if (g_utf8_validate(text.c_str(), -1, nullptr) == FALSE) {
        logAction(kWho, "no text for a property: " + line);
        return true;
    }
    const bool isName = name == "organizationName";
    (isName ? morvane_scctrl_set_organization_name : morvane_scctrl_set_organization_domain)(
        object, text.c_str());
    logAction(kWho, line);
    return true;
}

void follow(MorvaneScctrl* object, const char* line) {
    if (!setProperty(object, line)) {
        announce(object, line);
    }
}

void readNextLine(AppletControl* control);

void onLine(GObject* /*source*/, GAsyncResult* result, gpointer data) {
    auto* const control = static_cast<AppletControl*>(data);
    g_autoptr(GError) error = nullptr;
    g_autofree char* line =
        g_data_input_stream_read_line_finish(control->input.get(), result, nullptr, &error);
    if (error != nullptr) {
        fail(control, error->message);
    } else if (line == nullptr) {
        end(control, "no more applets");
    } else {
        follow(control->object.get(), line);
        readNextLine(control);
    }
}

void readNextLine(AppletControl* control) {
    g_data_input_stream_read_line_async(control->input.get(), G_PRIORITY_DEFAULT, nullptr, onLine,
                                        control);
}

void onBusAcquired(GDBusConnection* connection, const gchar* /*name*/, gpointer data) {
    auto* const control = static_cast<AppletControl*>(data);
    g_autoptr(GError) error = nullptr;
    if (g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(control->object.get()),
                                         connection, kPath, &error) == FALSE) {
        fail(control, error->message);
    }
}

// Only the owner's signals count, so nothing is announced before.
void onNameAcquired(GDBusConnection* /*connection*/, const gchar* name, gpointer data) {
    logAction(kWho, std::string("owns ") + name);
    readNextLine(static_cast<AppletControl*>(data));
}

void onNameLost(GDBusConnection* /*connection*/, const gchar* name, gpointer data) {
    fail(static_cast<AppletControl*>(data), std::string("cannot own ") + name);
}

void flushSignals(MorvaneScctrl* object) {
    GDBusConnection* const connection =
        g_dbus_interface_skeleton_get_connection(G_DBUS_INTERFACE_SKELETON(object));
    if (connection != nullptr) {
        g_dbus_connection_flush_sync(connection, nullptr, nullptr);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1) {
        std::fprintf(stderr,
                     "usage: %s  (applet ids and PROPERTY=TEXT on standard input, one a line)\n",
                     argv[0]);
        return 2;
    }
    g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
    const GObjectPointer<GInputStream> stream(g_unix_input_stream_new(STDIN_FILENO, FALSE));
    AppletControl control;
    control.loop = loop;
    control.object.reset(morvane_scctrl_skeleton_new());
    control.input.reset(g_data_input_stream_new(stream.get()));
    morvane_scctrl_set_organization_name(control.object.get(), "Morvane");
    morvane_scctrl_set_organization_domain(control.object.get(), "morvane.com");
    const guint owner =
        g_bus_own_name(G_BUS_TYPE_SYSTEM, kName, G_BUS_NAME_OWNER_FLAGS_NONE, onBusAcquired,
                       onNameAcquired, onNameLost, &control, nullptr);
    g_main_loop_run(loop);
    flushSignals(control.object.get());
    g_bus_unown_name(owner);
    return control.status;
}

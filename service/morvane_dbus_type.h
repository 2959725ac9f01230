// What the service asks of a message bus.
#pragma once

#include <glib.h>

#include <string>

#include "service/gdbus_interface_base.h"

namespace com::morvane::dbus {

// A bus on which objects are registered and a well-known name is owned. Start-up thread only.
class MorvaneDBusType {
public:
    // Starts owning `name` and returns the owner id for g_bus_unown_name; the outcome arrives on
    // the caller's thread-default main context. `loop` is user data that nobody uses. Ends the
    // process with status 3 when nothing is registered.
    virtual guint ownName(const std::string& name, GMainLoop* loop) = 0;

    // Notes `iface`, which must outlive the process's use of the bus, for export at `objectPath`
    // once the name is owned. Returns true; a path registered twice is not noticed here.
    virtual bool registerInterface(const std::string& objectPath, GDBusInterfaceBase* iface) = 0;

    virtual ~MorvaneDBusType() = default;
};

}  // namespace com::morvane::dbus

// The system bus: the registry of exported objects and the ownership of the service's name.
#pragma once

#include "service/morvane_dbus_type.h"

namespace com::morvane::dbus {

// A stateless handle; the registry behind it is one for the process, so any two values are the same
// bus.
class MorvaneSystemBus : public MorvaneDBusType {
public:
    guint ownName(const std::string& name, GMainLoop* loop) override;
    bool registerInterface(const std::string& objectPath, GDBusInterfaceBase* iface) override;

    // Has `iface->start(argc, argv)` called after the export; `argv` is kept by address.
    void addStartArguments(GDBusInterfaceBase* iface, int argc, char** argv);

    // Makes the process a daemon, which tells its launcher through the set of this id. The
    // callbacks of ownName look at it when they run.
    void setSemaphoreId(int id);
};

}  // namespace com::morvane::dbus

// The control interface com.morvane.dbus.
#pragma once

#include "service/gdbus_interface_base.h"

// Acknowledges and logs Quit and Init; neither changes anything, and Quit does not end the service.
// One object for the life of the process. Main-loop thread only.
class ComMorvaneDBusInterface : public GDBusInterfaceBase {
public:
    // The single object, created on first use and never destroyed. First used on the main thread.
    static ComMorvaneDBusInterface* getInstance();

    void connectHandlers() override;

private:
    ComMorvaneDBusInterface();
};

// The base of every object that the service exports on the bus.
#pragma once

#include <gio/gio.h>

// Couples a generated skeleton with the code that answers it. Objects live as long as the process:
// the bus framework keeps plain pointers to them, and the skeleton is never released. Main-loop
// thread only.
class GDBusInterfaceBase {
public:
    // Keeps `skeleton`, a new instance whose reference this object holds from now on.
    explicit GDBusInterfaceBase(GDBusInterfaceSkeleton* skeleton) : skeleton_(skeleton) {}
    GDBusInterfaceBase(const GDBusInterfaceBase&) = delete;
    GDBusInterfaceBase& operator=(const GDBusInterfaceBase&) = delete;
    virtual ~GDBusInterfaceBase() = default;

    // Connects the handlers of the skeleton's signals; called once the bus name is owned, before
    // the export.
    virtual void connectHandlers() = 0;

    // Runs after all objects are exported, with the unpermuted command line.
    virtual void start(int /*argc*/, char** /*argv*/) {}

    // The skeleton; owned by this object.
    GDBusInterfaceSkeleton* getSkeleton() const { return skeleton_; }

private:
    GDBusInterfaceSkeleton* skeleton_;
};

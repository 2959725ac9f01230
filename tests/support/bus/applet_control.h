// A stand-in for the device's applet control: owns com.morvane.scctrl and sends appletChanged.
#pragma once

#include <memory>

#include "com.morvane.scctrl/com.morvane.scctrl.h"
#include "tests/support/bus/system_bus.h"

namespace test_support {

// Answers calls on a thread of its own for as long as it lives. Throws std::runtime_error when it
// cannot own the name.
class AppletControl {
public:
    enum class Answers { kYes, kNever };

    // With Answers::kNever it owns the name but leaves every call without an answer.
    explicit AppletControl(Answers answers = Answers::kYes);
    ~AppletControl();
    AppletControl(const AppletControl&) = delete;
    AppletControl& operator=(const AppletControl&) = delete;

    // Sends the signal; returns once the bus has it.
    void emitAppletChanged(int id) const;

private:
    class Server;
    SystemBus bus_;
    std::unique_ptr<Server> server_;
};

}  // namespace test_support

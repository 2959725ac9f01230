// The device's applet control as a fake service.
#pragma once

#include "tests/support/bus/fake_service.h"

namespace test_support {

class AppletControl {
public:
    enum class Answers { kYes, kNever };

    // With Answers::kNever it owns the name but leaves every call without an answer.
    explicit AppletControl(Answers answers = Answers::kYes)
        : service_(kAppletControlName,
                   answers == Answers::kYes
                       ? FakeService::Replies{{"GetAll", {"(@a{sv} {},)"}}, {"Ping", {"()"}}}
                       : FakeService::Replies{}) {}

    // Sends the signal; returns once the bus has it.
    void emitAppletChanged(int id) const {
        service_.emitSignal(kAppletControlPath, kAppletControlInterface, "appletChanged",
                            g_variant_new("(i)", id));
    }

private:
    FakeService service_;
};

}  // namespace test_support

// A D-Bus service that answers what a test tells it to, promised or not.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/bus/system_bus.h"

namespace test_support {

class FakeService {
public:
    // By method: tuples in GVariant's text form, one a call; the last one repeats. "error NAME"
    // answers with that D-Bus error.
    using Replies = std::map<std::string, std::vector<std::string>>;

    // Owns `name`. Calls of methods without replies get no answer. Throws std::runtime_error when
    // it cannot own the name.
    explicit FakeService(const std::string& name, Replies replies = {});
    ~FakeService();
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    // Methods called by now with their arguments, in order: "DeleteFile('USB_X60.1', 'a')".
    std::vector<std::string> calls() const;

    // Waits until a call holds `part`.
    testing::AssertionResult waitForCall(const std::string& part) const;

    // Sends a signal; returns once the bus has it.
    void emitSignal(const std::string& path, const std::string& interface,
                    const std::string& signal, GVariant* arguments) const {
        bus_.emitSignal(path, interface, signal, arguments);
    }

    // Leaves the bus, with all calls unanswered.
    void leave();

private:
    static GDBusMessage* onMessage(GDBusConnection* connection, GDBusMessage* message,
                                   gboolean incoming, gpointer self);
    GDBusMessage* replyTo(GDBusMessage* call);
    std::optional<std::string> nextReply(GDBusMessage* call);

    Replies replies_;
    // Not a member: the thread sanitizer does not see how GLib hands one over to the other thread.
    inline static std::mutex mutex_;
    std::vector<std::string> calls_;
    SystemBus bus_;
    guint filter_ = 0;
};

// The device's applet control as a fake service.
class AppletControl {
public:
    // Sends the signal; returns once the bus has it.
    void emitAppletChanged(int id) const {
        service_.emitSignal(kAppletControlPath, kAppletControlInterface, "appletChanged",
                            g_variant_new("(i)", id));
    }

private:
    FakeService service_{kAppletControlName, {{"GetAll", {"(@a{sv} {},)"}}, {"Ping", {"()"}}}};
};

}  // namespace test_support

// A call of the transfer interface as the code behind it receives it, in the test's own process.
#pragma once

#include <gio/gio.h>

#include <optional>
#include <string>

#include "tests/support/bus/system_bus.h"

namespace test_support {

// The caller and the object are the two ends of a private connection, so no message bus and no
// service take part. Runs the default main context while it waits. Failures throw
// std::runtime_error.
class IncomingCall {
public:
    // A floating `arguments` is taken over.
    IncomingCall(const std::string& method, GVariant* arguments);
    ~IncomingCall();
    IncomingCall(const IncomingCall&) = delete;
    IncomingCall& operator=(const IncomingCall&) = delete;

    // To be completed once; completing it takes it over.
    GDBusMethodInvocation* invocation() const { return invocation_; }

    // What the caller gets; an error of its own when nothing came within patience().
    Reply waitForReply();

private:
    static void onConnected(GObject* source, GAsyncResult* result, gpointer connection);
    static void onCalled(GDBusConnection* connection, const gchar* sender, const gchar* path,
                         const gchar* interface, const gchar* method, GVariant* arguments,
                         GDBusMethodInvocation* invocation, gpointer self);
    static void onReply(GObject* connection, GAsyncResult* result, gpointer self);

    ObjectPtr<GDBusConnection> caller_;
    ObjectPtr<GDBusConnection> object_;
    GDBusMethodInvocation* invocation_ = nullptr;
    std::optional<Reply> reply_;
};

}  // namespace test_support

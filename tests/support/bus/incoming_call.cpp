// A call of the transfer interface as the code behind it receives it, in the test's own process.
#include "tests/support/bus/incoming_call.h"

#include <sys/socket.h>

#include <functional>
#include <stdexcept>

#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

// Runs the main context until `holds`.
void runUntil(const std::function<bool()>& holds, const char* what) {
    const auto runAndLook = [&holds] {
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
        }
        return holds();
    };
    if (!waitUntil(runAndLook)) {
        throw std::runtime_error(std::string("still waiting for ") + what);
    }
}

ObjectPtr<GSocketConnection> streamOn(int fd) {
    const ObjectPtr<GSocket> socket(g_socket_new_from_fd(fd, nullptr));
    return ObjectPtr<GSocketConnection>(
        g_socket_connection_factory_create_connection(socket.get()));
}

constexpr auto kObjectEnd =
    static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER |
                                      G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_ALLOW_ANONYMOUS);

}  // namespace

IncomingCall::IncomingCall(const std::string& method, GVariant* arguments) {
    static const GDBusInterfaceVTable kTable = {onCalled, nullptr, nullptr, {}};
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::runtime_error("no socket pair");
    }
    const ObjectPtr<GSocketConnection> objectStream = streamOn(ends[0]);
    const ObjectPtr<GSocketConnection> callerStream = streamOn(ends[1]);
    g_autofree gchar* guid = g_dbus_generate_guid();
    g_dbus_connection_new(G_IO_STREAM(objectStream.get()), guid, kObjectEnd, nullptr, nullptr,
                          onConnected, &object_);
    g_dbus_connection_new(G_IO_STREAM(callerStream.get()), nullptr,
                          G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr, nullptr,
                          onConnected, &caller_);
    runUntil([this] { return object_ != nullptr && caller_ != nullptr; }, "a private connection");

    g_dbus_connection_register_object(object_.get(), kTransferPath,
                                      morvane_transfer_sac_interface_info(), &kTable, this, nullptr,
                                      nullptr);
    g_dbus_connection_call(caller_.get(), nullptr, kTransferPath, kTransferInterface,
                           method.c_str(), arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, G_MAXINT,
                           nullptr, onReply, this);
    runUntil([this] { return invocation_ != nullptr || reply_.has_value(); }, "the call");
    if (invocation_ == nullptr) {
        throw std::runtime_error(reply_->error + ": " + reply_->message);
    }
}

IncomingCall::~IncomingCall() {
    // A call without a reply gets an error from the closing, so nothing points here any more.
    g_dbus_connection_close_sync(object_.get(), nullptr, nullptr);
    g_dbus_connection_close_sync(caller_.get(), nullptr, nullptr);
    runUntil([this] { return reply_.has_value(); }, "the end of the call");
}

Reply IncomingCall::waitForReply() {
    runUntil([this] { return reply_.has_value(); }, "the reply");
    return std::move(*reply_);
}

void IncomingCall::onConnected(GObject* /*source*/, GAsyncResult* result, gpointer connection) {
    static_cast<ObjectPtr<GDBusConnection>*>(connection)
        ->reset(g_dbus_connection_new_finish(result, nullptr));
}

void IncomingCall::onCalled(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                            const gchar* /*path*/, const gchar* /*interface*/,
                            const gchar* /*method*/, GVariant* /*arguments*/,
                            GDBusMethodInvocation* invocation, gpointer self) {
    static_cast<IncomingCall*>(self)->invocation_ = invocation;
}

void IncomingCall::onReply(GObject* connection, GAsyncResult* result, gpointer self) {
    g_autoptr(GError) error = nullptr;
    VariantPtr value(g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &error));
    Reply reply{std::move(value), {}, {}};
    if (error != nullptr) {
        g_autofree gchar* name = g_dbus_error_get_remote_error(error);
        reply.error = name != nullptr ? name : "not a D-Bus error";
        reply.message = error->message;
    }
    static_cast<IncomingCall*>(self)->reply_ = std::move(reply);
}

}  // namespace test_support

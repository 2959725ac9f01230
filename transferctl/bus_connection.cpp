// The system bus as a client that is not asked to stay needs it.
#include "transferctl/bus_connection.h"

#include "transferctl/bus_failure.h"

namespace transferctl {
namespace {

constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";

struct ReleaseVariant {
    void operator()(GVariant* value) const { g_variant_unref(value); }
};
using VariantHolder = std::unique_ptr<GVariant, ReleaseVariant>;

// What the two callbacks of connectToBus tell it; it outlives both.
struct Connecting {
    bool ended = false;
    GDBusConnection* connection = nullptr;
    GError* error = nullptr;
};

void onConnected(GObject* /*source*/, GAsyncResult* result, gpointer data) {
    auto* const connecting = static_cast<Connecting*>(data);
    connecting->connection = g_bus_get_finish(result, &connecting->error);
    connecting->ended = true;
}

gboolean onTooLate(gpointer data) {
    g_cancellable_cancel(static_cast<GCancellable*>(data));
    return G_SOURCE_CONTINUE;
}

[[noreturn]] void failToConnect(const GError* error) {
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE) {
        throw Failure(ExitStatus::kTimeLimit, "the message bus does not answer in time");
    }
    throw Failure(ExitStatus::kNoService,
                  std::string("cannot connect to the system bus: ") + error->message);
}

// A question to the bus itself about a name. Null with an error.
VariantHolder askBus(GDBusConnection* connection, const char* question, const char* name,
                     const char* replyType, const Deadline& deadline, GError** error) {
    return VariantHolder(g_dbus_connection_call_sync(
        connection, kBusName, kBusPath, kBusName, question, g_variant_new("(s)", name),
        G_VARIANT_TYPE(replyType), G_DBUS_CALL_FLAGS_NONE, deadline.remaining(), nullptr, error));
}

}  // namespace

ObjectHolder<GDBusConnection> connectToBus(const Deadline& deadline) {
    const ObjectHolder<GCancellable> cancellable(g_cancellable_new());
    Connecting connecting;
    const guint limit =
        g_timeout_add(static_cast<guint>(deadline.remaining()), onTooLate, cancellable.get());
    g_bus_get(G_BUS_TYPE_SYSTEM, cancellable.get(), onConnected, &connecting);
    while (!connecting.ended) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_source_remove(limit);
    g_autoptr(GError) error = connecting.error;
    if (connecting.connection == nullptr) {
        failToConnect(error);
    }
    g_dbus_connection_set_exit_on_close(connecting.connection, FALSE);
    return ObjectHolder<GDBusConnection>(connecting.connection);
}

std::optional<std::string> ownerOfService(GDBusConnection* connection, const Deadline& deadline) {
    g_autoptr(GError) error = nullptr;
    const VariantHolder reply =
        askBus(connection, "GetNameOwner", kServiceName, "(s)", deadline, &error);
    if (reply) {
        const char* owner = nullptr;
        g_variant_get(reply.get(), "(&s)", &owner);
        return owner;
    }
    if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER) != FALSE) {
        return std::nullopt;
    }
    throw failureOf(error);
}

std::optional<unsigned> processOf(GDBusConnection* connection, const std::string& owner,
                                  const Deadline& deadline) {
    const VariantHolder reply =
        askBus(connection, "GetConnectionUnixProcessID", owner.c_str(), "(u)", deadline, nullptr);
    if (!reply) {
        return std::nullopt;
    }
    guint32 process = 0;
    g_variant_get(reply.get(), "(u)", &process);
    return process;
}

}  // namespace transferctl

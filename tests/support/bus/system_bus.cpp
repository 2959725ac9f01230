// The sandbox's system bus as a client of the service sees it.
#include "tests/support/bus/system_bus.h"

#include <stdexcept>

#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

constexpr const char* kAddress = "unix:path=/run/dbus/system_bus_socket";
constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr guint32 kPrimaryOwner = 1;
constexpr guint32 kAlreadyOwner = 4;

int callLimit() {
    return static_cast<int>(patience().count());
}

ObjectPtr<GDBusConnection> connect() {
    const auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_autoptr(GError) error = nullptr;
    ObjectPtr<GDBusConnection> connection(
        g_dbus_connection_new_for_address_sync(kAddress, flags, nullptr, nullptr, &error));
    if (connection == nullptr) {
        throw std::runtime_error(std::string("no system bus: ") + error->message);
    }
    return connection;
}

Reply failed(GError* error) {
    g_autofree gchar* name = g_dbus_error_get_remote_error(error);
    Reply reply;
    reply.error = name != nullptr ? name : "not a D-Bus error";
    g_dbus_error_strip_remote_error(error);
    reply.message = error->message;
    return reply;
}

// The first child of a reply as an unsigned number; `otherwise` when the call failed.
guint32 numberIn(const Reply& reply, guint32 otherwise) {
    guint32 number = otherwise;
    if (reply.value != nullptr) {
        g_variant_get(reply.value.get(), "(u)", &number);
    }
    return number;
}

}  // namespace

std::string asText(GVariant* value) {
    if (value == nullptr) {
        return {};
    }
    g_autofree gchar* text = g_variant_print(value, TRUE);
    return text;
}

std::string Reply::type() const {
    return value != nullptr ? g_variant_get_type_string(value.get()) : "";
}

std::string Reply::printed() const {
    return value != nullptr ? asText(value.get()) : "error " + error;
}

SystemBus::SystemBus() : connection_(connect()) {}

SystemBus::~SystemBus() {
    g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
}

Reply SystemBus::call(const std::string& path, const std::string& interface,
                      const std::string& method, GVariant* arguments,
                      const std::string& destination) const {
    g_autoptr(GError) error = nullptr;
    VariantPtr value(g_dbus_connection_call_sync(
        connection_.get(), destination.c_str(), path.c_str(), interface.c_str(), method.c_str(),
        arguments, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, callLimit(), nullptr, &error));
    if (value == nullptr) {
        return failed(error);
    }
    return {std::move(value), {}, {}};
}

Reply SystemBus::transfer(const std::string& method, GVariant* arguments) const {
    return call(kTransferPath, kTransferInterface, method, arguments);
}

void SystemBus::emitSignal(const std::string& path, const std::string& interface,
                           const std::string& signal, GVariant* arguments) const {
    g_dbus_connection_emit_signal(connection_.get(), nullptr, path.c_str(), interface.c_str(),
                                  signal.c_str(), arguments, nullptr);
    // Messages of one connection keep their order: the answer comes after the signal was taken.
    call(kBusPath, kBusName, "GetId", nullptr, kBusName);
}

bool SystemBus::ownName(const std::string& name, GBusNameOwnerFlags flags) const {
    const Reply reply = call(
        kBusPath, kBusName, "RequestName",
        g_variant_new("(su)", name.c_str(), flags | G_BUS_NAME_OWNER_FLAGS_DO_NOT_QUEUE), kBusName);
    const guint32 result = numberIn(reply, 0);
    return result == kPrimaryOwner || result == kAlreadyOwner;
}

void SystemBus::releaseName(const std::string& name) const {
    call(kBusPath, kBusName, "ReleaseName", g_variant_new("(s)", name.c_str()), kBusName);
}

std::optional<pid_t> SystemBus::processOf(const std::string& name) {
    try {
        const SystemBus bus;
        const Reply reply = bus.call(kBusPath, kBusName, "GetConnectionUnixProcessID",
                                     g_variant_new("(s)", name.c_str()), kBusName);
        const auto pid = static_cast<pid_t>(numberIn(reply, 0));
        return pid > 0 ? std::optional(pid) : std::nullopt;
    } catch (const std::runtime_error&) {
        return std::nullopt;  // no bus, so nobody owns a name
    }
}

}  // namespace test_support

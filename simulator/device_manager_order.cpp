// Hands an order to a device manager that runs.
#include "simulator/device_manager_order.h"

#include "com.morvane.devicemanager/com.morvane.devicemanager.h"
#include "simulator/device_error.h"
#include "simulator/gobject_pointer.h"
#include "simulator/peer_protocol.h"

namespace {

GObjectPointer<GDBusConnection> connectTo(guint16 port, GError** error) {
    g_autofree char* address = g_strdup_printf("tcp:host=127.0.0.1,port=%u", port);
    return GObjectPointer<GDBusConnection>(g_dbus_connection_new_for_address_sync(
        address, G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, anonymousOnly().get(), nullptr,
        error));
}

[[noreturn]] void fail(GError* error) {
    g_dbus_error_strip_remote_error(error);
    throw DeviceError(DeviceManagerStatus::unreachable, error->message);
}

}  // namespace

std::string giveOrder(guint16 port, const std::string& order, const std::string& value) {
    g_autoptr(GError) error = nullptr;
    const auto connection = connectTo(port, &error);
    if (connection == nullptr) {
        fail(error);
    }
    constexpr auto kFlags = static_cast<GDBusProxyFlags>(G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES |
                                                         G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS);
    const GObjectPointer<MorvaneDevicemanagerControl> control(
        morvane_devicemanager_control_proxy_new_sync(connection.get(), kFlags, nullptr,
                                                     kControlObject, nullptr, &error));
    g_autofree char* behaviour = nullptr;
    if (control == nullptr ||
        morvane_devicemanager_control_call_order_sync(control.get(), order.c_str(), value.c_str(),
                                                      &behaviour, nullptr, &error) == FALSE) {
        fail(error);
    }
    g_dbus_connection_close_sync(connection.get(), nullptr, nullptr);
    return behaviour;
}

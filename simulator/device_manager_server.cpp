// The simulator's side of the peer connection.
#include "simulator/device_manager_server.h"

#include <exception>
#include <utility>

#include "com.morvane.devicemanager/com.morvane.devicemanager.h"
#include "simulator/action_log.h"
#include "simulator/device_folder.h"

namespace {

// Marks a connection whose credential has been accepted.
constexpr const char* kAccepted = "morvane-accepted";
constexpr const char* kConnect = "connect";

}  // namespace

GObjectPointer<GDBusServer> bindDeviceManagerPort(guint16 port, GError** error) {
    g_autofree char* address = g_strdup_printf("tcp:host=127.0.0.1,port=%u", port);
    g_autofree char* guid = g_dbus_generate_guid();
    return GObjectPointer<GDBusServer>(
        g_dbus_server_new_sync(address, G_DBUS_SERVER_FLAGS_AUTHENTICATION_ALLOW_ANONYMOUS, guid,
                               anonymousOnly().get(), nullptr, error));
}

DeviceManagerServer::DeviceManagerServer(SimulatedDevice& device,
                                         const SimulatorBehaviour& behaviour,
                                         std::string credentialRecord,
                                         GObjectPointer<GDBusServer> server)
    : device_(device),
      behaviour_(behaviour),
      credentialRecord_(std::move(credentialRecord)),
      server_(std::move(server)) {
    g_signal_connect(server_.get(), "new-connection", G_CALLBACK(onNewConnection), this);
    g_dbus_server_start(server_.get());
}

DeviceManagerServer::~DeviceManagerServer() {
    behaviour_.stop();
    g_dbus_server_stop(server_.get());
    g_signal_handlers_disconnect_by_data(server_.get(), this);
    for (const auto& peer : peers_) {
        g_signal_handlers_disconnect_by_data(peer.get(), this);
    }
    calls_.clear();  // waits for each
}

gboolean DeviceManagerServer::onNewConnection(GDBusServer* /*server*/, GDBusConnection* peer,
                                              gpointer self) {
    static constexpr GDBusInterfaceVTable kHandlers = {onMethodCall, nullptr, nullptr, {}};
    g_autoptr(GError) error = nullptr;
    if (g_dbus_connection_register_object(peer, kDeviceManagerObject,
                                          morvane_devicemanager_interface_info(), &kHandlers, self,
                                          nullptr, &error) == 0) {
        logAction("new connection", error->message);
        return FALSE;
    }
    g_signal_connect(peer, "closed", G_CALLBACK(onClosed), self);
    static_cast<DeviceManagerServer*>(self)->peers_.emplace_back(
        static_cast<GDBusConnection*>(g_object_ref(peer)));
    return TRUE;
}

// Those that only gave orders, or were turned down, go without a word.
void DeviceManagerServer::onClosed(GDBusConnection* peer, gboolean /*vanished*/, GError* /*error*/,
                                   gpointer self) {
    if (g_object_steal_data(G_OBJECT(peer), kAccepted) != nullptr) {
        logAction("disconnect", "closed");
    }
    static_cast<DeviceManagerServer*>(self)->peers_.remove_if(
        [&](const auto& each) { return each.get() == peer; });
}

void DeviceManagerServer::onMethodCall(GDBusConnection* /*peer*/, const char* /*sender*/,
                                       const char* /*path*/, const char* /*interface*/,
                                       const char* method, GVariant* parameters,
                                       GDBusMethodInvocation* invocation, gpointer self) {
    auto& server = *static_cast<DeviceManagerServer*>(self);
    if (method == std::string("Order")) {
        const char* order = nullptr;
        const char* value = nullptr;
        g_variant_get(parameters, "(^&ay^&ay)", &order, &value);
        server.order(order, value, invocation);
        return;
    }
    const char* operation = nullptr;
    const char* first = nullptr;
    const char* second = nullptr;
    g_variant_get(parameters, "(&s^&ay^&ay)", &operation, &first, &second);
    server.start({invocation, operation, first, second});
}

// Without the credential of a connect.
std::string DeviceManagerServer::Call::action() const {
    if (operation == kConnect) {
        return operation;
    }
    return operation + " " + first + (second.empty() ? "" : " " + second);
}

DeviceManagerServer::Outcome DeviceManagerServer::carryOut(const Call& call) {
    if (call.operation == kConnect) {
        if (behaviour_.now().faults.refuse) {
            throw DeviceError(DeviceManagerStatus::refused, "connection refused");
        }
        if (!credentialRecord_.empty()) {
            requireCredential(credentialRecord_, call.first);
        }
        return {"accepted"};
    }
    if (call.operation == "getBackupSize") {
        const auto needed = device_.backupSize(call.first);
        const auto bytes = behaviour_.now().reportedSize.value_or(needed);
        return {std::to_string(bytes) + " bytes", bytes};
    }
    if (call.operation == "checkBackupFile") {
        device_.checkBackupFile(call.first);
        return {"acceptable"};
    }
    if (call.operation == "checkFirmwareFile") {
        device_.checkFirmwareFile(call.first);
        return {"acceptable"};
    }
    if (call.operation != "backup" && call.operation != "restore" && call.operation != "update") {
        throw DeviceError(DeviceManagerStatus::failed, "no such operation");
    }
    logAction(call.action(), "started");
    const Pace pace = behaviour_.pace();
    if (call.operation == "backup") {
        const auto bytes = device_.backup(call.first, call.second, pace);
        return {"done, " + std::to_string(bytes) + " bytes"};
    }
    if (call.operation == "restore") {
        return {"done, " + device_.restore(call.first, pace)};
    }
    return {"done, firmware " + device_.update(call.first, pace)};
}

void DeviceManagerServer::order(const std::string& order, const std::string& value,
                                GDBusMethodInvocation* invocation) {
    if (!behaviour_.change(order, value)) {
        g_dbus_method_invocation_return_error(invocation, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS,
                                              "no such order");
        return;
    }
    const std::string text = describe(behaviour_.now());
    if (order != kStatusOrder) {
        logAction("device manager", text);
    }
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(s)", text.c_str()));
}

void DeviceManagerServer::start(const Call& call) {
    calls_.remove_if([](const std::future<void>& each) {
        return each.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    });
    calls_.push_back(std::async(std::launch::async, [this, call] { run(call); }));
}

// Whatever happens, the call is answered: its client waits without a limit.
void DeviceManagerServer::run(const Call& call) {
    auto status = DeviceManagerStatus::done;
    Outcome outcome;
    try {
        outcome = workOn(call);
    } catch (const DeviceError& error) {
        status = error.status;
        outcome.message = error.what();
    } catch (const std::exception& error) {
        status = DeviceManagerStatus::failed;
        outcome.message = error.what();
    }
    const std::string text = printable(outcome.message);
    const bool isDone = status == DeviceManagerStatus::done;
    const std::string failed = "FAILED (status " + std::to_string(number(status)) + "): ";
    logAction(call.action(), isDone ? text : failed + text);
    g_dbus_method_invocation_return_value(
        call.invocation, g_variant_new("(xst)", number(status), text.c_str(), outcome.bytes));
}

DeviceManagerServer::Outcome DeviceManagerServer::workOn(const Call& call) {
    auto* const peer = G_OBJECT(g_dbus_method_invocation_get_connection(call.invocation));
    const bool isConnect = call.operation == kConnect;
    if (behaviour_.now().faults.hang) {
        logAction(call.action(), "waits, the device manager hangs");
    }
    if (!behaviour_.waitToAct()) {
        throw DeviceError(DeviceManagerStatus::failed, "the device manager stops");
    }
    if (g_dbus_connection_is_closed(G_DBUS_CONNECTION(peer)) != FALSE) {
        throw DeviceError(DeviceManagerStatus::notConnected, "the caller has gone");
    }
    if (!isConnect && g_object_get_data(peer, kAccepted) == nullptr) {
        throw DeviceError(DeviceManagerStatus::notConnected, "not connected");
    }
    Outcome outcome = carryOut(call);
    if (isConnect) {
        g_object_set_data(peer, kAccepted, GINT_TO_POINTER(1));
    }
    return outcome;
}

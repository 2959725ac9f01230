// The simulator's side of the peer connection.
#include "simulator/device_manager_server.h"

#include <exception>
#include <system_error>
#include <utility>

#include "simulator/action_log.h"
#include "simulator/credential_record.h"
#include "simulator/peer_protocol.h"

namespace {

// Marks a connection whose credential has been accepted.
constexpr const char* kAccepted = "morvane-accepted";

void markAccepted(GDBusMethodInvocation* invocation) {
    GDBusConnection* const connection = g_dbus_method_invocation_get_connection(invocation);
    g_object_set_data(G_OBJECT(connection), kAccepted, GINT_TO_POINTER(1));
}

bool isAccepted(GDBusMethodInvocation* invocation) {
    GDBusConnection* const connection = g_dbus_method_invocation_get_connection(invocation);
    return g_object_get_data(G_OBJECT(connection), kAccepted) != nullptr;
}

// Those that only gave orders, or were turned down, go without a word.
void onClosed(GDBusConnection* connection, gboolean /*vanished*/, GError* /*error*/,
              gpointer skeleton) {
    g_dbus_interface_skeleton_unexport_from_connection(G_DBUS_INTERFACE_SKELETON(skeleton),
                                                       connection);
    if (g_object_steal_data(G_OBJECT(connection), kAccepted) != nullptr) {
        logAction("disconnect", "closed");
    }
}

// The skeleton keeps the connection until it is closed.
bool exportUntilClosed(GDBusInterfaceSkeleton* skeleton, GDBusConnection* connection,
                       const char* path, GError** error) {
    if (g_dbus_interface_skeleton_export(skeleton, connection, path, error) == FALSE) {
        return false;
    }
    g_signal_connect_object(connection, "closed", G_CALLBACK(onClosed), skeleton,
                            static_cast<GConnectFlags>(0));
    return true;
}

void unexport(GDBusInterfaceSkeleton* skeleton) {
    if (g_dbus_interface_skeleton_get_connection(skeleton) != nullptr) {
        g_dbus_interface_skeleton_unexport(skeleton);
    }
}

}  // namespace

// One handler a method: names the action and says what the device does for it.
struct CallHandlers {
    using Server = DeviceManagerServer;
    using Outcome = DeviceManagerServer::Outcome;

    static Server& serverOf(gpointer server) { return *static_cast<Server*>(server); }

    static gboolean connect(MorvaneDevicemanager* /*skeleton*/, GDBusMethodInvocation* invocation,
                            const char* credential, gpointer data) {
        Server& server = serverOf(data);
        Server::Call call{invocation, "connect", {}};
        call.isConnect = true;
        call.work = [&server, text = std::string(credential)] {
            const SimulatorBehaviour behaviour = server.behaviour_.now();
            if (behaviour.refuse) {
                throw DeviceError(DeviceManagerStatus::refused, "connection refused");
            }
            if (!behaviour.credentialRecord.empty()) {
                requireCredential(behaviour.credentialRecord, text);
            }
            return Outcome{"accepted"};
        };
        server.start(call);
        return TRUE;
    }

    static gboolean backup(MorvaneDevicemanager* /*skeleton*/, GDBusMethodInvocation* invocation,
                           const char* path, const char* kind, gpointer data) {
        Server& server = serverOf(data);
        Server::Call call{invocation, std::string("backup ") + kind + " to " + path, {}};
        call.isJob = true;
        call.work = [&server, file = std::string(path), word = std::string(kind)] {
            const auto bytes = server.device_.backup(file, word, server.behaviour_.pace());
            return Outcome{"done, " + std::to_string(bytes) + " bytes"};
        };
        server.start(call);
        return TRUE;
    }

    static gboolean restore(MorvaneDevicemanager* /*skeleton*/, GDBusMethodInvocation* invocation,
                            const char* path, gpointer data) {
        Server& server = serverOf(data);
        Server::Call call{invocation, std::string("restore from ") + path, {}};
        call.isJob = true;
        call.work = [&server, file = std::string(path)] {
            return Outcome{"done, " + server.device_.restore(file, server.behaviour_.pace())};
        };
        server.start(call);
        return TRUE;
    }

    static gboolean update(MorvaneDevicemanager* /*skeleton*/, GDBusMethodInvocation* invocation,
                           const char* path, gpointer data) {
        Server& server = serverOf(data);
        Server::Call call{invocation, std::string("update from ") + path, {}};
        call.isJob = true;
        call.work = [&server, file = std::string(path)] {
            return Outcome{"done, firmware " +
                           server.device_.update(file, server.behaviour_.pace())};
        };
        server.start(call);
        return TRUE;
    }

    static gboolean getBackupSize(MorvaneDevicemanager* /*skeleton*/,
                                  GDBusMethodInvocation* invocation, const char* kind,
                                  gpointer data) {
        Server& server = serverOf(data);
        Server::Call call{invocation, std::string("size of backup ") + kind, {}};
        call.answersBytes = true;
        call.work = [&server, word = std::string(kind)] {
            const auto needed = server.device_.backupSize(word);
            const auto bytes = server.behaviour_.now().reportedSize.value_or(needed);
            return Outcome{std::to_string(bytes) + " bytes", bytes};
        };
        server.start(call);
        return TRUE;
    }

    static gboolean checkBackupFile(MorvaneDevicemanager* /*skeleton*/,
                                    GDBusMethodInvocation* invocation, const char* path,
                                    gpointer data) {
        Server& server = serverOf(data);
        Server::Call call{invocation, std::string("check backup file ") + path, {}};
        call.work = [&server, file = std::string(path)] {
            return Outcome{"acceptable, " + server.device_.checkBackupFile(file)};
        };
        server.start(call);
        return TRUE;
    }

    static gboolean checkFirmwareFile(MorvaneDevicemanager* /*skeleton*/,
                                      GDBusMethodInvocation* invocation, const char* path,
                                      gpointer data) {
        Server& server = serverOf(data);
        Server::Call call{invocation, std::string("check firmware file ") + path, {}};
        call.work = [&server, file = std::string(path)] {
            return Outcome{"acceptable, " + server.device_.checkFirmwareFile(file)};
        };
        server.start(call);
        return TRUE;
    }

    static gboolean order(MorvaneDevicemanagerControl* /*skeleton*/,
                          GDBusMethodInvocation* invocation, const char* order, const char* value,
                          gpointer data) {
        LiveBehaviour& behaviour = serverOf(data).behaviour_;
        if (!behaviour.change(order, value)) {
            g_dbus_method_invocation_return_error(invocation, G_DBUS_ERROR,
                                                  G_DBUS_ERROR_INVALID_ARGS, "no such order");
            return TRUE;
        }
        const std::string text = describe(behaviour.now());
        if (order != std::string(kStatusOrder)) {
            logAction("device manager", text);
        }
        g_dbus_method_invocation_return_value(invocation, g_variant_new("(s)", text.c_str()));
        return TRUE;
    }

    static gboolean newConnection(GDBusServer* /*peers*/, GDBusConnection* connection,
                                  gpointer data) {
        g_autoptr(GError) error = nullptr;
        if (!serverOf(data).exportOn(connection, &error)) {
            logAction("new connection", error->message);
            return FALSE;
        }
        return TRUE;
    }
};

GObjectPointer<GDBusServer> bindDeviceManagerPort(guint16 port, GError** error) {
    g_autofree char* address = g_strdup_printf("tcp:host=127.0.0.1,port=%u", port);
    g_autofree char* guid = g_dbus_generate_guid();
    return GObjectPointer<GDBusServer>(
        g_dbus_server_new_sync(address, G_DBUS_SERVER_FLAGS_AUTHENTICATION_ALLOW_ANONYMOUS, guid,
                               anonymousOnly().get(), nullptr, error));
}

DeviceManagerServer::DeviceManagerServer(SimulatedDevice& device, SimulatorBehaviour behaviour,
                                         GObjectPointer<GDBusServer> server)
    : device_(device),
      behaviour_(std::move(behaviour)),
      skeleton_(morvane_devicemanager_skeleton_new()),
      control_(morvane_devicemanager_control_skeleton_new()),
      server_(std::move(server)) {
    const std::pair<const char*, GCallback> handlers[] = {
        {"handle-connect", G_CALLBACK(CallHandlers::connect)},
        {"handle-backup", G_CALLBACK(CallHandlers::backup)},
        {"handle-restore", G_CALLBACK(CallHandlers::restore)},
        {"handle-update", G_CALLBACK(CallHandlers::update)},
        {"handle-get-backup-size", G_CALLBACK(CallHandlers::getBackupSize)},
        {"handle-check-backup-file", G_CALLBACK(CallHandlers::checkBackupFile)},
        {"handle-check-firmware-file", G_CALLBACK(CallHandlers::checkFirmwareFile)},
    };
    for (const auto& [signal, handler] : handlers) {
        g_signal_connect(skeleton_.get(), signal, handler, this);
    }
    g_signal_connect(control_.get(), "handle-order", G_CALLBACK(CallHandlers::order), this);
    g_signal_connect(server_.get(), "new-connection", G_CALLBACK(CallHandlers::newConnection),
                     this);
    g_dbus_server_start(server_.get());
}

DeviceManagerServer::~DeviceManagerServer() {
    behaviour_.stop();
    g_dbus_server_stop(server_.get());
    g_signal_handlers_disconnect_by_data(server_.get(), this);
    g_signal_handlers_disconnect_by_data(skeleton_.get(), this);
    g_signal_handlers_disconnect_by_data(control_.get(), this);
    calls_.clear();  // waits for each
    unexport(G_DBUS_INTERFACE_SKELETON(skeleton_.get()));
    unexport(G_DBUS_INTERFACE_SKELETON(control_.get()));
}

bool DeviceManagerServer::exportOn(GDBusConnection* connection, GError** error) {
    return exportUntilClosed(G_DBUS_INTERFACE_SKELETON(skeleton_.get()), connection,
                             kDeviceManagerObject, error) &&
           exportUntilClosed(G_DBUS_INTERFACE_SKELETON(control_.get()), connection, kControlObject,
                             error);
}

void DeviceManagerServer::start(const Call& call) {
    calls_.remove_if([](const std::future<void>& each) {
        return each.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    });
    try {
        calls_.push_back(std::async(std::launch::async, [this, call] { run(call); }));
    } catch (const std::system_error& error) {
        finish(call, DeviceManagerStatus::failed, {error.what()});
    }
}

// Whatever happens, the call is answered: its client waits without a limit.
void DeviceManagerServer::run(const Call& call) {
    try {
        finish(call, DeviceManagerStatus::done, workOn(call));
    } catch (const DeviceError& error) {
        finish(call, error.status, {error.what()});
    } catch (const std::exception& error) {
        finish(call, DeviceManagerStatus::failed, {error.what()});
    }
}

void DeviceManagerServer::finish(const Call& call, DeviceManagerStatus status,
                                 const Outcome& outcome) {
    const auto number = static_cast<gint64>(status);
    const std::string text = printable(outcome.message);
    logAction(call.action, status == DeviceManagerStatus::done
                               ? text
                               : "FAILED (status " + std::to_string(number) + "): " + text);
    GVariant* const reply = call.answersBytes
                                ? g_variant_new("(xst)", number, text.c_str(), outcome.bytes)
                                : g_variant_new("(xs)", number, text.c_str());
    g_dbus_method_invocation_return_value(call.invocation, reply);
}

DeviceManagerServer::Outcome DeviceManagerServer::workOn(const Call& call) {
    if (behaviour_.now().hang) {
        logAction(call.action, "waits, the device manager hangs");
    }
    if (!behaviour_.waitToAct()) {
        throw DeviceError(DeviceManagerStatus::failed, "the device manager stops");
    }
    if (g_dbus_connection_is_closed(g_dbus_method_invocation_get_connection(call.invocation))) {
        throw DeviceError(DeviceManagerStatus::notConnected, "the caller has gone");
    }
    if (!call.isConnect && !isAccepted(call.invocation)) {
        throw DeviceError(DeviceManagerStatus::notConnected, "not connected");
    }
    if (call.isJob) {
        logAction(call.action, "started");
    }
    Outcome outcome = call.work();
    if (call.isConnect) {
        markAccepted(call.invocation);
    }
    return outcome;
}

// The stand-in for the closed device-manager client library: each controller is a connection to the
// simulator.
#include "transfer/platform/device_manager_client.h"

#include <gio/gio.h>

#include <new>

#include "com.morvane.devicemanager/com.morvane.devicemanager.h"
#include "simulator/device_manager_status.h"
#include "simulator/gobject_pointer.h"
#include "simulator/peer_protocol.h"

namespace {

constexpr std::int64_t statusOf(DeviceManagerStatus status) {
    return static_cast<std::int64_t>(status);
}

// The empty text in place of null.
const char* textOf(const char* text) {
    return text == nullptr ? "" : text;
}

GObjectPointer<GDBusConnection> openConnection(const char* endpoint, GError** error) {
    const GObjectPointer<GSocketClient> client(g_socket_client_new());
    g_socket_client_set_enable_proxy(client.get(), FALSE);
    const GObjectPointer<GSocketConnection> stream(g_socket_client_connect_to_host(
        client.get(), endpoint, kDeviceManagerPort, nullptr, error));
    if (stream == nullptr) {
        return nullptr;
    }
    return GObjectPointer<GDBusConnection>(g_dbus_connection_new_sync(
        G_IO_STREAM(stream.get()), nullptr, G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT,
        anonymousOnly().get(), nullptr, error));
}

// A check or a job takes as long as it takes: no call has a time limit.
GObjectPointer<MorvaneDevicemanager> openProxy(GDBusConnection* connection, GError** error) {
    constexpr auto kFlags = static_cast<GDBusProxyFlags>(G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES |
                                                         G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS);
    GObjectPointer<MorvaneDevicemanager> proxy(morvane_devicemanager_proxy_new_sync(
        connection, kFlags, nullptr, kDeviceManagerObject, nullptr, error));
    if (proxy != nullptr) {
        g_dbus_proxy_set_default_timeout(G_DBUS_PROXY(proxy.get()), G_MAXINT);
    }
    return proxy;
}

// The connection of one controller, used by one thread at a time. Messages go to the log object,
// which is borrowed until the link is destroyed.
class DeviceManagerLink {
public:
    DeviceManagerLink() = default;
    DeviceManagerLink(const DeviceManagerLink&) = delete;
    DeviceManagerLink& operator=(const DeviceManagerLink&) = delete;
    ~DeviceManagerLink() { disconnect(); }

    void setLog(IBRLog* log) { log_ = log; }

    // Returns 0 once the simulator has accepted the credential: the given one or, when it is empty,
    // what the log object has to offer.
    std::int64_t connect(const char* endpoint, const char* credential) {
        disconnect();
        g_autoptr(GError) error = nullptr;
        connection_ = openConnection(textOf(endpoint), &error);
        if (connection_ != nullptr) {
            proxy_ = openProxy(connection_.get(), &error);
        }
        if (proxy_ == nullptr) {
            report("connect", statusOf(DeviceManagerStatus::unreachable), error->message);
            disconnect();
            return statusOf(DeviceManagerStatus::unreachable);
        }
        const char* const shown = credentialFor(textOf(credential));
        const std::int64_t status =
            call("connect", [shown](auto* proxy, auto* result, auto* message, auto* failure) {
                return morvane_devicemanager_call_connect_sync(proxy, shown, result, message,
                                                               nullptr, failure);
            });
        if (status != 0) {
            disconnect();
        }
        return status;
    }

    void disconnect() {
        proxy_.reset();
        if (connection_ == nullptr) {
            return;
        }
        // A connection that the other end has closed already is as good as closed.
        g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
        connection_.reset();
        report("disconnect", 0, "closed");
    }

    // Runs `method(proxy, &status, &message, &error)`, which returns FALSE when no answer came, and
    // returns the status.
    template <typename Method>
    std::int64_t call(const char* action, Method method) {
        if (proxy_ == nullptr) {
            report(action, statusOf(DeviceManagerStatus::notConnected), "not connected");
            return statusOf(DeviceManagerStatus::notConnected);
        }
        gint64 status = 0;
        g_autofree gchar* message = nullptr;
        g_autoptr(GError) error = nullptr;
        if (method(proxy_.get(), &status, &message, &error) == FALSE) {
            report(action, statusOf(DeviceManagerStatus::unreachable), error->message);
            return statusOf(DeviceManagerStatus::unreachable);
        }
        report(action, status, message);
        return status;
    }

private:
    const char* credentialFor(const char* given) {
        const char* stored = nullptr;
        if (*given != '\0' || log_ == nullptr) {
            return given;
        }
        const int result = log_->readCredential(&stored);
        if (result != 0 || stored == nullptr) {
            log_->logError("connect: no credential, readCredential returned %d", result);
            return given;
        }
        return stored;
    }

    void report(const char* action, std::int64_t status, const char* message) {
        if (log_ == nullptr) {
            return;
        }
        if (status == 0) {
            log_->log("%s: %s", action, message);
        } else {
            log_->logError("%s: %s (status %d)", action, message, static_cast<int>(status));
        }
    }

    IBRLog* log_ = nullptr;
    GObjectPointer<GDBusConnection> connection_;
    GObjectPointer<MorvaneDevicemanager> proxy_;
};

class BackupRestoreController final : public IBRController {
public:
    std::int64_t connect(const char* endpoint, const char* credential) override {
        return link_.connect(endpoint, credential);
    }
    void disconnect() override { link_.disconnect(); }
    void setLog(IBRLog* log) override { link_.setLog(log); }

    std::int64_t backup(const char* path, const char* kind) override {
        return link_.call("backup", [=](auto* proxy, auto* status, auto* message, auto* error) {
            return morvane_devicemanager_call_backup_sync(proxy, textOf(path), textOf(kind), status,
                                                          message, nullptr, error);
        });
    }

    std::int64_t restore(const char* path) override {
        return link_.call("restore", [=](auto* proxy, auto* status, auto* message, auto* error) {
            return morvane_devicemanager_call_restore_sync(proxy, textOf(path), status, message,
                                                           nullptr, error);
        });
    }

    std::int64_t getBackupSize(const char* kind, std::uint64_t* bytes) override {
        guint64 size = 0;
        const std::int64_t status =
            link_.call("getBackupSize", [&](auto* proxy, auto* result, auto* message, auto* error) {
                return morvane_devicemanager_call_get_backup_size_sync(
                    proxy, textOf(kind), result, message, &size, nullptr, error);
            });
        if (status == 0 && bytes != nullptr) {
            *bytes = size;
        }
        return status;
    }

    std::int64_t checkBackupFile(const char* path) override {
        return link_.call("checkBackupFile",
                          [=](auto* proxy, auto* status, auto* message, auto* error) {
                              return morvane_devicemanager_call_check_backup_file_sync(
                                  proxy, textOf(path), status, message, nullptr, error);
                          });
    }

    void reserved7(const char* /*text*/) override {}
    void reserved8() override {}
    void setWorkDirectory(const char* /*path*/) override {}  // the simulator needs no working files
private:
    DeviceManagerLink link_;
};

class FirmwareUpdateController final : public IFUController {
public:
    std::int64_t connect(const char* endpoint, const char* credential) override {
        return link_.connect(endpoint, credential);
    }
    void disconnect() override { link_.disconnect(); }

    std::int64_t update(const char* path) override {
        return link_.call("update", [=](auto* proxy, auto* status, auto* message, auto* error) {
            return morvane_devicemanager_call_update_sync(proxy, textOf(path), status, message,
                                                          nullptr, error);
        });
    }

    void reserved3() override {}
    void reserved4() override {}
    void setLog(IBRLog* log) override { link_.setLog(log); }
    void reserved6(const char* /*text*/) override {}
    void reserved7() override {}
    void setWorkDirectory(const char* /*path*/) override {}  // the simulator needs no working files
    void reserved9() override {}
    void reserved10() override {}
    void reserved11() override {}
    void reserved12() override {}

    std::int64_t checkFirmwareFile(const char* path) override {
        return link_.call("checkFirmwareFile",
                          [=](auto* proxy, auto* status, auto* message, auto* error) {
                              return morvane_devicemanager_call_check_firmware_file_sync(
                                  proxy, textOf(path), status, message, nullptr, error);
                          });
    }

private:
    DeviceManagerLink link_;
};

}  // namespace

IBRController* BRCreateController() {
    return new (std::nothrow) BackupRestoreController;
}

void BRDestroyController(IBRController* controller) {
    delete static_cast<BackupRestoreController*>(controller);
}

IFUController* FUCreateController() {
    return new (std::nothrow) FirmwareUpdateController;
}

void FUDestroyController(IFUController* controller) {
    delete static_cast<FirmwareUpdateController*>(controller);
}

// The stub of the closed device-manager client library: each controller is a connection to the
// simulator.
#include "transfer/platform/device_manager_client.h"

#include <gio/gio.h>

#include <cstdint>
#include <new>

#include "simulator/device_error.h"
#include "simulator/peer_protocol.h"

namespace {

// The empty string in place of null.
const char* textOf(const char* text) {
    return text == nullptr ? "" : text;
}

// What both controllers have in common: a connection, used by one thread at a time. Messages go to
// the log object, which is borrowed until the controller is destroyed.
template <typename Interface>
class Controller : public Interface {
public:
    Controller() = default;
    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;

    void setLog(IBRLog* log) final { log_ = log; }
    void setWorkDirectory(const char* /*path*/) final {}  // the simulator needs no working files

    // Returns 0 once the simulator has accepted the credential: the given one or, when it is empty,
    // what the log object has to offer.
    std::int64_t connect(const char* endpoint, const char* credential) final {
        disconnect();
        g_autoptr(GError) error = nullptr;
        connection_ = openConnection(textOf(endpoint), &error);
        if (connection_ == nullptr) {
            return report("connect", number(DeviceManagerStatus::unreachable), error->message);
        }
        const std::int64_t status = request("connect", credentialFor(textOf(credential)));
        if (status != 0) {
            disconnect();
        }
        return status;
    }

    void disconnect() final {
        if (connection_ == nullptr) {
            return;
        }
        // A connection that the other end has closed already is as good as closed.
        g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
        connection_.reset();
        report("disconnect", 0, "closed");
    }

protected:
    ~Controller() { disconnect(); }

    // Has the simulator carry out an operation, and returns the status. Only a success sets *bytes.
    std::int64_t request(const char* operation, const char* first, const char* second = nullptr,
                         std::uint64_t* bytes = nullptr) {
        if (connection_ == nullptr) {
            return report(operation, number(DeviceManagerStatus::notConnected), "not connected");
        }
        g_autoptr(GError) error = nullptr;
        // A check or a job takes as long as it takes: no call has a time limit.
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
            connection_.get(), nullptr, kDeviceManagerObject, kDeviceManagerInterface, "Request",
            g_variant_new("(s^ay^ay)", operation, textOf(first), textOf(second)),
            G_VARIANT_TYPE("(xst)"), G_DBUS_CALL_FLAGS_NONE, G_MAXINT, nullptr, &error);
        if (reply == nullptr) {
            return report(operation, number(DeviceManagerStatus::unreachable), error->message);
        }
        gint64 status = 0;
        const char* message = nullptr;
        guint64 number = 0;
        g_variant_get(reply, "(x&st)", &status, &message, &number);
        if (status == 0 && bytes != nullptr) {
            *bytes = number;
        }
        return report(operation, status, message);
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

    // Returns the status.
    std::int64_t report(const char* action, std::int64_t status, const char* message) {
        if (log_ != nullptr && status == 0) {
            log_->log("%s: %s", action, message);
        } else if (log_ != nullptr) {
            log_->logError("%s: %s (status %d)", action, message, static_cast<int>(status));
        }
        return status;
    }

    IBRLog* log_ = nullptr;
    GObjectPointer<GDBusConnection> connection_;
};

class BackupRestoreController final : public Controller<IBRController> {
public:
    std::int64_t backup(const char* path, const char* kind) override {
        return request("backup", path, kind);
    }
    std::int64_t restore(const char* path) override { return request("restore", path); }
    std::int64_t getBackupSize(const char* kind, std::uint64_t* bytes) override {
        return request("getBackupSize", kind, nullptr, bytes);
    }
    std::int64_t checkBackupFile(const char* path) override {
        return request("checkBackupFile", path);
    }
    void reserved7(const char* /*text*/) override {}
    void reserved8() override {}
};

class FirmwareUpdateController final : public Controller<IFUController> {
public:
    std::int64_t update(const char* path) override { return request("update", path); }
    std::int64_t checkFirmwareFile(const char* path) override {
        return request("checkFirmwareFile", path);
    }
    void reserved3() override {}
    void reserved4() override {}
    void reserved6(const char* /*text*/) override {}
    void reserved7() override {}
    void reserved9() override {}
    void reserved10() override {}
    void reserved11() override {}
    void reserved12() override {}
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

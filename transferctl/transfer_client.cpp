// One life of the service, called through the generated proxy.
#include "transferctl/transfer_client.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "transferctl/bus_failure.h"
#include "transferctl/reply_decoding.h"

namespace transferctl {
namespace {

// How long a service that has just come up may take to show its objects.
constexpr std::chrono::seconds kStartUp{2};
constexpr std::chrono::milliseconds kStartUpPause{10};

std::string ownerOrFailure(GDBusConnection* connection, const Deadline& deadline) {
    const std::optional<std::string> owner = ownerOfService(connection, deadline);
    if (!owner) {
        throw Failure(ExitStatus::kNoService, "the service is not running");
    }
    return *owner;
}

ObjectHolder<MorvaneTransferSac> proxyFor(GDBusConnection* connection, const std::string& owner) {
    const auto flags = static_cast<GDBusProxyFlags>(G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES |
                                                    G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS |
                                                    G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START);
    g_autoptr(GError) error = nullptr;
    ObjectHolder<MorvaneTransferSac> proxy(morvane_transfer_sac_proxy_new_sync(
        connection, flags, owner.c_str(), kTransferPath, nullptr, &error));
    if (!proxy) {
        throw failureOf(error);
    }
    return proxy;
}

}  // namespace

TransferClient::TransferClient(const Deadline& deadline)
    : deadline_(deadline),
      connection_(connectToBus(deadline_)),
      owner_(ownerOrFailure(connection_.get(), deadline_)),
      proxy_(proxyFor(connection_.get(), owner_)) {}

void TransferClient::call(const Attempt& attempt) {
    const Deadline startUp(kStartUp);
    while (true) {
        g_dbus_proxy_set_default_timeout(G_DBUS_PROXY(proxy_.get()), deadline_.remaining());
        g_autoptr(GError) error = nullptr;
        if (attempt(proxy_.get(), &error) != FALSE) {
            return;
        }
        if (!objectsAreMissing(error) || startUp.hasPassed()) {
            throw failureOf(error);
        }
        std::this_thread::sleep_for(kStartUpPause);
    }
}

std::vector<Stick> TransferClient::sticks() {
    g_autoptr(GVariant) reply = nullptr;
    call([&reply](MorvaneTransferSac* proxy, GError** error) {
        return morvane_transfer_sac_call_get_usbstick_details_sync(proxy, &reply, nullptr, error);
    });
    return decodeSticks(reply);
}

bool TransferClient::isMounted(const std::string& stick) {
    const std::vector<Stick> mounted = sticks();
    return std::any_of(mounted.begin(), mounted.end(),
                       [&stick](const Stick& one) { return one.name == stick; });
}

std::vector<File> TransferClient::list(ListCall method, const StickPath& path) {
    g_autoptr(GVariant) reply = nullptr;
    call([&](MorvaneTransferSac* proxy, GError** error) {
        return method(proxy, path.stick.c_str(), path.path.c_str(), &reply, nullptr, error);
    });
    return decodeFiles(reply, path.stick);
}

std::vector<File> TransferClient::directory(const StickPath& path) {
    return list(morvane_transfer_sac_call_get_directory_index_sync, path);
}

std::vector<File> TransferClient::backups(const StickPath& path) {
    return list(morvane_transfer_sac_call_get_directory_index_for_backup_sync, path);
}

std::vector<File> TransferClient::updates(const StickPath& path) {
    return list(morvane_transfer_sac_call_get_directory_index_for_update_sync, path);
}

bool TransferClient::change(FileCall method, const StickPath& path) {
    gboolean done = FALSE;
    call([&](MorvaneTransferSac* proxy, GError** error) {
        return method(proxy, path.stick.c_str(), path.path.c_str(), &done, nullptr, error);
    });
    return done != FALSE;
}

bool TransferClient::createDirectory(const StickPath& path) {
    return change(morvane_transfer_sac_call_create_directory_sync, path);
}

bool TransferClient::deleteFile(const StickPath& path) {
    return change(morvane_transfer_sac_call_delete_file_sync, path);
}

std::string TransferClient::backupName() {
    g_autofree gchar* name = nullptr;
    call([&name](MorvaneTransferSac* proxy, GError** error) {
        return morvane_transfer_sac_call_get_backup_file_name_sync(proxy, 1, &name, nullptr, error);
    });
    return name;
}

int TransferClient::start(JobCall method, const StickPath& file) {
    gint code = 0;
    call([&](MorvaneTransferSac* proxy, GError** error) {
        return method(proxy, file.stick.c_str(), file.path.c_str(), &code, nullptr, error);
    });
    return code;
}

int TransferClient::startBackup(const StickPath& file, std::uint32_t type) {
    gint code = 0;
    call([&](MorvaneTransferSac* proxy, GError** error) {
        return morvane_transfer_sac_call_do_backup_sync(proxy, file.stick.c_str(), type,
                                                        file.path.c_str(), &code, nullptr, error);
    });
    return code;
}

int TransferClient::startRestore(const StickPath& file) {
    return start(morvane_transfer_sac_call_do_restore_sync, file);
}

int TransferClient::startUpdate(const StickPath& file) {
    return start(morvane_transfer_sac_call_do_osupdate_sync, file);
}

}  // namespace transferctl

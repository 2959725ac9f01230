// One life of the service, called through the generated proxy.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "com.morvane.transfer/dbus-adaptor.h"
#include "transferctl/bus_connection.h"
#include "transferctl/deadline.h"
#include "transferctl/records.h"
#include "transferctl/stick_path.h"

namespace transferctl {

// Every call goes to the process that owned the service's name when the client was made: one that
// took its place meanwhile is another life and is not called. All operations throw Failure: refused
// by the bus's policy, service gone, reply not understood, time limit. One thread.
class TransferClient {
public:
    explicit TransferClient(const Deadline& deadline);

    GDBusConnection* connection() const { return connection_.get(); }
    const Deadline& deadline() const { return deadline_; }

    // The unique name of this life.
    const std::string& owner() const { return owner_; }

    std::vector<Stick> sticks();
    bool isMounted(const std::string& stick);

    // One directory; empty also when there is none.
    std::vector<File> directory(const StickPath& path);

    // The tree below, what the device manager accepts of it; some 30 files at most.
    std::vector<File> backups(const StickPath& path);
    std::vector<File> updates(const StickPath& path);

    // false: refused; true: tried.
    bool createDirectory(const StickPath& path);
    // true: gone.
    bool deleteFile(const StickPath& path);

    // A proposed name; empty when the device's name cannot be read.
    std::string backupName();

    // Result codes; 0 is "started".
    int startBackup(const StickPath& file, std::uint32_t type);
    int startRestore(const StickPath& file);
    int startUpdate(const StickPath& file);

private:
    using Attempt = std::function<gboolean(MorvaneTransferSac*, GError**)>;
    using ListCall = gboolean (*)(MorvaneTransferSac*, const gchar*, const gchar*, GVariant**,
                                  GCancellable*, GError**);
    using JobCall = gboolean (*)(MorvaneTransferSac*, const gchar*, const gchar*, gint*,
                                 GCancellable*, GError**);
    using FileCall = gboolean (*)(MorvaneTransferSac*, const gchar*, const gchar*, gboolean*,
                                  GCancellable*, GError**);

    void call(const Attempt& attempt);
    std::vector<File> list(ListCall method, const StickPath& path);
    bool change(FileCall method, const StickPath& path);
    int start(JobCall method, const StickPath& file);

    Deadline deadline_;
    ObjectHolder<GDBusConnection> connection_;
    std::string owner_;
    ObjectHolder<MorvaneTransferSac> proxy_;
};

}  // namespace transferctl

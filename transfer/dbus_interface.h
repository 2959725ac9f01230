// The transfer interface com.morvane.transfer.sac.
#pragma once

#include <gio/gio.h>

#include <memory>

#include "com.morvane.scctrl/com.morvane.scctrl.h"
#include "com.morvane.transfer/dbus-adaptor.h"
#include "service/gdbus_interface_base.h"
#include "transfer/reply_encoding.h"
#include "transfer/tf_mngr.h"

// Answers every method of the transfer interface with the manager that it owns. One object for
// the life of the process. Main-loop thread only.
class DBusInterface : public GDBusInterfaceBase {
public:
    // The single object, created on first use. Kept: it is never destroyed, so that no destructor
    // runs inside exit(). First used on the main thread. Its creation runs the transfer script.
    static DBusInterface* getInstance();

    ~DBusInterface() override;

    // Connects every method signal, then the applet-control client.
    void connectHandlers() override;

    // The manager; owned by this object.
    TfMngr& manager() { return *tfMngr_; }

    // One operation a method (request_handlers.cpp): asks the manager and completes `invocation`,
    // always with a value and never with an error. Strings are borrowed for the call.
    void getUsbStickDetails(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation);
    void getStickDetailsWithCount(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation);
    void validateBackupSize(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                            guint backupType, const gchar* mntId);
    void getBackupFileName(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                           guint backupType);
    void getRestoreFilesList(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                             const gchar* mntId, const gchar* path);
    void getUpdateFilesList(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                            const gchar* mntId, const gchar* path);
    void getBackupFilesList(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                            const gchar* mntId, const gchar* path);
    void deleteFile(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                    const gchar* mntId, const gchar* filePath);
    void createDirectory(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                         const gchar* mntId, const gchar* dirPath);
    void doOsUpdate(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                    const gchar* mntId, const gchar* filePath);
    void doBackup(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                  const gchar* mntId, guint backupType, const gchar* backupFilePath);
    void doRestore(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                   const gchar* mntId, const gchar* filePath);
    void getDirectoryIndex(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                           const gchar* mntId, const gchar* path);
    void getDirectoryIndexForUpdate(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                                    const gchar* mntId, const gchar* path);
    void getDirectoryIndexForBackup(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                                    const gchar* mntId, const gchar* path);

private:
    DBusInterface();

    MorvaneScctrl* scctrlProxy_ = nullptr;  // lives as long as the process
    GError* proxyError_ = nullptr;  // kept as received, never freed
    std::unique_ptr<TfMngr> tfMngr_;
};

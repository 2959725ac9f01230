// The transfer interface: its one object and the connection of its handlers.
#include "transfer/dbus_interface.h"

#include "transfer/applet_client.h"

namespace {

// Turns a member operation into a handler of the generated skeleton's signal. A handler claims
// every call.
template <auto operation>
struct Handler;

template <typename... Arguments, void (DBusInterface::*operation)(
                                     MorvaneTransferSac*, GDBusMethodInvocation*, Arguments...)>
struct Handler<operation> {
    static gboolean handle(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                           Arguments... arguments, gpointer /*data*/) {
        (DBusInterface::getInstance()->*operation)(skeleton, invocation, arguments...);
        return TRUE;
    }
};

struct SignalHandler {
    const char* signal;
    GCallback handler;
};

template <auto operation>
SignalHandler handle(const char* signal) {
    return {signal, G_CALLBACK(Handler<operation>::handle)};
}

}  // namespace

DBusInterface::DBusInterface()
    : GDBusInterfaceBase(G_DBUS_INTERFACE_SKELETON(morvane_transfer_sac_skeleton_new())),
      tfMngr_(std::make_unique<TfMngr>()) {}

DBusInterface::~DBusInterface() = default;

DBusInterface* DBusInterface::getInstance() {
    static auto* const kInstance = new DBusInterface;
    return kInstance;
}

void DBusInterface::connectHandlers() {
    using Self = DBusInterface;
    const SignalHandler handlers[] = {
        handle<&Self::getUsbStickDetails>("handle-get-usbstick-details"),
        handle<&Self::getStickDetailsWithCount>("handle-get-stick-details-with-count"),
        handle<&Self::validateBackupSize>("handle-validate-backup-size"),
        handle<&Self::getBackupFileName>("handle-get-backup-file-name"),
        handle<&Self::getRestoreFilesList>("handle-get-restore-files-list"),
        handle<&Self::getUpdateFilesList>("handle-get-update-files-list"),
        handle<&Self::getBackupFilesList>("handle-get-backup-files-list"),
        handle<&Self::deleteFile>("handle-delete-file"),
        handle<&Self::createDirectory>("handle-create-directory"),
        handle<&Self::doOsUpdate>("handle-do-osupdate"),
        handle<&Self::doBackup>("handle-do-backup"),
        handle<&Self::doRestore>("handle-do-restore"),
        handle<&Self::getDirectoryIndex>("handle-get-directory-index"),
        handle<&Self::getDirectoryIndexForUpdate>("handle-get-directory-index-for-update"),
        handle<&Self::getDirectoryIndexForBackup>("handle-get-directory-index-for-backup"),
    };
    for (const SignalHandler& entry : handlers) {
        g_signal_connect(getSkeleton(), entry.signal, entry.handler, nullptr);
    }
    // Kept: before the export of this object, so that the export waits for the applet control.
    scctrlProxy_ = connectAppletClient(&proxyError_);
}

// One operation a bus method: ask the manager, encode, complete the invocation.
#include <syslog.h>

#include "service/heap.h"
#include "service/service_log.h"
#include "transfer/dbus_interface.h"

namespace {

using reply::EncodedFiles;
using reply::KindWord;

// GDBus's own thread frees a reply, after it has sent it.
void releaseHeapOnceSent(GDBusConnection* connection) {
    g_dbus_connection_flush(
        connection, nullptr, [](GObject*, GAsyncResult*, gpointer) { releaseHeap(); }, nullptr);
}

// Says how much of a list the bus could not carry.
EncodedFiles logOmitted(EncodedFiles encoded, std::size_t listed,
                        GDBusMethodInvocation* invocation) {
    if (encoded.records < listed) {
        serviceLog(LOG_INFO, log_tag::kInfo, "%s: %zu of %zu entries left out of the reply",
                   g_dbus_method_invocation_get_method_name(invocation), listed - encoded.records,
                   listed);
    }
    return encoded;
}

GVariant* encodeIndex(const std::vector<FileEntry>& entries, GDBusMethodInvocation* invocation) {
    return logOmitted(reply::fileArray(entries), entries.size(), invocation).value;
}

EncodedFiles encodeFilesList(const std::vector<FileEntry>& entries, KindWord kindWord,
                             GDBusMethodInvocation* invocation) {
    const EncodedFiles encoded =
        logOmitted(reply::fileTuple(entries, kindWord), entries.size(), invocation);
    return {g_variant_new_variant(encoded.value), encoded.records};
}

}  // namespace

void DBusInterface::getUsbStickDetails(MorvaneTransferSac* skeleton,
                                       GDBusMethodInvocation* invocation) {
    morvane_transfer_sac_complete_get_usbstick_details(
        skeleton, invocation, reply::stickArray(tfMngr_->enumerateUsbSticks()));
}

void DBusInterface::getStickDetailsWithCount(MorvaneTransferSac* skeleton,
                                             GDBusMethodInvocation* invocation) {
    const std::vector<UsbStickInfo> sticks = tfMngr_->enumerateUsbSticks();
    morvane_transfer_sac_complete_get_stick_details_with_count(
        skeleton, invocation, g_variant_new_variant(reply::stickTuple(sticks)),
        static_cast<guint>(sticks.size()));
}

void DBusInterface::validateBackupSize(MorvaneTransferSac* skeleton,
                                       GDBusMethodInvocation* invocation, guint backupType,
                                       const gchar* mntId) {
    morvane_transfer_sac_complete_validate_backup_size(
        skeleton, invocation,
        static_cast<gboolean>(tfMngr_->ValidateBackupSize(backupType, mntId)));
}

void DBusInterface::getBackupFileName(MorvaneTransferSac* skeleton,
                                      GDBusMethodInvocation* invocation, guint backupType) {
    const std::string name = reply::validString(tfMngr_->GetBackupFileName(backupType));
    morvane_transfer_sac_complete_get_backup_file_name(skeleton, invocation, name.c_str());
}

void DBusInterface::getRestoreFilesList(MorvaneTransferSac* skeleton,
                                        GDBusMethodInvocation* invocation, const gchar* mntId,
                                        const gchar* path) {
    const std::vector<FileEntry>& entries = tfMngr_->getRestoreFilesList(mntId, path);
    const EncodedFiles list = encodeFilesList(entries, KindWord::Unsigned, invocation);
    morvane_transfer_sac_complete_get_restore_files_list(skeleton, invocation, list.value,
                                                         static_cast<gint>(list.records));
}

void DBusInterface::getUpdateFilesList(MorvaneTransferSac* skeleton,
                                       GDBusMethodInvocation* invocation, const gchar* mntId,
                                       const gchar* path) {
    const std::vector<FileEntry> entries = tfMngr_->getUpdateFilesList(mntId, path);
    const EncodedFiles list = encodeFilesList(entries, KindWord::Signed, invocation);
    morvane_transfer_sac_complete_get_update_files_list(skeleton, invocation, list.value,
                                                        static_cast<gint>(list.records));
}

void DBusInterface::getBackupFilesList(MorvaneTransferSac* skeleton,
                                       GDBusMethodInvocation* invocation, const gchar* mntId,
                                       const gchar* path) {
    const std::vector<FileEntry> entries = tfMngr_->getBackupFilesList(mntId, path);
    const EncodedFiles list = encodeFilesList(entries, KindWord::Signed, invocation);
    morvane_transfer_sac_complete_get_backup_files_list(skeleton, invocation, list.value,
                                                        static_cast<gint>(list.records));
}

void DBusInterface::deleteFile(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                               const gchar* mntId, const gchar* filePath) {
    morvane_transfer_sac_complete_delete_file(
        skeleton, invocation, static_cast<gboolean>(tfMngr_->DeleteFile(mntId, filePath)));
}

void DBusInterface::createDirectory(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                                    const gchar* mntId, const gchar* dirPath) {
    morvane_transfer_sac_complete_create_directory(
        skeleton, invocation, static_cast<gboolean>(tfMngr_->CreateDirectory(mntId, dirPath)));
}

void DBusInterface::doOsUpdate(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                               const gchar* mntId, const gchar* filePath) {
    morvane_transfer_sac_complete_do_osupdate(
        skeleton, invocation, static_cast<gint>(tfMngr_->DoOSUpdate(mntId, filePath)));
}

void DBusInterface::doBackup(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                             const gchar* mntId, guint backupType, const gchar* backupFilePath) {
    morvane_transfer_sac_complete_do_backup(
        skeleton, invocation,
        static_cast<gint>(tfMngr_->DoBackup(mntId, backupType, backupFilePath)));
}

void DBusInterface::doRestore(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                              const gchar* mntId, const gchar* filePath) {
    morvane_transfer_sac_complete_do_restore(
        skeleton, invocation, static_cast<gint>(tfMngr_->DoRestore(mntId, filePath)));
}

void DBusInterface::getDirectoryIndex(MorvaneTransferSac* skeleton,
                                      GDBusMethodInvocation* invocation, const gchar* mntId,
                                      const gchar* path) {
    GDBusConnection* const connection = g_dbus_method_invocation_get_connection(invocation);
    const std::vector<FileEntry>& entries = tfMngr_->getRestoreFilesList(mntId, path);
    morvane_transfer_sac_complete_get_directory_index(skeleton, invocation,
                                                      encodeIndex(entries, invocation));
    if (entries.size() > kLongList) {
        releaseHeapOnceSent(connection);
    }
}

void DBusInterface::getDirectoryIndexForUpdate(MorvaneTransferSac* skeleton,
                                               GDBusMethodInvocation* invocation,
                                               const gchar* mntId, const gchar* path) {
    const std::vector<FileEntry> entries = tfMngr_->getUpdateFilesList(mntId, path);
    morvane_transfer_sac_complete_get_directory_index_for_update(skeleton, invocation,
                                                                 encodeIndex(entries, invocation));
}

void DBusInterface::getDirectoryIndexForBackup(MorvaneTransferSac* skeleton,
                                               GDBusMethodInvocation* invocation,
                                               const gchar* mntId, const gchar* path) {
    const std::vector<FileEntry> entries = tfMngr_->getBackupFilesList(mntId, path);
    morvane_transfer_sac_complete_get_directory_index_for_backup(skeleton, invocation,
                                                                 encodeIndex(entries, invocation));
}

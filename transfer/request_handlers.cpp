// One operation a bus method: ask the manager, encode, complete the invocation.
#include <syslog.h>

#include "service/service_log.h"
#include "transfer/dbus_interface.h"

namespace {

using reply::EncodedList;
using reply::KindWord;

// Says how much of a list the bus could not carry.
void logOmitted(std::size_t listed, const EncodedList& encoded, GDBusMethodInvocation* invocation) {
    if (encoded.records < listed) {
        serviceLog(LOG_INFO, log_tag::kInfo, "%s: %zu of %zu entries left out of the reply",
                   g_dbus_method_invocation_get_method_name(invocation), listed - encoded.records,
                   listed);
    }
}

// The value, which is floating. A handler completes the call in a statement of its own: by then the
// list is gone, and a long reply has the memory to itself.
GVariant* encodeIndex(const std::vector<FileEntry>& entries, GDBusMethodInvocation* invocation) {
    const EncodedList encoded = reply::fileArray(entries);
    logOmitted(entries.size(), encoded, invocation);
    return encoded.value;
}

EncodedList encodeFilesList(const std::vector<FileEntry>& entries, KindWord kindWord,
                            GDBusMethodInvocation* invocation) {
    const EncodedList encoded = reply::fileTuple(entries, kindWord);
    logOmitted(entries.size(), encoded, invocation);
    return {g_variant_new_variant(encoded.value), encoded.records};
}

}  // namespace

void DBusInterface::getUsbStickDetails(MorvaneTransferSac* skeleton,
                                       GDBusMethodInvocation* invocation) {
    morvane_transfer_sac_complete_get_usbstick_details(
        skeleton, invocation, reply::stickArray(tfMngr->enumerateUsbSticks()).value);
}

void DBusInterface::getStickDetailsWithCount(MorvaneTransferSac* skeleton,
                                             GDBusMethodInvocation* invocation) {
    const EncodedList encoded = reply::stickTuple(tfMngr->enumerateUsbSticks());
    morvane_transfer_sac_complete_get_stick_details_with_count(skeleton, invocation,
                                                               g_variant_new_variant(encoded.value),
                                                               static_cast<guint>(encoded.records));
}

void DBusInterface::validateBackupSize(MorvaneTransferSac* skeleton,
                                       GDBusMethodInvocation* invocation, guint backupType,
                                       const gchar* mntId) {
    morvane_transfer_sac_complete_validate_backup_size(
        skeleton, invocation, static_cast<gboolean>(tfMngr->ValidateBackupSize(backupType, mntId)));
}

void DBusInterface::getBackupFileName(MorvaneTransferSac* skeleton,
                                      GDBusMethodInvocation* invocation, guint backupType) {
    const std::string name = reply::validText(tfMngr->GetBackupFileName(backupType));
    morvane_transfer_sac_complete_get_backup_file_name(skeleton, invocation, name.c_str());
}

void DBusInterface::getRestoreFilesList(MorvaneTransferSac* skeleton,
                                        GDBusMethodInvocation* invocation, const gchar* mntId,
                                        const gchar* path) {
    const EncodedList list =
        encodeFilesList(tfMngr->takeRestoreFilesList(mntId, path), KindWord::Unsigned, invocation);
    morvane_transfer_sac_complete_get_restore_files_list(skeleton, invocation, list.value,
                                                         static_cast<gint>(list.records));
}

void DBusInterface::getUpdateFilesList(MorvaneTransferSac* skeleton,
                                       GDBusMethodInvocation* invocation, const gchar* mntId,
                                       const gchar* path) {
    const EncodedList list =
        encodeFilesList(tfMngr->getUpdateFilesList(mntId, path), KindWord::Signed, invocation);
    morvane_transfer_sac_complete_get_update_files_list(skeleton, invocation, list.value,
                                                        static_cast<gint>(list.records));
}

void DBusInterface::getBackupFilesList(MorvaneTransferSac* skeleton,
                                       GDBusMethodInvocation* invocation, const gchar* mntId,
                                       const gchar* path) {
    const EncodedList list =
        encodeFilesList(tfMngr->getBackupFilesList(mntId, path), KindWord::Signed, invocation);
    morvane_transfer_sac_complete_get_backup_files_list(skeleton, invocation, list.value,
                                                        static_cast<gint>(list.records));
}

void DBusInterface::deleteFile(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                               const gchar* mntId, const gchar* filePath) {
    morvane_transfer_sac_complete_delete_file(
        skeleton, invocation, static_cast<gboolean>(tfMngr->DeleteFile(mntId, filePath)));
}

void DBusInterface::createDirectory(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                                    const gchar* mntId, const gchar* dirPath) {
    morvane_transfer_sac_complete_create_directory(
        skeleton, invocation, static_cast<gboolean>(tfMngr->CreateDirectory(mntId, dirPath)));
}

void DBusInterface::doOsUpdate(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                               const gchar* mntId, const gchar* filePath) {
    morvane_transfer_sac_complete_do_osupdate(
        skeleton, invocation, static_cast<gint>(tfMngr->DoOSUpdate(mntId, filePath)));
}

void DBusInterface::doBackup(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                             const gchar* mntId, guint backupType, const gchar* backupFilePath) {
    morvane_transfer_sac_complete_do_backup(
        skeleton, invocation,
        static_cast<gint>(tfMngr->DoBackup(mntId, backupType, backupFilePath)));
}

void DBusInterface::doRestore(MorvaneTransferSac* skeleton, GDBusMethodInvocation* invocation,
                              const gchar* mntId, const gchar* filePath) {
    morvane_transfer_sac_complete_do_restore(skeleton, invocation,
                                             static_cast<gint>(tfMngr->DoRestore(mntId, filePath)));
}

void DBusInterface::getDirectoryIndex(MorvaneTransferSac* skeleton,
                                      GDBusMethodInvocation* invocation, const gchar* mntId,
                                      const gchar* path) {
    GVariant* const index = encodeIndex(tfMngr->takeRestoreFilesList(mntId, path), invocation);
    morvane_transfer_sac_complete_get_directory_index(skeleton, invocation, index);
}

void DBusInterface::getDirectoryIndexForUpdate(MorvaneTransferSac* skeleton,
                                               GDBusMethodInvocation* invocation,
                                               const gchar* mntId, const gchar* path) {
    GVariant* const index = encodeIndex(tfMngr->getUpdateFilesList(mntId, path), invocation);
    morvane_transfer_sac_complete_get_directory_index_for_update(skeleton, invocation, index);
}

void DBusInterface::getDirectoryIndexForBackup(MorvaneTransferSac* skeleton,
                                               GDBusMethodInvocation* invocation,
                                               const gchar* mntId, const gchar* path) {
    GVariant* const index = encodeIndex(tfMngr->getBackupFilesList(mntId, path), invocation);
    morvane_transfer_sac_complete_get_directory_index_for_backup(skeleton, invocation, index);
}

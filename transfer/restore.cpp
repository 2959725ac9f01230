// Restore: the checks before a backup file is put back onto the device.
#include "transfer/contract.h"
#include "transfer/tf_mngr.h"

JobResult TfMngr::DoRestore(const std::string& mntId, const std::string& filePath) {
    if (!hasMarker(filePath, kBackupMarker)) {
        return JobResult::BadFileName;
    }
    if (!exists(mountPath(mntId))) {
        return JobResult::StickNotMounted;
    }
    return launchBackupRestore(mntId, kRestoreJob, filePath);
}

// Backup: the proposed file name, the space check, the launch, and the worker shared with restore.
#include <sys/statfs.h>

#include <ctime>

#include "transfer/contract.h"
#include "transfer/device_manager.h"
#include "transfer/platform/vesk_service_interface.h"
#include "transfer/tf_mngr.h"

namespace {

constexpr const char* kDeviceNameKey = "DEVICE_INFO/transfername";

}  // namespace

std::string TfMngr::getDeviceName() {
    std::string name;
    VeskServiceInterface* const settings = VeskServiceInterface::getSingleton();
    if (settings == nullptr || settings->startTransaction(true, true) != 0) {
        return name;
    }
    // Kept: a failed read leaves the transaction open, and the result is what it has written.
    if (settings->getValue(kDeviceNameKey, name) == 0) {
        settings->stopTransaction();
    }
    return name;
}

std::string TfMngr::makeTimestamp() {
    const std::time_t now = std::time(nullptr);
    const struct tm local = *std::localtime(&now);
    // Kept: numbers without leading zeros, so names do not sort by time.
    return formatString("%d%d%d.%d-%d-%d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                        local.tm_hour, local.tm_min, local.tm_sec);
}

std::string TfMngr::GetBackupFileName(std::uint32_t /*backupType*/) {
    const std::string name = getDeviceName();
    return name.empty() ? name : name + "-" + makeTimestamp() + kBackupMarker;
}

// Kept: the size is checked by DoBackup only.
bool TfMngr::ValidateBackupSize(std::uint32_t /*backupType*/, const std::string& /*mntId*/) {
    return true;
}

const char* TfMngr::backupTypeWord(std::uint32_t backupType) {
    switch (backupType) {
        case 1:
            return "fullbackup";
        case 2:
            return "recipes";
        case 3:
            return "userdatabase";
        default:
            return "";  // Kept: the device manager decides
    }
}

bool TfMngr::hasBackupSpace(const std::string& mntId, std::uint32_t backupType) {
    using namespace device_manager;
    const std::string path = mountPath(mntId);
    return runOnController<BackupRestore>(WorkDirectory::Leave, [&](IBRController& controller) {
        std::uint64_t needed = 0;
        struct statfs64 fileSystem {};
        if (controller.getBackupSize(backupTypeWord(backupType), &needed) != kSuccess ||
            statfs64(path.c_str(), &fileSystem) != 0) {
            return false;
        }
        return static_cast<std::uint64_t>(fileSystem.f_bsize) *
                   static_cast<std::uint64_t>(fileSystem.f_bfree) >=
               needed;
    });
}

JobResult TfMngr::DoBackup(const std::string& mntId, std::uint32_t backupType,
                           const std::string& backupFilePath) {
    if (!hasMarker(backupFilePath, kBackupMarker)) {
        return JobResult::BadFileName;
    }
    if (!exists(mountPath(mntId))) {
        return JobResult::StickNotMounted;
    }
    if (!hasBackupSpace(mntId, backupType)) {
        return JobResult::NotEnoughSpace;
    }
    return launchBackupRestore(mntId, backupType, backupFilePath);
}

JobResult TfMngr::launchBackupRestore(const std::string& mntId, std::uint32_t backupType,
                                      const std::string& filePath) {
    // Kept: without a mount identifier the worker still starts, on the fields as they are.
    if (!filePath.empty() && !mntId.empty()) {
        jobBackupType_ = backupType;
        jobFile_ += filePath;
        jobMountId_ += mntId;
    }
    return launchWorker(backupRestoreWorker);
}

void* TfMngr::backupRestoreWorker(void* tfMngr) {
    auto* const manager = static_cast<TfMngr*>(tfMngr);
    const Job job = manager->copyJob();
    const std::string target = pathOrMountPath(job.mountId, job.file);
    ensureParentDirectory(job);  // Kept: for a restore as well
    // Kept: a backup deletes an existing file of its name first, a restore does not.
    if (job.backupType != kRestoreJob && exists(target)) {
        manager->DeleteFile(job.mountId, job.file);
    }
    runBackupRestore(job.backupType, target);  // Kept: the outcome is reported to nobody
    return nullptr;
}

void TfMngr::ensureParentDirectory(const Job& job) {
    const std::string directory = parentPath(pathOnStick(job.mountId, job.file));
    if (!exists(directory)) {
        makeDirectoryPath(directory.c_str());
    }
}

bool TfMngr::runBackupRestore(std::uint32_t backupType, const std::string& target) {
    using namespace device_manager;
    return runOnController<BackupRestore>(WorkDirectory::Set, [&](IBRController& controller) {
        if (backupType == kRestoreJob) {
            return controller.restore(target.c_str()) == kSuccess;
        }
        return controller.backup(target.c_str(), backupTypeWord(backupType)) == kSuccess;
    });
}

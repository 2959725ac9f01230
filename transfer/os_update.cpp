// Operating-system update: the checks, the launch and the worker.
#include <unistd.h>

#include "transfer/contract.h"
#include "transfer/device_manager.h"
#include "transfer/tf_mngr.h"

JobResult TfMngr::DoOSUpdate(const std::string& mntId, const std::string& filePath) {
    if (!hasMarker(filePath, kUpdateMarker)) {
        return JobResult::BadFileName;
    }
    if (!exists(mountPath(mntId))) {
        return JobResult::StickNotMounted;
    }
    if (!fileExistsOnStick(mntId, filePath)) {
        return JobResult::FileMissing;
    }
    // Kept: without a mount identifier the worker still starts, on the fields as they are.
    if (!mntId.empty()) {
        jobMountId_ += mntId;
        updateFile_ += filePath;
    }
    return launchWorker(osUpdateWorker);
}

bool TfMngr::fileExistsOnStick(const std::string& mntId, const std::string& filePath) {
    return access(pathOnStick(mntId, filePath).c_str(), F_OK) == 0;
}

void* TfMngr::osUpdateWorker(void* tfMngr) {
    const Job job = static_cast<TfMngr*>(tfMngr)->copyJob();
    // Kept: the outcome is reported to nobody.
    runOsUpdate(pathOrMountPath(job.mountId, job.updateFile));
    return nullptr;
}

bool TfMngr::runOsUpdate(const std::string& target) {
    using namespace device_manager;
    return !target.empty() &&
           runOnController<Update>(WorkDirectory::Set, [&target](IFUController& controller) {
               return controller.update(target.c_str()) == kSuccess;
           });
}

// Having the device manager check backup and update files, through controllers kept open for one
// listing.
#include "transfer/contract.h"
#include "transfer/device_manager.h"
#include "transfer/tf_mngr.h"

namespace {

// A cached controller outlives the check that created it, and the library may use the log until the
// controller is destroyed, so the log lives as long as the process.
IBRLog* cachedControllerLog() {
    static auto* const kLog = new CConsoleLog;
    return kLog;
}

// Asks the cached controller about the file, after creating and connecting it when none is
// connected yet.
template <typename Kind>
bool checkFile(typename Kind::Controller*& cached, std::int32_t& connected, const char* path) {
    if (connected == 0) {
        if (cached != nullptr) {
            Kind::destroy(cached);  // its connect failed for an earlier file
        }
        cached = Kind::create();
        if (cached == nullptr) {
            return false;
        }
        cached->setLog(cachedControllerLog());
        if (cached->connect(kDeviceManagerEndpoint, device_manager::kNoCredential) !=
            device_manager::kSuccess) {
            return false;
        }
        connected = 1;
    }
    return cached != nullptr && Kind::check(*cached, path) == device_manager::kSuccess;
}

template <typename Kind>
void release(typename Kind::Controller*& cached, std::int32_t& connected) {
    if (cached == nullptr) {
        return;
    }
    cached->disconnect();
    Kind::destroy(cached);
    cached = nullptr;
    connected = 0;
}

}  // namespace

bool TfMngr::checkTransferFile(const std::string& path, const std::string& marker) {
    const bool isUpdate = hasMarker(marker, kUpdateMarker);
    return isUpdate ? checkUpdateFile(path) : checkRestoreFile(path);
}

bool TfMngr::checkUpdateFile(const std::string& path) {
    return checkFile<device_manager::Update>(cachedUpdateController, controllerConnected,
                                             path.c_str());
}

bool TfMngr::checkRestoreFile(const std::string& path) {
    return checkFile<device_manager::BackupRestore>(cachedBackupController, controllerConnected,
                                                    path.c_str());
}

void TfMngr::releaseUpdateController() {
    release<device_manager::Update>(cachedUpdateController, controllerConnected);
}

void TfMngr::releaseBackupController() {
    release<device_manager::BackupRestore>(cachedBackupController, controllerConnected);
}

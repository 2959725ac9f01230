// Having the device manager check backup and update files, through controllers kept open for one
// listing.
#include "transfer/contract.h"
#include "transfer/device_manager.h"
#include "transfer/tf_mngr.h"

namespace {

// Creates and connects the cached controller, with its log. Returns false when either fails; a
// controller that cannot connect is kept until the next file is checked.
template <typename Kind>
bool connectController(typename Kind::Controller*& cached, std::unique_ptr<CConsoleLog>& log) {
    if (cached != nullptr) {
        Kind::destroy(cached);  // its connect failed for an earlier file
    }
    cached = Kind::create();
    if (cached == nullptr) {
        return false;
    }
    log = std::make_unique<CConsoleLog>();
    cached->setLog(log.get());
    return cached->connect(kDeviceManagerEndpoint, device_manager::kNoCredential) ==
           device_manager::kSuccess;
}

// Asks the cached controller about the file, after connecting one when none is connected.
template <typename Kind>
bool checkFile(typename Kind::Controller*& cached, std::unique_ptr<CConsoleLog>& log,
               std::int32_t& connected, const std::string& path) {
    if (connected == 0) {
        if (!connectController<Kind>(cached, log)) {
            return false;
        }
        connected = 1;
    }
    return cached != nullptr && Kind::check(*cached, path.c_str()) == device_manager::kSuccess;
}

template <typename Kind>
void release(typename Kind::Controller*& cached, std::unique_ptr<CConsoleLog>& log,
             std::int32_t& connected) {
    if (cached == nullptr) {
        return;
    }
    cached->disconnect();
    Kind::destroy(cached);
    cached = nullptr;
    log.reset();
    connected = 0;
}

}  // namespace

bool TfMngr::checkTransferFile(const std::string& path, const std::string& marker) {
    // Kept: the marker that was searched for decides, not the path.
    return hasMarker(marker, kUpdateMarker) ? checkUpdateFile(path) : checkRestoreFile(path);
}

bool TfMngr::checkUpdateFile(const std::string& path) {
    return checkFile<device_manager::Update>(cachedUpdateController_, cachedUpdateLog_,
                                             controllerConnected_, path);
}

bool TfMngr::checkRestoreFile(const std::string& path) {
    return checkFile<device_manager::BackupRestore>(cachedBackupController_, cachedBackupLog_,
                                                    controllerConnected_, path);
}

void TfMngr::releaseUpdateController() {
    release<device_manager::Update>(cachedUpdateController_, cachedUpdateLog_,
                                    controllerConnected_);
}

void TfMngr::releaseBackupController() {
    release<device_manager::BackupRestore>(cachedBackupController_, cachedBackupLog_,
                                           controllerConnected_);
}

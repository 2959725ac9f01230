// How the service drives the device-manager client library.
#pragma once

#include <cstdint>

#include "transfer/console_log.h"
#include "transfer/contract.h"
#include "transfer/platform/device_manager_client.h"

namespace device_manager {

inline constexpr const char* kNoCredential = "";  // always; the library may ask the log object
inline constexpr const char* kWorkDirectory = "/tmp";
inline constexpr std::int64_t kSuccess = 0;

// The two kinds of controller that the library offers, under one set of names.
struct BackupRestore {
    using Controller = IBRController;
    static Controller* create() { return BRCreateController(); }
    static void destroy(Controller* controller) {
        if (controller != nullptr) {
            BRDestroyController(controller);
        }
    }
    static std::int64_t check(Controller& controller, const char* path) {
        return controller.checkBackupFile(path);
    }
};

struct Update {
    using Controller = IFUController;
    static Controller* create() { return FUCreateController(); }
    // Kept: null is passed on.
    static void destroy(Controller* controller) { FUDestroyController(controller); }
    static std::int64_t check(Controller& controller, const char* path) {
        return controller.checkFirmwareFile(path);
    }
};

template <typename Kind>
class ScopedController {
public:
    ScopedController() : controller_(Kind::create()) {}
    ScopedController(const ScopedController&) = delete;
    ScopedController& operator=(const ScopedController&) = delete;
    ~ScopedController() { Kind::destroy(controller_); }

    typename Kind::Controller* get() const { return controller_; }

private:
    typename Kind::Controller* controller_;
};

// Kept: the size query leaves the work directory alone.
enum class WorkDirectory { Set, Leave };

// Runs one operation on a controller of its own: create, connect, `operation(controller)`,
// disconnect, destroy. Returns the operation's result, or false when there is no controller or no
// connection. Blocks for as long as the device manager takes; separate calls may run on separate
// threads.
template <typename Kind, typename Operation>
bool runOnController(WorkDirectory workDirectory, Operation operation) {
    CConsoleLog log;  // declared first: the library may use it until the controller is destroyed
    const ScopedController<Kind> scoped;
    typename Kind::Controller* const controller = scoped.get();
    if (controller == nullptr) {
        return false;
    }
    if (workDirectory == WorkDirectory::Set) {
        controller->setWorkDirectory(kWorkDirectory);
    }
    controller->setLog(&log);
    if (controller->connect(kDeviceManagerEndpoint, kNoCredential) != kSuccess) {
        return false;
    }
    const bool succeeded = operation(*controller);
    controller->disconnect();
    return succeeded;
}

}  // namespace device_manager

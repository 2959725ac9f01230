// The device manager's library at its plainest.
#include "tests/doubles/plain_device_manager.h"

#include "transfer/platform/device_manager_client.h"

namespace plain_device_manager {

std::function<bool(const std::string& path)> accepts = [](const std::string&) { return true; };
std::atomic<int> controllers{0};
bool readsCredential = false;

}  // namespace plain_device_manager

namespace {

thread_local IBRLog* log = nullptr;  // one controller at a time works on a thread

std::int64_t connectWithLog() {
    const char* credential = nullptr;
    if (plain_device_manager::readsCredential) {
        static_cast<void>(log->readCredential(&credential));
    }
    return 0;
}

std::int64_t check(const char* path) {
    return plain_device_manager::accepts(path) ? 0 : 1;
}

class BackupController final : public IBRController {
public:
    std::int64_t connect(const char*, const char*) override { return connectWithLog(); }
    void disconnect() override {}
    void setLog(IBRLog* newLog) override { log = newLog; }
    std::int64_t backup(const char*, const char*) override { return 0; }
    std::int64_t restore(const char*) override { return 0; }
    std::int64_t getBackupSize(const char*, std::uint64_t*) override { return 0; }
    std::int64_t checkBackupFile(const char* path) override { return check(path); }
    void reserved7(const char*) override {}
    void reserved8() override {}
    void setWorkDirectory(const char*) override {}
};

class UpdateController final : public IFUController {
public:
    std::int64_t connect(const char*, const char*) override { return connectWithLog(); }
    void disconnect() override {}
    std::int64_t update(const char*) override { return 0; }
    void reserved3() override {}
    void reserved4() override {}
    void setLog(IBRLog* newLog) override { log = newLog; }
    void reserved6(const char*) override {}
    void reserved7() override {}
    void setWorkDirectory(const char*) override {}
    void reserved9() override {}
    void reserved10() override {}
    void reserved11() override {}
    void reserved12() override {}
    std::int64_t checkFirmwareFile(const char* path) override { return check(path); }
};

// They hold nothing, so one of each will do.
BackupController backupController;
UpdateController updateController;

}  // namespace

extern "C" {
IBRController* BRCreateController() {
    ++plain_device_manager::controllers;
    return &backupController;
}
void BRDestroyController(IBRController* /*controller*/) {
    --plain_device_manager::controllers;
}
IFUController* FUCreateController() {
    ++plain_device_manager::controllers;
    return &updateController;
}
void FUDestroyController(IFUController* controller) {
    plain_device_manager::controllers -= controller != nullptr ? 1 : 0;
}
}

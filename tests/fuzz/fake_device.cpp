// The device manager's library inside a fuzz target.
#include "tests/fuzz/fake_device.h"

#include "transfer/platform/device_manager_client.h"

namespace fuzz {

std::function<bool(const std::string& path)> FakeDevice::accepts = [](const std::string&) {
    return true;
};
int FakeDevice::controllers = 0;

namespace {

std::int64_t check(const char* path) {
    return FakeDevice::accepts(path) ? 0 : 1;
}

class FakeBackup final : public IBRController {
public:
    std::int64_t connect(const char*, const char*) override { return 0; }
    void disconnect() override {}
    void setLog(IBRLog*) override {}
    std::int64_t backup(const char*, const char*) override { return 1; }
    std::int64_t restore(const char*) override { return 1; }
    std::int64_t getBackupSize(const char*, std::uint64_t*) override { return 1; }
    std::int64_t checkBackupFile(const char* path) override { return check(path); }
    void reserved7(const char*) override {}
    void reserved8() override {}
    void setWorkDirectory(const char*) override {}
};

class FakeUpdate final : public IFUController {
public:
    std::int64_t connect(const char*, const char*) override { return 0; }
    void disconnect() override {}
    std::int64_t update(const char*) override { return 1; }
    void reserved3() override {}
    void reserved4() override {}
    void setLog(IBRLog*) override {}
    void reserved6(const char*) override {}
    void reserved7() override {}
    void setWorkDirectory(const char*) override {}
    void reserved9() override {}
    void reserved10() override {}
    void reserved11() override {}
    void reserved12() override {}
    std::int64_t checkFirmwareFile(const char* path) override { return check(path); }
};

}  // namespace
}  // namespace fuzz

using fuzz::FakeDevice;

extern "C" {
IBRController* BRCreateController() {
    ++FakeDevice::controllers;
    return new fuzz::FakeBackup;
}
void BRDestroyController(IBRController* controller) {
    --FakeDevice::controllers;
    delete static_cast<fuzz::FakeBackup*>(controller);
}
IFUController* FUCreateController() {
    ++FakeDevice::controllers;
    return new fuzz::FakeUpdate;
}
void FUDestroyController(IFUController* controller) {
    if (controller != nullptr) {
        --FakeDevice::controllers;
        delete static_cast<fuzz::FakeUpdate*>(controller);
    }
}
}

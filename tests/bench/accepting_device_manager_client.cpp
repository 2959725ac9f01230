// A device manager's library that answers at once, so that the service's own cost shows: every
// package is accepted.
#include "transfer/platform/device_manager_client.h"

namespace {

class AcceptingController : public IBRController {
public:
    std::int64_t connect(const char* /*endpoint*/, const char* /*credential*/) override {
        return 0;
    }
    void disconnect() override {}
    void setLog(IBRLog* /*log*/) override {}
    std::int64_t backup(const char* /*path*/, const char* /*kind*/) override { return 0; }
    std::int64_t restore(const char* /*path*/) override { return 0; }
    std::int64_t getBackupSize(const char* /*kind*/, std::uint64_t* bytes) override {
        *bytes = 0;
        return 0;
    }
    std::int64_t checkBackupFile(const char* /*path*/) override { return 0; }
    void reserved7(const char* /*text*/) override {}
    void reserved8() override {}
    void setWorkDirectory(const char* /*path*/) override {}
};

}  // namespace

IBRController* BRCreateController() {
    static AcceptingController controller;
    return &controller;
}

void BRDestroyController(IBRController* /*controller*/) {}

// Nothing here lists updates.
IFUController* FUCreateController() {
    return nullptr;
}

void FUDestroyController(IFUController* /*controller*/) {}

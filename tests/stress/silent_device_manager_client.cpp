// The device manager's library, without a system call or an allocation of its own: whatever fails
// is the service's. Every operation succeeds, and connecting reads the credential as the library
// may.
#include <array>
#include <cstdint>

#include "transfer/platform/device_manager_client.h"

namespace {

using Slot = void (*)();

constexpr std::size_t kBackupSetLog = 2;
constexpr std::size_t kUpdateSetLog = 5;

thread_local IBRLog* log = nullptr;  // one controller at a time works on a thread

std::int64_t succeed() {
    return 0;
}

void setLog(void* /*controller*/, IBRLog* newLog) {
    log = newLog;
}

std::int64_t connect() {
    const char* credential = nullptr;
    static_cast<void>(log->readCredential(&credential));
    return 0;
}

using Table = std::array<Slot, 14>;

Table makeTable(std::size_t setLogSlot) {
    Table table{};
    table.fill(reinterpret_cast<Slot>(succeed));
    table.at(0) = reinterpret_cast<Slot>(connect);
    table.at(setLogSlot) = reinterpret_cast<Slot>(setLog);
    return table;
}

const Table kBackupTable = makeTable(kBackupSetLog);
const Table kUpdateTable = makeTable(kUpdateSetLog);
const Slot* backupController = kBackupTable.data();
const Slot* updateController = kUpdateTable.data();

}  // namespace

extern "C" {
IBRController* BRCreateController() {
    return reinterpret_cast<IBRController*>(&backupController);
}
void BRDestroyController(IBRController* /*controller*/) {}
IFUController* FUCreateController() {
    return reinterpret_cast<IFUController*>(&updateController);
}
void FUDestroyController(IFUController* /*controller*/) {}
}

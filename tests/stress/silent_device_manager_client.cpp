// The device manager's library without a system call of its own: every operation succeeds, and
// connecting reads the credential as the library may.
#include <array>
#include <cstdint>

#include "transfer/platform/device_manager_client.h"

namespace {

using Slot = void (*)();
using Table = std::array<Slot, 14>;

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

Table makeTable(std::size_t setLogSlot) {
    Table table{};
    table.fill(reinterpret_cast<Slot>(succeed));
    table.at(0) = reinterpret_cast<Slot>(connect);
    table.at(setLogSlot) = reinterpret_cast<Slot>(setLog);
    return table;
}

const Table backupTable = makeTable(2);
const Table updateTable = makeTable(5);
const Slot* backupController = backupTable.data();
const Slot* updateController = updateTable.data();

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

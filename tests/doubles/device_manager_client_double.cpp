// A double of libDeviceManagerClient.so with hand-made virtual tables.
//
// It knows nothing of the project's declarations of the library: tables are arrays of function
// pointers and a controller is a word that points to one, so a test that passes has proved the slot
// positions. Slots that must stay uncalled record a violation, as does any use after destruction or
// of a log object that has changed under the controller.
#include <cxxabi.h>
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <typeinfo>
#include <vector>

#include "tests/doubles/double_script.h"

namespace {

using device_double::Orders;
using device_double::quoted;
using device_double::record;

using Slot = void (*)();

// The words in front of the slots are there for run-time type checks of sanitizers.
template <std::size_t N>
struct Table {
    std::ptrdiff_t offsetToTop;
    const std::type_info* type;
    std::array<Slot, N> slots;
};

struct Controller {
    const Slot* table = nullptr;
    std::string kind;  // "BR" or "FU"
    int number = 0;
    void* log = nullptr;
    const Slot* logTable = nullptr;
    bool destroyed = false;
};

// Every controller ever made; never freed, so that late calls are seen for what they are.
std::mutex controllersMutex;
std::vector<Controller*>& controllers() {
    static auto* all = new std::vector<Controller*>;
    return *all;
}

template <typename Function>
Slot slot(Function* function) {
    return reinterpret_cast<Slot>(function);
}

std::string nameOf(const Controller* controller) {
    return controller != nullptr ? controller->kind + std::to_string(controller->number) : "null";
}

// ---- the log object that the service hands over -----------------------------------------------

constexpr std::size_t kReadCredentialSlot = 6;

void readCredential(const Controller& controller) {
    static const char* const kUntouched = "untouched";
    const char* out = kUntouched;
    const auto read =
        reinterpret_cast<int (*)(void*, const char**)>(controller.logTable[kReadCredentialSlot]);
    const int result = read(controller.log, &out);
    record("log", nameOf(&controller) + ".readCredential() = " + std::to_string(result) + " " +
                      (out == kUntouched ? kUntouched : quoted(out)));
}

void callLogSlot(const Controller& controller, std::size_t index) {
    if (index == kReadCredentialSlot) {
        readCredential(controller);
    } else if (index == 0 || index == 4) {
        const auto print =
            reinterpret_cast<void (*)(void*, const char*, ...)>(controller.logTable[index]);
        print(controller.log, "%s %d %5.2f %lld", "from the double", 4711, 3.14, 1LL << 40U);
    } else {
        reinterpret_cast<void (*)(void*)>(controller.logTable[index])(controller.log);
    }
}

// Uses the log as the library may at any time between setLog and the controller's destruction.
void useLog(const Controller& controller, const std::string& slots) {
    if (controller.log == nullptr) {
        return;
    }
    if (*static_cast<const Slot* const*>(controller.log) != controller.logTable) {
        record("violation", nameOf(&controller) + " holds a log object that has gone");
        return;
    }
    for (const char digit : slots) {
        if (digit >= '0' && digit <= '6') {
            callLogSlot(controller, static_cast<std::size_t>(digit - '0'));
        }
    }
}

// ---- one call ---------------------------------------------------------------------------------

constexpr const char* kHarmlessLogSlots = "012345";

// Records the call and does what the script says before its result.
Orders enter(const Controller* controller, const std::string& operation,
             const std::string& arguments) {
    record("call", nameOf(controller) + "." + operation + "(" + arguments + ")");
    if (controller->destroyed) {
        record("violation", nameOf(controller) + "." + operation + " after its destruction");
    }
    Orders orders(controller->kind + "." + operation);
    if (!controller->destroyed) {
        useLog(*controller, orders.text("log", kHarmlessLogSlots));
    }
    orders.misuseOrWait();
    return orders;
}

std::int64_t statusOf(const Orders& orders) {
    return orders.number("status");
}

std::int64_t checkStatus(const Orders& orders, const std::string& path) {
    for (const std::string& part : orders.all("reject")) {
        if (path.find(part) != std::string::npos) {
            return 1;
        }
    }
    return statusOf(orders);
}

std::int64_t connect(Controller* self, const char* endpoint, const char* credential) {
    return statusOf(enter(self, "connect", quoted(endpoint) + ", " + quoted(credential)));
}

void disconnect(Controller* self) {
    enter(self, "disconnect", "");
}

void setLog(Controller* self, void* log) {
    self->log = log;
    self->logTable = log != nullptr ? *static_cast<const Slot* const*>(log) : nullptr;
    enter(self, "setLog", log != nullptr ? "log" : "null");
}

void setWorkDirectory(Controller* self, const char* path) {
    enter(self, "setWorkDirectory", quoted(path));
}

// ---- backup and restore -----------------------------------------------------------------------

void writeTarget(const char* path, std::size_t size) {
    std::FILE* file = std::fopen(path, "wbe");
    if (file == nullptr) {
        record("log", "cannot write " + quoted(path));
        return;
    }
    const std::string bytes(size, 'b');
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
}

std::int64_t backup(Controller* self, const char* path, const char* kind) {
    const Orders orders = enter(self, "backup", quoted(path) + ", " + quoted(kind));
    if (orders.has("write")) {
        writeTarget(path, static_cast<std::size_t>(orders.size("write")));
    }
    return statusOf(orders);
}

std::int64_t restore(Controller* self, const char* path) {
    return statusOf(enter(self, "restore", quoted(path)));
}

std::int64_t getBackupSize(Controller* self, const char* kind, std::uint64_t* bytes) {
    const Orders orders =
        enter(self, "getBackupSize",
              quoted(kind) + ", " + (bytes != nullptr ? std::to_string(*bytes) : "null"));
    if (orders.has("bytes")) {
        *bytes = orders.size("bytes");
    }
    return statusOf(orders);
}

std::int64_t checkBackupFile(Controller* self, const char* path) {
    return checkStatus(enter(self, "checkBackupFile", quoted(path)), path);
}

// ---- update -----------------------------------------------------------------------------------

std::int64_t update(Controller* self, const char* path) {
    return statusOf(enter(self, "update", quoted(path)));
}

std::int64_t checkFirmwareFile(Controller* self, const char* path) {
    return checkStatus(enter(self, "checkFirmwareFile", quoted(path)), path);
}

// ---- the tables -------------------------------------------------------------------------------

template <int N>
std::int64_t forbidden(Controller* self) {
    record("violation", nameOf(self) + " slot " + std::to_string(N) + " was called");
    return -1;
}

const abi::__class_type_info kBackupType("13IBRController");
const abi::__class_type_info kUpdateType("13IFUController");

const Table<10> kBackupTable{0,
                             &kBackupType,
                             {slot(connect), slot(disconnect), slot(setLog), slot(backup),
                              slot(restore), slot(getBackupSize), slot(checkBackupFile),
                              slot(forbidden<7>), slot(forbidden<8>), slot(setWorkDirectory)}};

const Table<14> kUpdateTable{
    0,
    &kUpdateType,
    {slot(connect), slot(disconnect), slot(update), slot(forbidden<3>), slot(forbidden<4>),
     slot(setLog), slot(forbidden<6>), slot(forbidden<7>), slot(setWorkDirectory),
     slot(forbidden<9>), slot(forbidden<10>), slot(forbidden<11>), slot(forbidden<12>),
     slot(checkFirmwareFile)}};

// ---- the factories ----------------------------------------------------------------------------

// Controllers are numbered from 1 in each record, also when one process fills several in turn.
int nextNumber(const std::string& kind) {
    // Never freed: a worker of the service may still come here while the process ends.
    static auto* const numbers = new std::map<std::string, int>;
    const std::lock_guard lock(controllersMutex);
    return ++(*numbers)[kind + device_double::recordPath()];
}

Controller* create(const std::string& kind, const Slot* table) {
    const Orders orders(kind + ".create");
    if (orders.has("null")) {
        record("call", kind + "CreateController() = null");
        orders.misuseOrWait();
        return nullptr;
    }
    auto* controller = new Controller;
    controller->table = table;
    controller->kind = kind;
    controller->number = nextNumber(kind);
    {
        const std::lock_guard lock(controllersMutex);
        controllers().push_back(controller);
    }
    record("call", kind + "CreateController() = " + nameOf(controller));
    orders.misuseOrWait();
    return controller;
}

bool isKnown(const Controller* controller) {
    const std::lock_guard lock(controllersMutex);
    const std::vector<Controller*>& all = controllers();
    return std::find(all.begin(), all.end(), controller) != all.end();
}

void destroy(Controller* controller, const std::string& kind) {
    const std::string name = kind + "DestroyController";
    if (controller != nullptr && !isKnown(controller)) {
        record("violation", name + " of something that is no controller");
        return;
    }
    record("call", name + "(" + nameOf(controller) + ")");
    const Orders orders(kind + ".destroy");
    if (controller == nullptr) {
        orders.misuseOrWait();
        return;
    }
    if (controller->kind != kind || controller->destroyed) {
        record("violation", name + " of a controller of another kind or already destroyed");
        return;
    }
    useLog(*controller, orders.text("log", kHarmlessLogSlots));
    controller->destroyed = true;
    orders.misuseOrWait();
}

}  // namespace

extern "C" {

void* BRCreateController() {
    return create("BR", kBackupTable.slots.data());
}

void BRDestroyController(void* controller) {
    if (controller == nullptr) {
        record("violation", "BRDestroyController(null)");
        return;
    }
    destroy(static_cast<Controller*>(controller), "BR");
}

void* FUCreateController() {
    return create("FU", kUpdateTable.slots.data());
}

void FUDestroyController(void* controller) {
    destroy(static_cast<Controller*>(controller), "FU");
}
}

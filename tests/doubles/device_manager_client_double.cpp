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
#include <fstream>
#include <mutex>
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
    std::string record;  // the place of the record that it is in
    std::ptrdiff_t number = 0;  // from 1 for each kind in each record
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

void callLogSlot(const Controller& controller, std::size_t index) {
    const Slot called = controller.logTable[index];
    if (index == 6) {
        const char* out = nullptr;
        const int result =
            reinterpret_cast<int (*)(void*, const char**)>(called)(controller.log, &out);
        record("log", nameOf(&controller) + ".readCredential() = " + std::to_string(result) + " " +
                          quoted(out));
    } else if (index == 0 || index == 4) {
        const auto print = reinterpret_cast<void (*)(void*, const char*, ...)>(called);
        print(controller.log, "%s %d %5.2f %lld", "from the double", 4711, 3.14, 1LL << 40U);
    } else {
        reinterpret_cast<void (*)(void*)>(called)(controller.log);
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
        callLogSlot(controller, static_cast<std::size_t>(digit - '0'));
    }
}

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
        useLog(*controller, orders.value("log", kHarmlessLogSlots));
    }
    orders.misuseOrWait();
    return orders;
}

std::int64_t checkStatus(const Orders& orders, const std::string& path) {
    for (const std::string& part : orders.all("reject")) {
        if (path.find(part) != std::string::npos) {
            return 1;
        }
    }
    return orders.number("status");
}

std::int64_t connect(Controller* self, const char* endpoint, const char* credential) {
    return enter(self, "connect", quoted(endpoint) + ", " + quoted(credential)).number("status");
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

std::int64_t backup(Controller* self, const char* path, const char* kind) {
    const Orders orders = enter(self, "backup", quoted(path) + ", " + quoted(kind));
    if (orders.has("write")) {
        std::ofstream(path) << std::string(static_cast<std::size_t>(orders.number("write")), 'b');
    }
    return orders.number("status");
}

std::int64_t restore(Controller* self, const char* path) {
    return enter(self, "restore", quoted(path)).number("status");
}

std::int64_t getBackupSize(Controller* self, const char* kind, std::uint64_t* bytes) {
    const Orders orders =
        enter(self, "getBackupSize",
              quoted(kind) + ", " + (bytes != nullptr ? std::to_string(*bytes) : "null"));
    if (orders.has("bytes")) {
        *bytes = static_cast<std::uint64_t>(orders.number("bytes"));
    }
    return orders.number("status");
}

std::int64_t checkBackupFile(Controller* self, const char* path) {
    return checkStatus(enter(self, "checkBackupFile", quoted(path)), path);
}

std::int64_t update(Controller* self, const char* path) {
    return enter(self, "update", quoted(path)).number("status");
}

std::int64_t checkFirmwareFile(Controller* self, const char* path) {
    return checkStatus(enter(self, "checkFirmwareFile", quoted(path)), path);
}

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

Controller* create(const std::string& kind, const Slot* table) {
    const Orders orders(kind + ".create");
    Controller* controller = nullptr;
    if (!orders.has("null")) {
        controller = new Controller{table, kind, device_double::recordPath()};
        const std::lock_guard lock(controllersMutex);
        std::vector<Controller*>& all = controllers();
        all.push_back(controller);
        controller->number = std::count_if(all.begin(), all.end(), [&](const Controller* other) {
            return other->kind == kind && other->record == controller->record;
        });
    }
    record("call", kind + "CreateController() = " + nameOf(controller));
    orders.misuseOrWait();
    return controller;
}

void destroy(Controller* controller, const std::string& kind) {
    const std::string name = kind + "DestroyController";
    record("call", name + "(" + nameOf(controller) + ")");
    const Orders orders(kind + ".destroy");
    if (controller != nullptr) {
        if (controller->kind != kind || controller->destroyed) {
            record("violation", name + " of a controller of another kind or already destroyed");
            return;
        }
        useLog(*controller, orders.value("log", kHarmlessLogSlots));
        controller->destroyed = true;
    }
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

// The virtual tables that the service and the closed device library share, slot by slot.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <new>
#include <typeinfo>
#include <utility>
#include <vector>

#include "tests/support/process/printed_text.h"
#include "transfer/console_log.h"
#include "transfer/platform/device_manager_client.h"

namespace {

// What an object without data looks like in memory, followed by what was called on it.
struct FakeObject {
    const void* slots;
    int called = -1;
};

// Every slot answers differently, and with zero when the status is cut to 32 bits.
constexpr std::int64_t statusOfSlot(int slot) {
    return (slot + 1LL) << 32U;
}

template <int N>
std::int64_t arrive(FakeObject* self) {
    self->called = N;
    return statusOfSlot(N);
}

// A virtual table made by hand: what a run-time type check looks at, then the slots.
template <typename Interface, typename Slots>
struct Table;
template <typename Interface, int... N>
struct Table<Interface, std::integer_sequence<int, N...>> {
    std::ptrdiff_t offsetToTop = 0;
    const std::type_info* type = &typeid(Interface);
    std::array<std::int64_t (*)(FakeObject*), sizeof...(N)> slots{arrive<N>...};
};

template <typename Interface>
using Calls = std::vector<std::function<void(Interface&)>>;

// Calls one operation a slot, in the order of the slots.
template <typename Interface, int kSlots>
void expectOneCallPerSlot(const Calls<Interface>& calls) {
    static const Table<Interface, std::make_integer_sequence<int, kSlots>> kTable;
    ASSERT_EQ(calls.size(), static_cast<std::size_t>(kSlots));
    for (int slot = 0; slot < kSlots; ++slot) {
        FakeObject object{kTable.slots.data()};
        calls.at(slot)(*reinterpret_cast<Interface*>(&object));
        EXPECT_EQ(object.called, slot);
    }
}

TEST(BackupController, hasItsOperationsInTheirSlots) {
    std::uint64_t bytes = 0;
    expectOneCallPerSlot<IBRController, 10>({
        [](auto& it) { EXPECT_EQ(it.connect("", ""), statusOfSlot(0)); },
        [](auto& it) { it.disconnect(); },
        [](auto& it) { it.setLog(nullptr); },
        [](auto& it) { EXPECT_EQ(it.backup("", ""), statusOfSlot(3)); },
        [](auto& it) { EXPECT_EQ(it.restore(""), statusOfSlot(4)); },
        [&](auto& it) { EXPECT_EQ(it.getBackupSize("", &bytes), statusOfSlot(5)); },
        [](auto& it) { EXPECT_EQ(it.checkBackupFile(""), statusOfSlot(6)); },
        [](auto& it) { it.reserved7(""); },
        [](auto& it) { it.reserved8(); },
        [](auto& it) { it.setWorkDirectory(""); },
    });
}

TEST(UpdateController, hasItsOperationsInTheirSlots) {
    expectOneCallPerSlot<IFUController, 14>({
        [](auto& it) { EXPECT_EQ(it.connect("", ""), statusOfSlot(0)); },
        [](auto& it) { it.disconnect(); },
        [](auto& it) { EXPECT_EQ(it.update(""), statusOfSlot(2)); },
        [](auto& it) { it.reserved3(); },
        [](auto& it) { it.reserved4(); },
        [](auto& it) { it.setLog(nullptr); },
        [](auto& it) { it.reserved6(""); },
        [](auto& it) { it.reserved7(); },
        [](auto& it) { it.setWorkDirectory(""); },
        [](auto& it) { it.reserved9(); },
        [](auto& it) { it.reserved10(); },
        [](auto& it) { it.reserved11(); },
        [](auto& it) { it.reserved12(); },
        [](auto& it) { EXPECT_EQ(it.checkFirmwareFile(""), statusOfSlot(13)); },
    });
}

// ---- The other way round: the library calls the service's log by slot. ----

using PlainSlot = void (*)(void*);
using FormatSlot = void (*)(void*, const char*, ...);
using CredentialSlot = int (*)(void*, const char**);

template <typename Function>
Function slotOf(const void* object, std::size_t slot) {
    const Function* slots = nullptr;
    std::memcpy(&slots, object, sizeof slots);
    return slots[slot];
}

// Counts what the two destructor slots and the credential slot do.
class CountedLog : public CConsoleLog {
public:
    ~CountedLog() override { ++destroyed; }
    int readCredential(const char** /*out*/) override { return -6; }
    static void operator delete(void* object) {
        ++freed;
        ::operator delete(object);
    }

    static inline int destroyed = 0;
    static inline int freed = 0;
};

TEST(ConsoleLog, ignoresPlainAndFormattedCallsBySlot) {
    CConsoleLog log;
    const std::string printed = test_support::printedBy([&log] {
        for (const std::size_t slot : {1U, 2U, 3U, 5U}) {
            slotOf<PlainSlot>(&log, slot)(&log);
        }
        for (const std::size_t slot : {0U, 4U}) {
            slotOf<FormatSlot>(&log, slot)(&log, "%s %5.2f %lld", "text", 3.14, 1LL << 40U);
            slotOf<FormatSlot>(&log, slot)(&log, "%s %n");  // no argument to read or write through
            slotOf<FormatSlot>(&log, slot)(&log, nullptr);
        }
    });
    EXPECT_EQ(printed, "");
}

TEST(ConsoleLog, readsTheCredentialInSlot6) {
    CountedLog log;
    const char* out = nullptr;
    EXPECT_EQ(slotOf<CredentialSlot>(&log, 6)(&log, &out), -6);
}

TEST(ConsoleLog, isDestroyedInSlot7AndFreedAsWellInSlot8) {
    auto* log = new CountedLog;
    const int before = CountedLog::destroyed;
    slotOf<PlainSlot>(log, 7)(log);
    EXPECT_EQ(CountedLog::destroyed, before + 1);
    EXPECT_EQ(CountedLog::freed, 0);
    new (log) CountedLog;
    slotOf<PlainSlot>(log, 8)(log);
    EXPECT_EQ(CountedLog::destroyed, before + 2);
    EXPECT_EQ(CountedLog::freed, 1);
}

}  // namespace

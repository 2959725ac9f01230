// The positions of the device library's operations in its virtual tables, proved with tables made
// by hand.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <typeinfo>
#include <vector>

#include "tests/support/process/printed_text.h"
#include "transfer/console_log.h"
#include "transfer/platform/device_manager_client.h"

namespace {

using Slot = void (*)();

// In front of the slots stands what a run-time type check looks at.
template <std::size_t N>
struct Table {
    std::ptrdiff_t offsetToTop;
    const std::type_info* type;
    std::array<Slot, N> slots;
};

// What an object without data looks like in memory, followed by what was done to it.
struct FakeObject {
    const Slot* table;
    int slot = -1;
    std::string arguments;
};

template <typename Function>
Slot slotOf(Function* function) {
    return reinterpret_cast<Slot>(function);
}

// Every slot answers differently, and nothing but success when it is cut to 32 bits.
constexpr std::int64_t statusOfSlot(int slot) {
    return (slot + 1LL) << 32U;
}

constexpr std::uint64_t kReportedBytes = 0xFEDCBA9876543210;

template <int N>
void plain(FakeObject* self) {
    self->slot = N;
}

template <int N>
void text(FakeObject* self, const char* only) {
    self->slot = N;
    self->arguments = only;
}

template <int N>
void pointer(FakeObject* self, const void* only) {
    self->slot = N;
    self->arguments = only == self ? "itself" : "something else";
}

template <int N>
std::int64_t status(FakeObject* self, const char* only) {
    text<N>(self, only);
    return statusOfSlot(N);
}

template <int N>
std::int64_t statusOfTwo(FakeObject* self, const char* first, const char* second) {
    text<N>(self, first);
    self->arguments += std::string("|") + second;
    return statusOfSlot(N);
}

template <int N>
std::int64_t statusAndSize(FakeObject* self, const char* only, std::uint64_t* bytes) {
    text<N>(self, only);
    *bytes = kReportedBytes;
    return statusOfSlot(N);
}

template <int N>
void formatted(FakeObject* self, const char* format, ...) {
    text<N>(self, format);
}

template <int N>
int credential(FakeObject* self, const char** out) {
    self->slot = N;
    *out = "credential";
    return -N;
}

const Table<10> kBackupTable{
    0,
    &typeid(IBRController),
    {slotOf(statusOfTwo<0>), slotOf(plain<1>), slotOf(pointer<2>), slotOf(statusOfTwo<3>),
     slotOf(status<4>), slotOf(statusAndSize<5>), slotOf(status<6>), slotOf(text<7>),
     slotOf(plain<8>), slotOf(text<9>)}};

const Table<14> kUpdateTable{
    0,
    &typeid(IFUController),
    {slotOf(statusOfTwo<0>), slotOf(plain<1>), slotOf(status<2>), slotOf(plain<3>),
     slotOf(plain<4>), slotOf(pointer<5>), slotOf(text<6>), slotOf(plain<7>), slotOf(text<8>),
     slotOf(plain<9>), slotOf(plain<10>), slotOf(plain<11>), slotOf(plain<12>),
     slotOf(status<13>)}};

const Table<9> kLogTable{0,
                         &typeid(IBRLog),
                         {slotOf(formatted<0>), slotOf(plain<1>), slotOf(plain<2>),
                          slotOf(plain<3>), slotOf(formatted<4>), slotOf(plain<5>),
                          slotOf(credential<6>), slotOf(plain<7>), slotOf(plain<8>)}};

template <typename Interface>
Interface& asInterface(FakeObject& object) {
    return *reinterpret_cast<Interface*>(&object);
}

IBRLog* asLog(void* object) {
    return static_cast<IBRLog*>(object);
}

constexpr std::int64_t kNoStatus = -1;

// One operation called through its declaration, and where that has to arrive.
template <typename Interface>
struct SlotCall {
    int slot;
    const char* arguments;
    std::function<std::int64_t(Interface&)> call;  // kNoStatus where there is none
};

template <typename Interface>
SlotCall<Interface> withoutStatus(int slot, const char* arguments,
                                  const std::function<void(Interface&)>& call) {
    return {slot, arguments, [call](Interface& object) {
                call(object);
                return kNoStatus;
            }};
}

// `operations` has one operation a slot, in the order of the slots.
template <typename Interface, std::size_t N>
void expectArrivalOfEach(const std::vector<SlotCall<Interface>>& operations,
                         const Table<N>& table) {
    ASSERT_EQ(operations.size(), N);
    for (std::size_t slot = 0; slot < N; ++slot) {
        SCOPED_TRACE(slot);
        FakeObject object{table.slots.data(), -1, {}};
        const std::int64_t answer = operations[slot].call(asInterface<Interface>(object));
        EXPECT_EQ(object.slot, operations[slot].slot);
        EXPECT_EQ(object.arguments, operations[slot].arguments);
        if (answer != kNoStatus) {
            EXPECT_EQ(answer, statusOfSlot(operations[slot].slot));
        }
    }
}

TEST(BackupController, isCalledBySlotWithA64BitStatus) {
    const auto plainly = withoutStatus<IBRController>;
    expectArrivalOfEach<IBRController>(
        {{0, "endpoint|credential", [](auto& it) { return it.connect("endpoint", "credential"); }},
         plainly(1, "", [](auto& it) { it.disconnect(); }),
         plainly(2, "itself", [](auto& it) { it.setLog(asLog(&it)); }),
         {3, "/path|kind", [](auto& it) { return it.backup("/path", "kind"); }},
         {4, "/path", [](auto& it) { return it.restore("/path"); }},
         {5, "kind",
          [](auto& it) {
              std::uint64_t bytes = 0;
              const std::int64_t answer = it.getBackupSize("kind", &bytes);
              EXPECT_EQ(bytes, kReportedBytes);
              return answer;
          }},
         {6, "/path", [](auto& it) { return it.checkBackupFile("/path"); }},
         plainly(7, "text", [](auto& it) { it.reserved7("text"); }),
         plainly(8, "", [](auto& it) { it.reserved8(); }),
         plainly(9, "/path", [](auto& it) { it.setWorkDirectory("/path"); })},
        kBackupTable);
}

TEST(UpdateController, isCalledBySlotWithA64BitStatus) {
    const auto plainly = withoutStatus<IFUController>;
    expectArrivalOfEach<IFUController>(
        {{0, "endpoint|credential", [](auto& it) { return it.connect("endpoint", "credential"); }},
         plainly(1, "", [](auto& it) { it.disconnect(); }),
         {2, "/path", [](auto& it) { return it.update("/path"); }},
         plainly(3, "", [](auto& it) { it.reserved3(); }),
         plainly(4, "", [](auto& it) { it.reserved4(); }),
         plainly(5, "itself", [](auto& it) { it.setLog(asLog(&it)); }),
         plainly(6, "text", [](auto& it) { it.reserved6("text"); }),
         plainly(7, "", [](auto& it) { it.reserved7(); }),
         plainly(8, "/path", [](auto& it) { it.setWorkDirectory("/path"); }),
         plainly(9, "", [](auto& it) { it.reserved9(); }),
         plainly(10, "", [](auto& it) { it.reserved10(); }),
         plainly(11, "", [](auto& it) { it.reserved11(); }),
         plainly(12, "", [](auto& it) { it.reserved12(); }),
         {13, "/path", [](auto& it) { return it.checkFirmwareFile("/path"); }}},
        kUpdateTable);
}

TEST(LogInterface, isCalledBySlot) {
    const auto plainly = withoutStatus<IBRLog>;
    expectArrivalOfEach<IBRLog>(
        {plainly(0, "%d %s", [](auto& it) { it.log("%d %s", 1, "x"); }),
         plainly(1, "", [](auto& it) { it.reserved1(); }),
         plainly(2, "", [](auto& it) { it.reserved2(); }),
         plainly(3, "", [](auto& it) { it.reserved3(); }),
         plainly(4, "%d %s", [](auto& it) { it.logError("%d %s", 1, "x"); }),
         plainly(5, "", [](auto& it) { it.reserved5(); }),
         plainly(6, "",
                 [](auto& it) {
                     const char* out = nullptr;
                     EXPECT_EQ(it.readCredential(&out), -6);
                     EXPECT_STREQ(out, "credential");
                 }),
         plainly(7, "", [](auto& it) { it.~IBRLog(); }),
         plainly(8, "", [](auto& it) { delete &it; })},
        kLogTable);
}

// ---- the other way round: the library calls the service's log by slot
// -------------------------------

const Slot* tableOf(const void* object) {
    const Slot* table = nullptr;
    std::memcpy(&table, object, sizeof table);
    return table;
}

using PlainSlot = void (*)(void*);
using FormatSlot = void (*)(void*, const char*, ...);

class ConsoleLogBySlot : public testing::Test {
protected:
    void callPlain(std::size_t slot) {
        reinterpret_cast<PlainSlot>(tableOf(place_.data())[slot])(place_.data());
    }
    FormatSlot formatSlot(std::size_t slot) const {
        return reinterpret_cast<FormatSlot>(tableOf(place_.data())[slot]);
    }
    std::array<std::byte, sizeof(CConsoleLog)> bytes() const { return place_; }

    alignas(CConsoleLog) std::array<std::byte, sizeof(CConsoleLog)> place_{};
    CConsoleLog* log_ = new (place_.data()) CConsoleLog;
};

TEST_F(ConsoleLogBySlot, doesNothingInTheSlotsOfPlainCalls) {
    const auto before = bytes();
    for (const std::size_t slot : {1U, 2U, 3U, 5U}) {
        callPlain(slot);
    }
    EXPECT_EQ(bytes(), before);
}

TEST_F(ConsoleLogBySlot, looksAtNoArgumentOfALogCall) {
    const auto before = bytes();
    const std::string printed = test_support::printedBy([this] {
        for (const std::size_t slot : {0U, 4U}) {
            formatSlot(slot)(place_.data(), "%s %d %5.2f %lld", "text", 4711, 3.14, 1LL << 40U);
            formatSlot(slot)(place_.data(), "%s %n");  // nothing there to read or write through
            formatSlot(slot)(place_.data(), nullptr);
        }
    });
    EXPECT_EQ(printed, "");
    EXPECT_EQ(bytes(), before);
}

// Counts what the two destructor slots do.
class CountedLog : public CConsoleLog {
public:
    ~CountedLog() override { ++destroyed; }
    static void operator delete(void* object) {
        ++freed;
        ::operator delete(object);
    }

    static inline int destroyed = 0;
    static inline int freed = 0;
};

TEST(ConsoleLogDestructor, standsInSlot7AndTogetherWithFreeingInSlot8) {
    auto* log = new CountedLog;
    reinterpret_cast<PlainSlot>(tableOf(log)[7])(log);
    EXPECT_EQ(CountedLog::destroyed, 1);
    EXPECT_EQ(CountedLog::freed, 0);
    new (log) CountedLog;
    reinterpret_cast<PlainSlot>(tableOf(log)[8])(log);
    EXPECT_EQ(CountedLog::destroyed, 2);
    EXPECT_EQ(CountedLog::freed, 1);
}

TEST_F(ConsoleLogBySlot, isDestroyedInPlaceBySlot7) {
    callPlain(7);  // freed, this memory would end the test
}

}  // namespace

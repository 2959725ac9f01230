// The memory that the service takes: when idle, for a large reply, and over many calls.
#include "tests/bench/bench.h"
#include "tests/bench/call_stream.h"
#include "tests/bench/index_reply.h"
#include "tests/bench/services.h"

namespace bench {
namespace {

using test_support::Stick;

constexpr int kIdleRounds = 5;
constexpr int kReplyRounds = 3;
constexpr int kLargeDirectory = 100'000;
constexpr int kSmallDirectory = 10;
constexpr int kSmallCalls = 10;
constexpr int kFewCalls = 10'000;
constexpr int kManyCalls = 400'000;
constexpr int kCallsInFlight = 4;
constexpr double kBytesAKilobyte = 1024;
constexpr const char* kRollUp = "smaps_rollup";

double residentOf(pid_t process) {
    return static_cast<double>(memoryOf(process, kRollUp, "Rss"));
}

double privateOf(pid_t process) {
    return static_cast<double>(memoryOf(process, kRollUp, "Private_Clean") +
                               memoryOf(process, kRollUp, "Private_Dirty"));
}

std::vector<Row> measureIdle() {
    say("idle memory");
    const std::string floorIs = "the floor service, with the C++ and the device libraries";
    Row resident{"idle, resident", floorIs, "kB", Compared::Ratio, 1.1, {}, 0, {}, {}};
    Row own{"idle, private", floorIs, "kB", Compared::Ratio, 1.1, {}, 0, {}, {}};
    const SystemBus bus;
    for (int round = 0; round < kIdleRounds; ++round) {
        const Daemon service;
        const FloorService floor("floor_service_cxx");
        for (const Target& target : {kFloor, kService}) {
            for (int i = 0; i < kSmallCalls; ++i) {
                readProperty(bus, target);
            }
        }
        resident.floor.push_back(residentOf(floor.id()));
        resident.measured.push_back(residentOf(service.id()));
        own.floor.push_back(privateOf(floor.id()));
        own.measured.push_back(privateOf(service.id()));
    }
    return {resident, own};
}

std::vector<Row> measureLargeReply(const Stick& stick) {
    say("memory of a large reply");
    const std::string floorIs = "size of the reply";
    Row peak{"memory at the peak of a reply of 100000 files",
             floorIs,
             "kB",
             Compared::Ratio,
             3,
             {},
             0,
             {},
             {}};
    Row after{
        "private memory left right after it", floorIs, "kB", Compared::Nothing, 0, {}, 0, {}, {}};
    Row later{"private memory left 10 small calls later",
              floorIs,
              "kB",
              Compared::Ratio,
              0.1,
              {},
              0,
              {},
              {}};
    const std::string large = fillDirectory(stick, kLargeDirectory);
    const std::string small = fillDirectory(stick, kSmallDirectory);
    const SystemBus bus;
    for (int round = 0; round < kReplyRounds; ++round) {
        const Daemon service;
        const auto list = [&bus](const std::string& directory) {
            return call(bus, kService, "GetDirectoryIndex", indexArguments(directory));
        };
        list(small);
        const double before = privateOf(service.id());
        const auto highest = [&] {
            return static_cast<double>(memoryOf(service.id(), "status", "VmHWM"));
        };
        const double highestBefore = highest();
        const double size = static_cast<double>(marshal(list(large).get())) / kBytesAKilobyte;
        peak.measured.push_back(highest() - highestBefore);
        readProperty(bus, kService);  // answered: what the reply took has been given back
        after.measured.push_back(privateOf(service.id()) - before);
        for (int i = 0; i < kSmallCalls; ++i) {
            i % 2 == 0 ? list(small) : readProperty(bus, kService);
        }
        later.measured.push_back(privateOf(service.id()) - before);
        for (Row* row : {&peak, &after, &later}) {
            row->floor.push_back(size);
        }
    }
    return {peak, after, later};
}

Row measureGrowth(const Stick& stick) {
    say("memory over 400000 calls");
    const std::string small = fillDirectory(stick, kSmallDirectory);
    const Daemon service;
    const SystemBus bus;
    CallStream calls(bus, kService, kCallsInFlight, [&small](int number) {
        return number % 2 == 0 ? StreamedCall{"GetUSBStickDetails", nullptr}
                               : StreamedCall{"GetDirectoryIndex", indexArguments(small)};
    });
    const auto anonymous = [&] {
        return static_cast<double>(memoryOf(service.id(), "status", "RssAnon"));
    };
    calls.run(kFewCalls);
    const double few = anonymous();
    calls.run(kManyCalls - kFewCalls);
    return {"anonymous memory after 400000 mixed calls",
            "itself after 10000",
            "kB",
            Compared::Difference,
            32,
            {},
            0,
            {few},
            {anonymous()}};
}

}  // namespace

std::vector<Row> measureMemory() {
    std::vector<Row> rows = measureIdle();
    const Stick stick(1, {"1g", "/dev/sda1", false});
    for (Row& row : measureLargeReply(stick)) {
        rows.push_back(std::move(row));
    }
    rows.push_back(measureGrowth(stick));
    return rows;
}

}  // namespace bench

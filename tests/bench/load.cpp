// Many calls at once, and small calls while large listings run.
#include <algorithm>
#include <atomic>
#include <thread>

#include "tests/bench/bench.h"
#include "tests/bench/call_stream.h"
#include "tests/bench/services.h"

namespace bench {
namespace {

using test_support::Stick;

constexpr int kRounds = 9;
constexpr int kCalls = 5'000;
constexpr int kCallsInFlight = 32;
constexpr int kLargeDirectory = 100'000;
constexpr int kListings = 10;
constexpr double kMicrosecondsASecond = 1e6;

Row measureThroughput() {
    say("calls in flight");
    const Daemon service;
    const FloorService floor;
    const SystemBus bus;
    const auto nothing = [](int /*number*/) { return StreamedCall{"Nothing", nullptr}; };
    const auto validate = [](int /*number*/) {
        return StreamedCall{"ValidateBackupSize", g_variant_new("(us)", 1U, "USB_X60.1")};
    };
    CallStream ofFloor(bus, kFloor, kCallsInFlight, nothing);
    CallStream ofService(bus, kService, kCallsInFlight, validate);
    Row row = filled(
        {"time a call with 32 in flight",
         "the floor service",
         "us",
         Compared::Nothing,
         0,
         {},
         0,
         {},
         {}},
        runRounds(
            kRounds, 2, elapsed, [&] { ofFloor.run(kCalls); }, [&] { ofService.run(kCalls); }));
    for (std::vector<double>* figures : {&row.floor, &row.measured}) {
        for (double& figure : *figures) {
            figure /= kCalls;
        }
    }
    return row;
}

// What small calls take while another client asks for one listing after the other.
struct Crowded {
    std::vector<double> calls;
    std::vector<double> listings;
};

Crowded measureBeside(const Target& target, const std::function<void(const SystemBus&)>& list) {
    Crowded result;
    std::atomic<bool> listing{true};
    std::thread lister([&] {
        const SystemBus bus;
        for (int i = 0; i < kListings; ++i) {
            result.listings.push_back(elapsed([&] { list(bus); }));
        }
        listing = false;
    });
    const SystemBus bus;
    while (listing) {
        result.calls.push_back(elapsed([&] { readProperty(bus, target); }));
    }
    lister.join();
    return result;
}

std::vector<Row> measureCrowd(const Stick& stick) {
    say("small calls beside large listings");
    const std::string directory = fillDirectory(stick, kLargeDirectory);
    const Daemon service;
    const FloorService floor;
    Row most{"property read beside listings of 100000 files, p99",
             "the floor service, its listings from memory",
             "us",
             Compared::Nothing,
             0,
             {},
             0,
             {},
             {}};
    Row longest{"the longest of them",
                "the longest of these listings",
                "us",
                Compared::Ratio,
                1,
                {},
                0,
                {},
                {}};
    for (int round = 0; round < kRounds / 3; ++round) {
        const Crowded floorCrowd = measureBeside(kFloor, [](const SystemBus& bus) {
            call(bus, kFloor, "List", g_variant_new("(u)", kLargeDirectory));
        });
        const Crowded crowd = measureBeside(kService, [&directory](const SystemBus& bus) {
            call(bus, kService, "GetDirectoryIndex", indexArguments(directory));
        });
        most.floor.push_back(quantile(floorCrowd.calls, 0.99));
        most.measured.push_back(quantile(crowd.calls, 0.99));
        longest.floor.push_back(quantile(crowd.listings, 1));
        longest.measured.push_back(quantile(crowd.calls, 1));
    }
    return {most, longest};
}

}  // namespace

std::vector<Row> measureLoad() {
    std::vector<Row> rows{measureThroughput()};
    const Stick stick(1, {"1g", "/dev/sda1", false});
    for (Row& row : measureCrowd(stick)) {
        rows.push_back(std::move(row));
    }
    return rows;
}

}  // namespace bench

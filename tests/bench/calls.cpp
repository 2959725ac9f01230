// What a client waits for a small call, beside a service that does next to nothing.
#include <sys/mount.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "tests/bench/bench.h"
#include "tests/bench/services.h"

namespace bench {
namespace {

using test_support::Stick;

constexpr int kRounds = 15;
constexpr int kCalls = 1'000;
constexpr std::size_t kMountTableEntries = 32;

// Mounts and unmounts until the service sees a mount table of a certain length; what it unmounts
// are the sandbox's loop devices and the machine's /sys, which nothing here needs.
class MountTable {
public:
    MountTable(pid_t service, std::size_t entries) : service_(service) {
        std::vector<std::string> lines = read();
        for (auto line = lines.rbegin(); line != lines.rend() && read().size() > entries; ++line) {
            if (line->rfind("/dev/loop", 0) == 0 || line->rfind("/sys/", 0) == 0) {
                umount2(line->c_str(), 0);
            }
        }
        while (read().size() < entries) {
            fillers_.push_back(std::make_unique<test_support::Mount>(
                "/mnt/filler-" + std::to_string(fillers_.size()), "filler", "tmpfs", 0UL, ""));
        }
    }

    std::size_t entries() const { return read().size(); }

private:
    // The directories of the table.
    std::vector<std::string> read() const {
        std::ifstream table("/proc/" + std::to_string(service_) + "/mounts");
        std::vector<std::string> directories;
        std::string source;
        std::string directory;
        for (std::string rest; table >> source >> directory && std::getline(table, rest);) {
            directories.push_back(directory);
        }
        return directories;
    }

    pid_t service_;
    std::vector<std::unique_ptr<test_support::Mount>> fillers_;
};

std::vector<Row> measurePropertyRead() {
    say("property reads");
    const Daemon service;
    const FloorService floor;
    const SystemBus bus;
    const std::vector<Round> rounds = runRounds(
        kRounds, kCalls, elapsed, [&] { readProperty(bus, kFloor); },
        [&] { readProperty(bus, kService); });
    const Row row{{}, "the floor service", "us", Compared::Ratio, 1.03, {}, 0, {}, {}};
    Row half = filled(row, rounds, 0.5);
    half.what = "property read, p50";
    Row most = filled(row, rounds, 0.99);
    most.what = "property read, p99";
    return {half, most};
}

Row measureStickDetails(int sticks, double aim) {
    say("stick details");
    std::vector<std::unique_ptr<Stick>> present;
    for (int number = 1; number <= sticks; ++number) {
        present.push_back(std::make_unique<Stick>(number));
    }
    const Daemon service;
    const MountTable table(service.id(), kMountTableEntries);
    const FloorService floor;
    const SystemBus bus;
    const std::vector<Round> rounds = runRounds(
        kRounds, kCalls, elapsed, [&] { call(bus, kFloor, "Nothing"); },
        [&] { call(bus, kService, "GetUSBStickDetails"); });
    return filled({"GetUSBStickDetails, " + std::to_string(sticks) + " sticks, " +
                       std::to_string(table.entries()) + " mounts, p50",
                   "an empty method of the floor service",
                   "us",
                   Compared::Ratio,
                   aim,
                   {},
                   0,
                   {},
                   {}},
                  rounds);
}

}  // namespace

std::vector<Row> measureCalls() {
    std::vector<Row> rows = measurePropertyRead();
    rows.push_back(measureStickDetails(0, 1.4));
    rows.push_back(measureStickDetails(2, 1.5));
    return rows;
}

}  // namespace bench

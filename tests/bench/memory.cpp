// The memory that the service takes: when idle, after a large reply, and over many calls.
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "tests/bench/index_reply.h"
#include "tests/bench/rows.h"
#include "tests/bench/services.h"

namespace bench {
namespace {

constexpr int kLargeDirectory = 10'000;
constexpr int kSmallDirectory = 10;
constexpr int kSmallCalls = 10;
constexpr int kFewCalls = 10'000;
constexpr int kManyCalls = 400'000;
constexpr double kKilobyte = 1024;

// A field of /proc/PID/smaps_rollup in kB.
double memoryOf(pid_t process, const std::string& field) {
    std::ifstream lines("/proc/" + std::to_string(process) + "/smaps_rollup");
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, field.size() + 1, field + ":") == 0) {
            return std::strtod(line.c_str() + field.size() + 1, nullptr);
        }
    }
    throw std::runtime_error("no " + field + ": the service has gone");
}

double privateOf(pid_t process) {
    return memoryOf(process, "Private_Clean") + memoryOf(process, "Private_Dirty");
}

Row measureIdle(int rounds) {
    Row row{"idle, resident", "floor service, same libraries", "kB", 1.1};
    for (int round = 0; round < rounds; ++round) {
        const FloorService floor;
        const Daemon service;
        row.floor.push_back(memoryOf(floor.id(), "Rss"));
        row.measured.push_back(memoryOf(service.id(), "Rss"));
    }
    return row;
}

std::vector<Row> measureReply(const Stick& stick, int rounds) {
    Row after{"private memory after a reply of 10000 files, without the working list",
              "size of the reply", "kB", 0.3};
    Row later = after;
    later.what = "the same, ten small calls later";
    const std::string large = fillDirectory(stick, kLargeDirectory);
    const std::string small = fillDirectory(stick, kSmallDirectory);
    // The strings of these entries are short enough to lie inside them.
    const double workingList = kLargeDirectory * sizeof(FileEntry) / kKilobyte;
    const SystemBus bus;
    for (int round = 0; round < rounds; ++round) {
        const Daemon service;
        const auto list = [&bus](const std::string& directory) {
            return call(bus, kService, "GetDirectoryIndex", indexArguments(directory));
        };
        list(small);
        const double before = privateOf(service.id());
        const double size = static_cast<double>(marshal(list(large).get())) / kKilobyte;
        call(bus, kService, "GetUSBStickDetails");  // once answered, the reply is freed
        after.floor.push_back(size);
        after.measured.push_back(privateOf(service.id()) - before - workingList);
        for (int i = 0; i < kSmallCalls; ++i) {
            list(small);
        }
        later.floor.push_back(size);
        later.measured.push_back(privateOf(service.id()) - before);
    }
    return {after, later};
}

void makeCalls(const SystemBus& bus, const std::string& directory, int calls) {
    for (int made = 0; made < calls; made += 2) {
        call(bus, kService, "GetDirectoryIndex", indexArguments(directory));
        call(bus, kService, "GetUSBStickDetails");
    }
}

Row measureGrowth(const Stick& stick) {
    Row row{"private memory after 400000 mixed calls", "itself after 10000", "kB", 32,
            Compared::Difference};
    const std::string small = fillDirectory(stick, kSmallDirectory);
    const Daemon service;
    const SystemBus bus;
    makeCalls(bus, small, kFewCalls);
    row.floor.push_back(privateOf(service.id()));
    makeCalls(bus, small, kManyCalls - kFewCalls);
    row.measured.push_back(privateOf(service.id()));
    return row;
}

}  // namespace

std::vector<Row> measureMemory(int rounds) {
    std::vector<Row> rows{measureIdle(rounds)};
    const Stick stick = largeStick();
    for (Row& row : measureReply(stick, rounds)) {
        rows.push_back(std::move(row));
    }
    rows.push_back(measureGrowth(stick));
    return rows;
}

}  // namespace bench

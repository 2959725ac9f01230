// What a client waits for, beside a service that does next to nothing.
#include <sys/mount.h>

#include <stdexcept>

#include "tests/bench/index_reply.h"
#include "tests/bench/rows.h"
#include "tests/bench/services.h"
#include "tests/support/files/files.h"

namespace bench {
namespace {

constexpr int kCalls = 1'000;

Row measureIndex(const SystemBus& bus, const Stick& stick, int files, int rounds) {
    Row row{"GetDirectoryIndex for a client, " + counted(files), "floor service, from memory", "us",
            1.4};
    const std::string directory = fillDirectory(stick, files);
    const auto ofFloor = [&] { return call(bus, kFloor, "List", g_variant_new("(u)", files)); };
    const auto ofService = [&] {
        return call(bus, kService, "GetDirectoryIndex", indexArguments(directory));
    };
    // The same elements, but for the order of the names.
    if (g_variant_get_size(ofService().get()) != g_variant_get_size(ofFloor().get())) {
        throw std::runtime_error("the replies of service and floor differ");
    }
    for (int round = 0; round < rounds; ++round) {
        addRound(row, timesFor(files), CLOCK_MONOTONIC, ofFloor, ofService);
    }
    return row;
}

Row measureStickDetails(const SystemBus& bus, pid_t service, int rounds) {
    const Stick second(2);
    umount2("/sys", MNT_DETACH);  // a PC mounts more below it than a device does
    const std::size_t mounts =
        test_support::readLines("/proc/" + std::to_string(service) + "/mounts").size();
    Row row{"GetUSBStickDetails, 2 sticks, " + std::to_string(mounts) + " mounts", "empty method",
            "us", 1.4};
    for (int round = 0; round < rounds; ++round) {
        addRound(
            row, kCalls, CLOCK_MONOTONIC, [&] { call(bus, kFloor, "Nothing"); },
            [&] { call(bus, kService, "GetUSBStickDetails"); });
    }
    return row;
}

}  // namespace

std::vector<Row> measureCalls(int rounds) {
    const Stick stick = largeStick();
    const Daemon service;
    const FloorService floor;
    const SystemBus bus;
    return {measureIndex(bus, stick, 1'000, rounds), measureIndex(bus, stick, 10'000, rounds),
            measureStickDetails(bus, service.id(), rounds)};
}

}  // namespace bench

// Ten operations of the service, each run once between two marks for callgrind: nothing in them
// depends on a clock, a bus or the machine. Run by scripts/checks/instructions.
#include <valgrind/callgrind.h>

#include <cstdio>
#include <ctime>
#include <functional>
#include <stdexcept>

#include "simulator/sandbox/inside_sandbox.h"
#include "tests/bench/index_reply.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"

// The linker leads the service's calls of time() here: the time stamp is always the same.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)
extern "C" std::time_t __wrap_time(std::time_t* /*result*/) {
    constexpr std::time_t kFixedTime = 1'700'000'000;
    return kFixedTime;
}

namespace {

using bench::marshal;
using test_support::mountLine;
using test_support::Stick;

constexpr int kRefused = 125;
constexpr int kOtherMounts = 30;

// Runs the operation twice and has the second run counted: the first one resolves symbols, sets up
// type systems and fills caches.
void count(const char* name, const std::function<bool()>& operation) {
    bool good = operation();
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    good = operation() && good;
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(name);
    if (!good) {
        throw std::runtime_error(std::string(name) + " does not do its work");
    }
}

void countSticks(TfMngr& manager) {
    const Stick first(1);
    const Stick third(3);
    std::string table;
    for (int i = 0; i < kOtherMounts; ++i) {
        table += mountLine("tmpfs", "/run/service-" + std::to_string(i), "tmpfs");
    }
    table += mountLine("/dev/sda1", first.path()) + mountLine("/dev/sda1", third.path());
    const test_support::ReplacedFile mounts(test_support::kMountTable, table);
    count("stick-details", [&] {
        const std::vector<UsbStickInfo> sticks = manager.enumerateUsbSticks();
        return marshal(g_variant_new("(@av)", reply::stickArray(sticks))) > 0 && sticks.size() == 2;
    });
}

void countListings(TfMngr& manager) {
    const Stick stick(1);
    for (const std::size_t files : {10U, 1'000U}) {
        const std::string directory = bench::fillDirectory(stick, static_cast<int>(files));
        count(("listing-" + std::to_string(files)).c_str(),
              [&] { return manager.getRestoreFilesList(stick.name(), directory).size() == files; });
    }
    for (int i = 0; i < 10; ++i) {
        const std::string set = "tree/set-" + std::to_string(i);
        stick.addFile(set + "/deeper/DEVICE-0.psb");
        stick.addFile(set + "/deeper/DEVICE-1.psb");
        for (int other = 0; other < 50; ++other) {
            stick.addFile(set + "/note-" + std::to_string(other));
        }
    }
    count("tree-scan",
          [&] { return manager.getBackupFilesList(stick.name(), "tree").size() == 20; });
}

void countEncodings() {
    const auto records = [](std::size_t number) {
        return std::vector<FileEntry>(
            number, {FileEntry::kOther, "DEVICE-2026115.13-7-1.psb", 1, "backups"});
    };
    for (const std::size_t number : {10U, 1'000U}) {
        const std::vector<FileEntry> entries = records(number);
        count(("array-" + std::to_string(number)).c_str(),
              [&] { return marshal(g_variant_new("(@av)", reply::fileArray(entries).value)) > 0; });
    }
    const std::vector<FileEntry> entries = records(reply::kMaxTupleRecords);
    count("tuple-63", [&] {
        GVariant* const tuple = reply::fileTuple(entries, reply::KindWord::Signed).value;
        return marshal(g_variant_new("(vi)", tuple, 63)) > 0;
    });
}

void countStrings(TfMngr& manager) {
    count("relative-path", [] {
        const std::string path = TfMngr::relativePath(
            "/media/usb/USB_X60.1/backups/of the year/DEVICE-1.psb", "USB_X60.1");
        return TfMngr::parentPath(path) == "backups/of the year";
    });
    count("time-stamp",
          [&] { return manager.GetBackupFileName(1) == "DEVICE-20231114.22-13-20.psb"; });
    count("component-walk", [] {
        TfMngr::makeDirectoryPath("/tmp/one/two/three/four/five/six/seven/eight");
        return true;
    });
}

}  // namespace

int main() {
    const std::string reason = test_support::whyOutsideSandbox();
    if (!reason.empty()) {
        std::fprintf(stderr, "operations: run inside the sandbox only: %s\n", reason.c_str());
        return kRefused;
    }
    TfMngr manager;
    countSticks(manager);
    countListings(manager);
    countEncodings();
    countStrings(manager);
    return 0;
}

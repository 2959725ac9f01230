// Ten operations of the service, each run once between two marks for callgrind: nothing in them
// depends on a clock, a bus or the machine. Run by scripts/checks/instructions.
#include <gio/gio.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <ctime>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/sandbox/inside_sandbox.h"
#include "tests/bench/index_reply.h"
#include "tests/support/device/mount_table.h"
#include "tests/support/device/stick.h"

// The linker leads the service's calls of time() here: the time stamp is always the same.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)
extern "C" std::time_t __wrap_time(std::time_t* /*result*/) {
    constexpr std::time_t kFixedTime = 1'700'000'000;
    return kFixedTime;
}

namespace {

using test_support::HandMadeMountTable;
using test_support::mountLine;
using test_support::Stick;

constexpr int kRefused = 125;
constexpr int kMountTableEntries = 32;

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

// The sticks come last, as those that were plugged in last do.
std::string mountTable(const std::vector<std::string>& sticks) {
    std::string table;
    for (std::size_t i = sticks.size(); i < kMountTableEntries; ++i) {
        table += mountLine("tmpfs", "/run/service-" + std::to_string(i), "tmpfs");
    }
    for (const std::string& stick : sticks) {
        table += mountLine("/dev/sda1", stick);
    }
    return table;
}

std::vector<FileEntry> records(int number) {
    const std::string location = "backups";
    std::vector<FileEntry> list;
    for (int i = 0; i < number; ++i) {
        list.push_back(
            {FileEntry::kOther, "DEVICE-2026115.13-7-" + std::to_string(i) + ".psb", i, location});
    }
    return list;
}

void fill(const Stick& stick, const std::string& directory, int files) {
    for (int i = 0; i < files; ++i) {
        stick.addFile(directory + "/DEVICE-" + std::to_string(i) + ".psb", "");
    }
}

void countSticks(TfMngr& manager) {
    const Stick first(1);
    const Stick third(3);
    const HandMadeMountTable table(mountTable({first.path(), third.path()}));
    count("stick-details", [&] {
        const std::vector<UsbStickInfo> sticks = manager.enumerateUsbSticks();
        GVariant* const array = reply::stickArray(sticks);
        return bench::marshal(g_variant_new("(@av)", array)) > 0 && sticks.size() == 2;
    });
}

void countListings(TfMngr& manager) {
    const Stick stick(1);
    for (const int files : {10, 1'000}) {
        const std::string directory = "listing of " + std::to_string(files);
        fill(stick, directory, files);
        count(("listing-" + std::to_string(files)).c_str(), [&] {
            return manager.getRestoreFilesList(stick.name(), directory).size() ==
                   static_cast<std::size_t>(files);
        });
    }
    for (int i = 0; i < 10; ++i) {
        fill(stick, "tree/set-" + std::to_string(i) + "/deeper", 2);
        for (int other = 0; other < 50; ++other) {
            stick.addFile("tree/set-" + std::to_string(i) + "/note-" + std::to_string(other), "");
        }
    }
    count("tree-scan",
          [&] { return manager.getBackupFilesList(stick.name(), "tree").size() == 20; });
}

void countEncodings() {
    const std::vector<FileEntry> few = records(10);
    const std::vector<FileEntry> many = records(1'000);
    const std::vector<FileEntry> tuple = records(reply::kMaxTupleRecords);
    count("array-10",
          [&] { return bench::marshal(g_variant_new("(@av)", reply::fileArray(few).value)) > 0; });
    count("array-1000",
          [&] { return bench::marshal(g_variant_new("(@av)", reply::fileArray(many).value)) > 0; });
    count("tuple-63", [&] {
        const reply::EncodedFiles list = reply::fileTuple(tuple, reply::KindWord::Signed);
        return bench::marshal(g_variant_new("(vi)", list.value, 63)) > 0;
    });
}

void countTexts(TfMngr& manager) {
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
        std::fprintf(stderr, "operations run inside the sandbox only: %s\n", reason.c_str());
        return kRefused;
    }
    try {
        TfMngr manager;
        countSticks(manager);
        countListings(manager);
        countEncodings();
        countTexts(manager);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "operations: %s\n", error.what());
        return 1;
    }
    return 0;
}

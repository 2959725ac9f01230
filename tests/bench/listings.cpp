// Listings: in the service beside bare loops over the same directories, and as a client waits for
// them.
#include <dirent.h>
#include <sys/stat.h>

#include <array>
#include <climits>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "tests/bench/bench.h"
#include "tests/bench/index_reply.h"
#include "tests/bench/services.h"
#include "transfer/platform/device_manager_client.h"

namespace bench {
namespace {

using test_support::Stick;

constexpr std::array<int, 4> kSizes{100, 1'000, 10'000, 100'000};
constexpr int kAimedFrom = 1'000;  // smaller listings are only reported
constexpr int kRounds = 9;
constexpr int kTreeRounds = 15;
constexpr int kTreeDirectories = 100;
constexpr int kTreeEntries = 10'000;
constexpr int kTreePackages = 25;

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

void expect(std::size_t found, std::size_t wanted) {
    if (found != wanted) {
        throw std::runtime_error("found " + std::to_string(found) + " entries, not " +
                                 std::to_string(wanted));
    }
}

// The path of an entry, written behind that of its directory.
class EntryPath {
public:
    explicit EntryPath(const char* directory) : prefix_(std::strlen(directory) + 1) {
        std::memcpy(path_, directory, prefix_ - 1);
        path_[prefix_ - 1] = '/';
    }
    const char* of(const char* name) {
        std::strcpy(path_ + prefix_, name);
        return path_;
    }

private:
    std::size_t prefix_;
    char path_[PATH_MAX];
};

// The system calls that a listing cannot do without, and nothing else.
std::size_t readAndStat(const std::string& directory) {
    std::size_t found = 0;
    EntryPath path(directory.c_str());
    const Directory stream(opendir(directory.c_str()));
    while (const dirent64* entry = stream ? readdir64(stream.get()) : nullptr) {
        struct stat64 status {};
        if (entry->d_name[0] != '.' && stat64(path.of(entry->d_name), &status) == 0) {
            ++found;
        }
    }
    return found;
}

// The same for a whole tree, with a look at each directory's identity and the checks of packages.
// NOLINTNEXTLINE(misc-no-recursion): as deep as the benchmark's own tree
std::size_t walk(const char* directory, IBRController& controller) {
    std::size_t found = 0;
    EntryPath path(directory);
    const Directory stream(opendir(directory));
    struct stat64 self {};
    if (!stream || fstat64(dirfd(stream.get()), &self) != 0) {
        return 0;
    }
    while (const dirent64* entry = readdir64(stream.get())) {
        struct stat64 status {};
        if (entry->d_name[0] == '.' || stat64(path.of(entry->d_name), &status) != 0) {
            continue;
        }
        const char* const here = path.of(entry->d_name);
        found += S_ISDIR(status.st_mode) ? walk(here, controller) : 0;
        const bool package = std::strstr(here, ".psb") != nullptr;
        found += package && controller.checkBackupFile(here) == 0 ? 1 : 0;
    }
    return found;
}

Row row(const std::string& what, const std::string& floor, double aim, const std::string& curve,
        int size) {
    const bool aimed = size >= kAimedFrom;
    return {what,
            floor,
            "us",
            aimed ? Compared::Ratio : Compared::Nothing,
            aim,
            curve,
            static_cast<double>(size),
            {},
            {}};
}

std::string counted(int files) {
    return std::to_string(files) + " files";
}

// What is done with the directory of each size.
struct Sized {
    int files;
    std::string directory;
    Row listing;
    Row reply;
};

void addRound(Row& row, const Round& round) {
    row.floor.push_back(quantile(round.floor, 0.5));
    row.measured.push_back(quantile(round.measured, 0.5));
}

void measureRound(const Stick& stick, TfMngr& manager, Sized& sized) {
    const auto wanted = static_cast<std::size_t>(sized.files);
    const std::string path = stick.path(sized.directory);
    const Operation bare = [&] { expect(readAndStat(path), wanted); };
    const int times = timesFor(sized.files);
    addRound(sized.listing, runInTurn(times, processorTime, bare, [&] {
                 expect(manager.getRestoreFilesList(stick.name(), sized.directory).size(), wanted);
             }));
    addRound(sized.reply, runInTurn(times, processorTime, bare, [&] {
                 expect(indexReply(manager, stick.name(), sized.directory), wanted);
             }));
}

// How much more an entry of the largest directory takes than one of a directory of 1,000.
Row growthOf(const Sized& small, const Sized& large) {
    Row growth{"listing, an entry of 100000 to one of 1000",
               "an entry of 1000",
               "us",
               Compared::Ratio,
               1.3,
               {},
               0,
               {},
               {}};
    for (std::size_t round = 0; round < large.listing.measured.size(); ++round) {
        growth.floor.push_back(small.listing.measured.at(round) / small.files);
        growth.measured.push_back(large.listing.measured.at(round) / large.files);
    }
    return growth;
}

std::vector<Row> measureInService(const Stick& stick) {
    say("listings in the service");
    TfMngr manager;
    std::vector<Sized> all;
    for (const int files : kSizes) {
        all.push_back({files, fillDirectory(stick, files),
                       row("listing, " + counted(files), "bare loop", 1.5, "listing", files),
                       row("GetDirectoryIndex in the service, " + counted(files), "bare loop", 2.5,
                           "reply in the service", files)});
    }
    // All sizes in each round, so that their comparison, too, is one of the same moment.
    for (int round = 0; round <= kRounds; ++round) {
        for (Sized& sized : all) {
            if (round == 1) {  // the first does not count
                sized.listing.floor.clear();
                sized.listing.measured.clear();
                sized.reply.floor.clear();
                sized.reply.measured.clear();
            }
            measureRound(stick, manager, sized);
        }
    }
    std::vector<Row> rows;
    for (const Sized& sized : all) {
        rows.push_back(sized.listing);
    }
    rows.push_back(growthOf(all.at(1), all.at(3)));
    for (const Sized& sized : all) {
        rows.push_back(sized.reply);
    }
    return rows;
}

std::vector<Row> measureForClients(const Stick& stick) {
    say("listings as clients see them");
    const Daemon service;
    const FloorService floor;
    const SystemBus bus;
    std::vector<Row> rows;
    for (const int files : kSizes) {
        const std::string directory = fillDirectory(stick, files);
        const auto fromFloor = [&] {
            return call(bus, kFloor, "List", g_variant_new("(u)", files));
        };
        const auto fromService = [&] {
            return call(bus, kService, "GetDirectoryIndex", indexArguments(directory));
        };
        // The same elements, but for the order of the names.
        expect(g_variant_get_size(fromService().get()), g_variant_get_size(fromFloor().get()));
        rows.push_back(
            filled(row("GetDirectoryIndex for a client, " + counted(files),
                       "the floor service, from memory", 1.35, "reply for a client", files),
                   runRounds(kRounds, timesFor(files), elapsed, fromFloor, fromService)));
    }
    return rows;
}

// Directories with files, the packages spread evenly over them.
void growTree(const Stick& stick) {
    int packages = 0;
    for (int number = 0; number < kTreeEntries - kTreeDirectories; ++number) {
        const bool package =
            packages < kTreePackages && number % (kTreeEntries / kTreePackages) == kTreePackages;
        packages += package ? 1 : 0;
        stick.addFile("tree/set-" + std::to_string(number % kTreeDirectories) + "/item-" +
                          std::to_string(number) + (package ? ".psb" : ".txt"),
                      "");
    }
    expect(static_cast<std::size_t>(packages), kTreePackages);
}

Row measureTree(const Stick& stick) {
    say("backup listings");
    growTree(stick);
    TfMngr manager;
    const std::string tree = stick.path("tree");
    const std::vector<Round> rounds = runRounds(
        kTreeRounds, 10, processorTime,
        [&] { expect(walk(tree.c_str(), *BRCreateController()), kTreePackages); },
        [&] { expect(manager.getBackupFilesList(stick.name(), "tree").size(), kTreePackages); });
    return filled({"backup listing, 10000 entries, 25 packages",
                   "bare recursive walk with the same checks",
                   "us",
                   Compared::Ratio,
                   1.3,
                   {},
                   0,
                   {},
                   {}},
                  rounds);
}

}  // namespace

std::vector<Row> measureListings() {
    const Stick stick(1, {"1g", "/dev/sda1", false});
    std::vector<Row> rows = measureInService(stick);
    for (Row& row : measureForClients(stick)) {
        rows.push_back(std::move(row));
    }
    rows.push_back(measureTree(stick));
    return rows;
}

}  // namespace bench

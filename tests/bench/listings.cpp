// Listings, and their replies, in this process: processor time beside that of the calls below.
#include <dirent.h>
#include <sys/stat.h>

#include <climits>
#include <cstring>
#include <stdexcept>

#include "tests/bench/index_reply.h"
#include "tests/bench/rows.h"
#include "tests/bench/services.h"

namespace bench {
namespace {

constexpr const char* kBareLoop = "opendir, readdir64, stat64";

void expect(std::size_t found, int wanted) {
    if (found != static_cast<std::size_t>(wanted)) {
        throw std::runtime_error("found " + std::to_string(found) + ", not " +
                                 std::to_string(wanted));
    }
}

// The system calls that a listing cannot do without, and nothing else.
std::size_t readAndStat(const std::string& directory) {
    std::size_t found = 0;
    char path[PATH_MAX];
    std::strcpy(path, (directory + "/").c_str());
    DIR* const stream = opendir(path);
    while (const dirent64* entry = readdir64(stream)) {
        struct stat64 status {};
        std::strcpy(path + directory.size() + 1, entry->d_name);
        if (entry->d_name[0] != '.' && stat64(path, &status) == 0) {
            ++found;
        }
    }
    closedir(stream);
    return found;
}

Row measureListing(TfMngr& manager, const Stick& stick, int files, int rounds) {
    Row row{"listing in process, " + counted(files), kBareLoop, "us", 1.2};
    const std::string directory = fillDirectory(stick, files);
    for (int round = 0; round < rounds; ++round) {
        addRound(
            row, timesFor(files), CLOCK_THREAD_CPUTIME_ID,
            [&] { expect(readAndStat(stick.path(directory)), files); },
            [&] { expect(manager.getRestoreFilesList(stick.name(), directory).size(), files); });
    }
    return row;
}

Row measureIndex(TfMngr& manager, const Stick& stick, int files, int rounds) {
    Row row{"GetDirectoryIndex in process, " + counted(files),
            std::string(kBareLoop) + ", marshalling of values that exist", "us", 1.3};
    const std::string directory = fillDirectory(stick, files);
    g_autoptr(GVariant) existing = g_variant_ref_sink(indexBody(manager, stick.name(), directory));
    for (int round = 0; round < rounds; ++round) {
        addRound(
            row, timesFor(files), CLOCK_THREAD_CPUTIME_ID,
            [&] {
                expect(readAndStat(stick.path(directory)), files);
                marshal(existing);
            },
            [&] { marshal(indexBody(manager, stick.name(), directory)); });
    }
    return row;
}

}  // namespace

std::vector<Row> measureListings(int rounds) {
    const Stick stick = largeStick();
    TfMngr manager;
    std::vector<Row> rows;
    for (const int files : {1'000, 10'000, 100'000}) {
        rows.push_back(measureListing(manager, stick, files, rounds));
    }
    for (const int files : {1'000, 10'000}) {
        rows.push_back(measureIndex(manager, stick, files, rounds));
    }
    return rows;
}

}  // namespace bench

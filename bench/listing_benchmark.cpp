// The restore listing, and the reply made of it, beside a bare loop over the same directory.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <gio/gio.h>
#include <sys/stat.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <string>

#include "tests/support/inside_sandbox.h"
#include "tests/support/stick.h"
#include "transfer/reply_encoding.h"
#include "transfer/tf_mngr.h"

namespace {

using test_support::Stick;

constexpr int kRefused = 125;
constexpr int kFewest = 100;
constexpr int kMost = 100000;
constexpr int kFactor = 10;

// One stick for all benchmarks, with a directory of files for each number of them.
const Stick& filledStick() {
    static const Stick stick(1, {"1g", "/dev/sda1", false});
    return stick;
}

std::string directoryOf(std::int64_t files) {
    static std::set<std::int64_t> filled;
    const std::string directory = "backups of " + std::to_string(files);
    if (filled.insert(files).second) {
        for (std::int64_t number = 0; number < files; ++number) {
            filledStick().addFile(directory + "/DEVICE-" + std::to_string(number) + ".psb", "");
        }
    }
    return directory;
}

void finish(benchmark::State& state, std::size_t found) {
    if (found != static_cast<std::size_t>(state.range(0))) {
        state.SkipWithError("not all entries were found");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void restoreListing(benchmark::State& state) {
    TfMngr manager;
    const std::string stick = filledStick().name();
    const std::string directory = directoryOf(state.range(0));
    std::size_t found = 0;
    for (auto _ : state) {
        const std::vector<FileEntry> list = manager.getRestoreFilesList(stick, directory);
        benchmark::DoNotOptimize(list.data());
        found = list.size();
    }
    finish(state, found);
}

// Everything that the service does for GetDirectoryIndex but to write to the socket: the listing,
// its encoding, and the bytes of the message.
void indexReply(benchmark::State& state) {
    TfMngr manager;
    const std::string stick = filledStick().name();
    const std::string directory = directoryOf(state.range(0));
    std::size_t found = 0;
    for (auto _ : state) {
        const reply::EncodedList list =
            reply::fileArray(manager.getRestoreFilesList(stick, directory));
        g_autoptr(GDBusMessage) message = g_dbus_message_new();
        g_dbus_message_set_message_type(message, G_DBUS_MESSAGE_TYPE_METHOD_RETURN);
        g_dbus_message_set_reply_serial(message, 1);
        g_dbus_message_set_serial(message, 1);
        g_dbus_message_set_body(message, g_variant_new("(@av)", list.value));
        gsize size = 0;
        g_autofree guchar* bytes =
            g_dbus_message_to_blob(message, &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr);
        benchmark::DoNotOptimize(bytes);
        found = list.records;
    }
    finish(state, found);
}

// The system calls that a listing cannot do without, and nothing else.
std::size_t readAndStat(const std::string& directory) {
    std::size_t found = 0;
    char path[PATH_MAX];
    const std::size_t prefix = directory.size() + 1;
    std::memcpy(path, (directory + "/").c_str(), prefix);
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(directory.c_str()), closedir);
    while (const dirent64* entry = stream ? readdir64(stream.get()) : nullptr) {
        if (entry->d_name[0] == '.') {
            continue;
        }
        std::strcpy(path + prefix, entry->d_name);
        struct stat64 status {};
        found += stat64(path, &status) == 0 ? 1U : 0U;
        benchmark::DoNotOptimize(status);
    }
    return found;
}

void bareLoop(benchmark::State& state) {
    const std::string directory = filledStick().path(directoryOf(state.range(0)));
    std::size_t found = 0;
    for (auto _ : state) {
        found = readAndStat(directory);
    }
    finish(state, found);
}

BENCHMARK(bareLoop)->RangeMultiplier(kFactor)->Range(kFewest, kMost);
BENCHMARK(restoreListing)->RangeMultiplier(kFactor)->Range(kFewest, kMost);
BENCHMARK(indexReply)->RangeMultiplier(kFactor)->Range(kFewest, kMost);

}  // namespace

int main(int argc, char** argv) {
    const std::string reason = test_support::whyOutsideSandbox();
    if (!reason.empty()) {
        std::fprintf(stderr, "benchmarks run inside the sandbox only: %s\n", reason.c_str());
        return kRefused;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

// Lets what is beneath the service fail, one thing at a time, and looks at what becomes of it.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/stress/faults/allocation_faults.h"
#include "tests/stress/faults/bus_faults.h"
#include "tests/stress/faults/call_faults.h"
#include "tests/stress/faults/device_faults.h"
#include "tests/stress/faults/report.h"
#include "tests/stress/faults/request_trials.h"
#include "tests/stress/faults/scene.h"
#include "tests/stress/faults/start_trials.h"
#include "tests/support/process/sandbox.h"

namespace faults {
namespace {

struct Options {
    std::string word;
    unsigned every = 1;
};

[[noreturn]] void misused() {
    std::fputs("usage: faults [--every N] [WORD]\n", stderr);
    std::exit(2);
}

Options readOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--every" && i + 1 < argc) {
            options.every = static_cast<unsigned>(std::strtoul(argv[++i], nullptr, 10));
        } else if (options.word.empty() && word.compare(0, 2, "--") != 0) {
            options.word = word;
        } else {
            misused();
        }
    }
    if (options.every == 0) {
        misused();
    }
    return options;
}

int tryAll(const Options& options) {
    Selection selection(options.word, options.every);
    Report report;
    const Scene scene;
    FailingCalls calls;
    RequestTrials(group::kCalls, calls, scene, selection, report).run(methods());
    FailingAllocations allocations;
    RequestTrials(group::kAllocations, allocations, scene, selection, report).run(methods());
    FailingDevice device;
    RequestTrials(group::kDevice, device, scene, selection, report).run(methods());
    BusTrials(scene, selection, report).run();
    for (const bool asDaemon : {false, true}) {
        StartTrials(asDaemon, scene, selection, report).run();
    }
    report.print();
    return report.good() ? 0 : 1;
}

}  // namespace
}  // namespace faults

int main(int argc, char** argv) {
    test_support::enterSandbox(argc, argv);
    return faults::tryAll(faults::readOptions(argc, argv));
}

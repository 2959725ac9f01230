// What the service takes up, what its calls take.
#include "tests/stress/soak/report.h"

#include <algorithm>
#include <cstdio>

#include "tests/support/process/process_table.h"

namespace soak {

Sample sampleOf(pid_t pid) {
    const auto field = [pid](const char* name) {
        return std::stol(test_support::statusField(pid, name).value_or("0"));
    };
    return {field("RssAnon"), field("VmSize"), test_support::openDescriptorsOf(pid).size(),
            test_support::threadsOf(pid)};
}

void printSampleHead() {
    std::printf("%10s %10s %5s %9s %11s %12s %8s\n", "seconds", "calls", "jobs", "anon/KiB",
                "virtual/KiB", "descriptors", "threads");
}

void printSample(const std::string& when, std::size_t calls, unsigned jobs, const Sample& sample) {
    std::printf("%10s %10zu %5u %9ld %11ld %12zu %8d\n", when.c_str(), calls, jobs,
                sample.anonymous, sample.addresses, sample.descriptors, sample.threads);
    std::fflush(stdout);
}

void printDurations(Durations durations) {
    std::printf("\n%-28s %9s %9s %9s %9s  (milliseconds)\n", "", "calls", "p50", "p99", "max");
    for (auto& [method, times] : durations) {
        std::sort(times.begin(), times.end());
        const auto at = [&times = times](double part) {
            const auto index = static_cast<double>(times.size() - 1) * part;
            return static_cast<double>(times[static_cast<std::size_t>(index)].count()) / 1000;
        };
        std::printf("%-28s %9zu %9.1f %9.1f %9.1f\n", method.c_str(), times.size(), at(0.5),
                    at(0.99), at(1));
    }
}

}  // namespace soak

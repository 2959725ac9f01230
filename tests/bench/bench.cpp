// What the benchmarks share: the cores, the clocks, rounds of two operations in turn, rows of the
// table.
#include "tests/bench/bench.h"

#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>

#include "tests/support/process/errno_error.h"

namespace bench {
namespace {

constexpr int kEntriesARound = 20'000;
constexpr double kMicrosecondsASecond = 1e6;
constexpr double kNanosecondsAMicrosecond = 1e3;

std::vector<int> allowedCores() {
    static const std::vector<int> kCores = [] {
        cpu_set_t set;
        CPU_ZERO(&set);
        sched_getaffinity(0, sizeof set, &set);
        std::vector<int> cores;
        for (int core = 0; core < CPU_SETSIZE; ++core) {
            if (CPU_ISSET(core, &set)) {
                cores.push_back(core);
            }
        }
        return cores;
    }();
    return kCores;
}

}  // namespace

int serviceCore() {
    return allowedCores().front();
}

int clientCore() {
    return allowedCores().back();
}

void pin(pid_t process, int core) {
    allowedCores();  // those of before the first pinning
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(core, &set);
    if (sched_setaffinity(process, sizeof set, &set) != 0) {
        test_support::throwErrno("sched_setaffinity");
    }
}

std::vector<std::string> onServiceCore(const std::vector<std::string>& command) {
    std::vector<std::string> words{"taskset", "--cpu-list", std::to_string(serviceCore())};
    words.insert(words.end(), command.begin(), command.end());
    return words;
}

double elapsed(const Operation& operation) {
    const auto before = std::chrono::steady_clock::now();
    operation();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - before)
        .count();
}

double processorTime(const Operation& operation) {
    const auto now = [] {
        struct timespec time {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) * kMicrosecondsASecond +
               static_cast<double>(time.tv_nsec) / kNanosecondsAMicrosecond;
    };
    const double before = now();
    operation();
    return now() - before;
}

double quantile(std::vector<double> figures, double part) {
    const auto place = figures.begin() +
                       static_cast<std::ptrdiff_t>(part * static_cast<double>(figures.size() - 1));
    std::nth_element(figures.begin(), place, figures.end());
    return *place;
}

Round runInTurn(int times, Clock clock, const Operation& floor, const Operation& measured) {
    Round round;
    for (int i = 0; i < times; ++i) {
        const bool floorFirst = i % 2 == 0;
        const double first = clock(floorFirst ? floor : measured);
        const double second = clock(floorFirst ? measured : floor);
        round.floor.push_back(floorFirst ? first : second);
        round.measured.push_back(floorFirst ? second : first);
    }
    return round;
}

std::vector<Round> runRounds(int rounds, int times, Clock clock, const Operation& floor,
                             const Operation& measured) {
    runInTurn(times, clock, floor, measured);
    std::vector<Round> result;
    for (int i = 0; i < rounds; ++i) {
        result.push_back(runInTurn(times, clock, floor, measured));
    }
    return result;
}

Row filled(Row row, const std::vector<Round>& rounds, double part) {
    for (const Round& round : rounds) {
        row.floor.push_back(quantile(round.floor, part));
        row.measured.push_back(quantile(round.measured, part));
    }
    return row;
}

int timesFor(int entries) {
    return std::clamp(kEntriesARound / entries, 2, 200);
}

void say(const std::string& what) {
    std::fprintf(stderr, "measuring %s\n", what.c_str());
}

}  // namespace bench

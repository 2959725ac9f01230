// Measures the groups that are named, or all, and writes their rows as JSON to standard output.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "simulator/sandbox/inside_sandbox.h"
#include "tests/bench/bench.h"
#include "tests/bench/services.h"

namespace {

using bench::Compared;
using bench::Row;

constexpr int kRefused = 125;

struct Group {
    const char* name;
    std::vector<Row> (*measure)();
};
constexpr Group kGroups[] = {{"calls", bench::measureCalls},
                             {"listings", bench::measureListings},
                             {"start-up", bench::measureStartUp},
                             {"memory", bench::measureMemory},
                             {"load", bench::measureLoad}};

const char* nameOf(Compared compared) {
    switch (compared) {
        case Compared::Ratio:
            return "ratio";
        case Compared::Difference:
            return "difference";
        case Compared::Nothing:
            break;
    }
    return "nothing";
}

void printFigures(const char* name, const std::vector<double>& figures) {
    std::printf(",\n   \"%s\": [", name);
    const char* separator = "";
    for (const double figure : figures) {
        std::printf("%s%.3f", separator, figure);
        separator = ", ";
    }
    std::printf("]");
}

// The texts are the benchmarks' own and hold nothing that JSON minds.
void print(const Row& row, const char* group, bool first) {
    std::printf("%s\n  {\"group\": \"%s\", \"what\": \"%s\",\n   \"floor is\": \"%s\",",
                first ? "" : ",", group, row.what.c_str(), row.floorIs.c_str());
    std::printf(" \"unit\": \"%s\", \"compared\": \"%s\", \"aim\": %g,", row.unit.c_str(),
                nameOf(row.compared), row.aim);
    std::printf(" \"curve\": \"%s\", \"size\": %g", row.curve.c_str(), row.size);
    printFigures("floor", row.floor);
    printFigures("measured", row.measured);
    std::printf("}");
    std::fflush(stdout);
}

int measure(const std::vector<std::string>& wanted) {
    bench::pin(0, bench::clientCore());
    bench::prepareBus();
    bool first = true;
    std::printf("{\"service core\": %d, \"client core\": %d, \"rows\": [", bench::serviceCore(),
                bench::clientCore());
    for (const Group& group : kGroups) {
        if (!wanted.empty() &&
            std::find(wanted.begin(), wanted.end(), group.name) == wanted.end()) {
            continue;
        }
        for (const Row& row : group.measure()) {
            print(row, group.name, first);
            first = false;
        }
    }
    std::printf("\n]}\n");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string reason = test_support::whyOutsideSandbox();
    if (!reason.empty()) {
        std::fprintf(stderr, "benchmarks run inside the sandbox only: %s\n", reason.c_str());
        return kRefused;
    }
    try {
        return measure({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "benchmarks: %s\n", error.what());
        return 1;
    }
}

// The rows of the table: what is measured, beside its floor of the same run.
#include "tests/bench/rows.h"

#include <algorithm>
#include <cstdio>

namespace bench {
namespace {

constexpr int kFilesARound = 20'000;

double now(clockid_t clock) {
    struct timespec time {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

double timeOf(const Operation& operation, clockid_t clock) {
    const double before = now(clock);
    operation();
    return now(clock) - before;
}

double median(std::vector<double> figures) {
    const auto middle = figures.begin() + static_cast<std::ptrdiff_t>(figures.size() / 2);
    std::nth_element(figures.begin(), middle, figures.end());
    return *middle;
}

double comparisonOf(const Row& row) {
    std::vector<double> figures;
    for (std::size_t i = 0; i < row.floor.size(); ++i) {
        figures.push_back(row.compared == Compared::Ratio ? row.measured.at(i) / row.floor.at(i)
                                                          : row.measured.at(i) - row.floor.at(i));
    }
    return median(figures);
}

}  // namespace

void addRound(Row& row, int times, clockid_t clock, const Operation& floor,
              const Operation& measured) {
    std::vector<double> ofFloor;
    std::vector<double> ofMeasured;
    for (int i = 0; i < times; ++i) {
        ofFloor.push_back(timeOf(floor, clock));
        ofMeasured.push_back(timeOf(measured, clock));
    }
    row.floor.push_back(median(ofFloor));
    row.measured.push_back(median(ofMeasured));
}

int timesFor(int files) {
    return std::clamp(kFilesARound / files, 2, 200);
}

void printHead() {
    std::printf("| what | floor in the same run | floor | measured | ratio | aim | |\n");
    std::printf("|---|---|--:|--:|--:|--:|---|\n");
}

void print(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        const double comparison = comparisonOf(row);
        const char* const sign = row.compared == Compared::Ratio ? "" : "+ ";
        std::printf("| %s | %s | %.0f %s | %.0f %s | %s%.2f | %s≤ %g | %s |\n", row.what.c_str(),
                    row.floorIs.c_str(), median(row.floor), row.unit, median(row.measured),
                    row.unit, sign, comparison, sign, row.aim,
                    comparison <= row.aim ? "met" : "MISSED");
    }
    std::fflush(stdout);
}

}  // namespace bench

// The rows of the table: what is measured, beside its floor of the same run.
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace bench {

// What is compared with the floor.
enum class Compared { Ratio, Difference };

// A row has one figure a round, of the floor and of what is measured.
struct Row {
    std::string what;
    std::string floorIs;
    const char* unit;
    double aim;  // the most that the comparison may give
    Compared compared = Compared::Ratio;
    std::vector<double> floor{};
    std::vector<double> measured{};
};

using Operation = std::function<void()>;

// Runs both operations `times` times in turn and adds the medians to the row as one round, in
// microseconds of that clock.
void addRound(Row& row, int times, clockid_t clock, const Operation& floor,
              const Operation& measured);

// How often to repeat what works on so many files, so that a round takes about as long for any
// number of them.
int timesFor(int files);

// A table in Markdown: its head, and rows. The comparison is the median over the rounds.
void printHead();
void print(const std::vector<Row>& rows);

// The groups of rows, each of so many rounds.
std::vector<Row> measureListings(int rounds);
std::vector<Row> measureCalls(int rounds);
std::vector<Row> measureStart(int rounds);
std::vector<Row> measureMemory(int rounds);

}  // namespace bench

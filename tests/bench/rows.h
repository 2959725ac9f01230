// The rows of the table: what is measured, beside its floor of the same run.
#pragma once

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

// Microseconds that an operation takes: of the wall clock, or of this thread's processor time.
double elapsed(const Operation& operation);
double processorTime(const Operation& operation);

double median(std::vector<double> figures);

// Runs both operations `times` times in turn, either first every other time, and adds the medians
// to the row as one round.
void addRound(Row& row, int times, double (*clock)(const Operation&), const Operation& floor,
              const Operation& measured);

// How often to repeat what works on so many files, so that a round takes about as long for any
// number of them.
int timesFor(int files);

// The rows as a table in Markdown. The comparison is the median over the rounds.
void print(const std::vector<Row>& rows);

// The groups of rows, each of so many rounds.
std::vector<Row> measureListings(int rounds);
std::vector<Row> measureCalls(int rounds);
std::vector<Row> measureStart(int rounds);
std::vector<Row> measureMemory(int rounds);

}  // namespace bench

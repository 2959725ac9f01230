// What the benchmarks share: the cores, the clocks, rounds of two operations in turn, rows of the
// table.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace bench {

// The services run on one core, the client and the message bus on another; on a machine with one
// core all share it.
int serviceCore();
int clientCore();
// Pins a process, 0 for the calling thread. Throws std::system_error.
void pin(pid_t process, int core);

// A command that runs on the services' core.
std::vector<std::string> onServiceCore(const std::vector<std::string>& command);

// What is compared with the floor.
enum class Compared {
    Ratio,  // measured / floor
    Difference,  // measured - floor
    Nothing  // only reported
};

// One row of the table: a figure a round, of the floor and of what is measured.
struct Row {
    std::string what;
    std::string floorIs;
    std::string unit;
    Compared compared = Compared::Ratio;
    double aim = 0;  // the most that the comparison may give; of no meaning for Nothing
    std::string curve;  // of the plot that the row belongs to; empty for none
    double size = 0;  // where on the curve
    std::vector<double> floor;
    std::vector<double> measured;
};

// The groups of rows.
std::vector<Row> measureCalls();
std::vector<Row> measureListings();
std::vector<Row> measureStartUp();
std::vector<Row> measureMemory();
std::vector<Row> measureLoad();

using Operation = std::function<void()>;

// Microseconds that an operation takes: by the clock on the wall, or of this thread's processor.
double elapsed(const Operation& operation);
double processorTime(const Operation& operation);

// The value below which the part `part` of the figures lies; 0.5 is the median.
double quantile(std::vector<double> figures, double part);

// The figures of one round.
struct Round {
    std::vector<double> floor;
    std::vector<double> measured;
};

using Clock = double (*)(const Operation& operation);

// Runs the floor and what is measured in turn, either first every other time.
Round runInTurn(int times, Clock clock, const Operation& floor, const Operation& measured);

// The same, `rounds` times, after a first round that does not count.
std::vector<Round> runRounds(int rounds, int times, Clock clock, const Operation& floor,
                             const Operation& measured);

// The row with one figure for each round: the quantile `part` of it.
Row filled(Row row, const std::vector<Round>& rounds, double part = 0.5);

// How often to repeat what works on so many entries, so that a round takes about as long for any
// number.
int timesFor(int entries);

// Says on standard error what is being measured.
void say(const std::string& what);

}  // namespace bench

// What came of each fault.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace faults {

// What heads the tables, and begins the whole names of faults.
namespace group {
inline constexpr const char* kCalls = "system call in a request";
inline constexpr const char* kAllocations = "allocation in a request";
inline constexpr const char* kDevice = "device library in a request";
inline constexpr const char* kBus = "bus";
inline constexpr const char* kForeground = "start in the foreground";
inline constexpr const char* kDaemon = "start as a daemon";
}  // namespace group

enum class Outcome {
    Served,  // as if nothing had happened
    Answered,  // by the failure that the interface defines
    Ended,  // the process has ended, in a defined way, and the next start is clean
    NotReached,  // the fault did not happen: the calls came in another order
    Wrong,  // none of these
};

struct Verdict {
    Outcome outcome = Outcome::Served;
    std::string how;  // how the process ended, or what is wrong
};

// Which faults are tried: of those whose whole name holds the word each `every`th, and the first of
// each row.
class Selection {
public:
    Selection(std::string word, unsigned every) : word_(std::move(word)), every_(every) {}

    bool wants(const std::string& group, const std::string& row, const std::string& name);

    // False when no name that begins with `begin`, a group or more, can be wanted.
    bool mayWant(const std::string& begin) const;

private:
    std::string word_;
    unsigned every_;
    std::map<std::string, unsigned> offered_;  // by group
    std::set<std::string> rows_;
};

class Report {
public:
    // `group` heads a table, `name` repeats the one fault. Prints at once what is wrong.
    void add(const std::string& group, const std::string& row, const std::string& name,
             const Verdict& verdict);

    // Something that is wrong and no fault's outcome.
    void complain(const std::string& what);

    // The tables as the document has them, and the totals.
    void print() const;

    bool good() const { return wrong_ == 0 && tried_ > 0; }

private:
    struct Row {
        std::map<Outcome, std::size_t> counts;
        std::set<std::string> ends;
    };
    using Table = std::map<std::string, Row>;

    std::vector<std::string> order_;  // of the groups
    std::map<std::string, Table> groups_;
    std::size_t tried_ = 0;
    std::size_t missed_ = 0;
    std::size_t wrong_ = 0;
};

}  // namespace faults

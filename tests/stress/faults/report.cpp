// What came of each fault.
#include "tests/stress/faults/report.h"

#include <algorithm>
#include <cstdio>

namespace faults {
namespace {

// "status 2, SIGABRT"
std::string joined(const std::set<std::string>& texts) {
    std::string result;
    for (const std::string& text : texts) {
        result += (result.empty() ? "" : ", ") + text;
    }
    return result;
}

std::size_t countOf(const std::map<Outcome, std::size_t>& counts, Outcome outcome) {
    const auto found = counts.find(outcome);
    return found != counts.end() ? found->second : 0;
}

}  // namespace

bool Selection::wants(const std::string& group, const std::string& row, const std::string& name) {
    if ((group + " " + name).find(word_) == std::string::npos) {
        return false;
    }
    const bool first = rows_.insert(group + " " + row).second;
    return offered_[group]++ % every_ == 0 || first;
}

bool Selection::mayWant(const std::string& begin) const {
    using namespace group;
    const auto startsWith = [](const std::string& text, const std::string& start) {
        return text.compare(0, start.size(), start) == 0;
    };
    const auto groups = {kCalls, kAllocations, kDevice, kBus, kForeground, kDaemon};
    const bool namesGroup = std::any_of(groups.begin(), groups.end(),
                                        [&](const char* each) { return startsWith(word_, each); });
    return !namesGroup || startsWith(word_, begin) || startsWith(begin, word_);
}

void Report::add(const std::string& group, const std::string& row, const std::string& name,
                 const Verdict& verdict) {
    if (groups_.count(group) == 0) {
        order_.push_back(group);
    }
    Row& entry = groups_[group][row];
    ++entry.counts[verdict.outcome];
    ++tried_;
    missed_ += verdict.outcome == Outcome::NotReached ? 1 : 0;
    if (verdict.outcome != Outcome::Wrong && !verdict.how.empty()) {
        entry.ends.insert(verdict.how);
    }
    if (verdict.outcome == Outcome::Wrong) {
        complain(group + " " + name + ": " + verdict.how);
    }
}

void Report::complain(const std::string& what) {
    ++wrong_;
    std::printf("WRONG: %s\n", what.c_str());
    std::fflush(stdout);
}

void Report::print() const {
    std::puts("");
    std::puts(
        "| fault | tried | served regardless | answered as a failure | ended, next start clean "
        "| how |");
    std::puts("|---|---|---|---|---|---|");
    for (const std::string& group : order_) {
        for (const auto& [name, row] : groups_.at(group)) {
            std::size_t tried = 0;
            for (const auto& [outcome, count] : row.counts) {
                tried += outcome != Outcome::NotReached ? count : 0;
            }
            const auto count = [&row = row](Outcome outcome) {
                return countOf(row.counts, outcome);
            };
            std::printf("| %s: %s | %zu | %zu | %zu | %zu | %s |\n", group.c_str(), name.c_str(),
                        tried, count(Outcome::Served), count(Outcome::Answered),
                        count(Outcome::Ended), joined(row.ends).c_str());
        }
    }
    std::printf("\n%zu faults, %zu did not happen, %zu complaints\n", tried_, missed_, wrong_);
}

}  // namespace faults

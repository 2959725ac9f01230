#include "tests/support/process/namespace_process.h"

#include <algorithm>
#include <sstream>

#include "tests/support/files/paths.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

std::vector<std::string> insideNamespace(const std::vector<std::string>& command, bool terminal) {
    std::vector<std::string> arguments{"--report", std::to_string(ChildProcess::kReportFd)};
    if (terminal) {
        arguments.emplace_back("--terminal");
    }
    arguments.emplace_back("--");
    arguments.insert(arguments.end(), command.begin(), command.end());
    return runnable(buildPath("pid-namespace"), arguments);
}

// The words of the lines "start PID", "exit PID STATUS" and "signal PID NUMBER". A line that is
// still being written has no line end yet and is left out.
std::istringstream wordsOf(const std::string& report) {
    return std::istringstream(report.substr(0, report.rfind('\n') + 1));
}

}  // namespace

NamespaceProcess::NamespaceProcess(const std::vector<std::string>& command,
                                   const std::vector<std::string>& environment, bool terminal)
    : ChildProcess(insideNamespace(command, terminal), environment) {}

std::optional<pid_t> NamespaceProcess::commandInside() const {
    std::string start;
    pid_t pid = 0;
    waitUntil([&] {
        const bool last = hasEnded();
        return wordsOf(report()) >> start >> pid || last;
    });
    return pid != 0 ? std::optional(pid) : std::nullopt;
}

std::optional<pid_t> NamespaceProcess::init() const {
    const std::vector<pid_t> children = childrenOf(id());
    return children.empty() ? std::nullopt : std::optional(children.front());
}

std::vector<pid_t> NamespaceProcess::processesOutside() const {
    const std::optional<pid_t> first = init();
    if (!first) {
        return {};
    }
    std::vector<pid_t> all = processesInNamespaceOf(*first);
    all.erase(std::remove(all.begin(), all.end(), *first), all.end());
    return all;
}

std::optional<pid_t> NamespaceProcess::outsideId(pid_t inside) const {
    for (const pid_t pid : processesOutside()) {
        if (innermostId(pid) == inside) {
            return pid;
        }
    }
    return std::nullopt;
}

std::vector<std::pair<pid_t, ProcessEnd>> NamespaceProcess::ends() const {
    std::istringstream words = wordsOf(report());
    std::string what;
    pid_t pid = 0;
    words >> what >> pid;  // the start
    std::vector<std::pair<pid_t, ProcessEnd>> ends;
    for (int number = 0; words >> what >> pid >> number;) {
        ends.emplace_back(pid, what == "signal" ? killedBy(number) : exited(number));
    }
    return ends;
}

std::optional<ProcessEnd> NamespaceProcess::waitForEndOf(pid_t inside) const {
    std::optional<ProcessEnd> result;
    waitUntil([&] {
        const bool last = hasEnded();
        for (const auto& [pid, end] : ends()) {
            if (pid == inside) {
                result = end;
            }
        }
        return result || last;
    });
    return result;
}

std::optional<ProcessEnd> NamespaceProcess::waitForCommandEnd() const {
    const std::optional<pid_t> command = commandInside();
    return command ? waitForEndOf(*command) : std::nullopt;
}

void NamespaceProcess::kill() {
    // A process whose first thread has ended may still have others, and with them its locks: gone
    // is what is no longer in the process table.
    const std::vector<pid_t> inhabitants = processesOutside();
    ChildProcess::kill();
    const auto isKnown = [](pid_t pid) { return statusField(pid, "State").has_value(); };
    waitUntil([&] { return std::none_of(inhabitants.begin(), inhabitants.end(), isKnown); });
}

std::vector<ProcessEnd> NamespaceProcess::waitForAllEnds() const {
    EXPECT_TRUE(waitForEnd().has_value()) << "some process goes on";
    std::vector<ProcessEnd> result;
    for (const auto& [pid, end] : ends()) {
        result.push_back(end);
    }
    return result;
}

std::unique_ptr<ChildProcess> NamespaceProcess::enter(
    const std::vector<std::string>& command) const {
    const std::optional<pid_t> target = commandInside() ? init() : std::nullopt;
    if (!target) {
        ADD_FAILURE() << "there is no namespace to enter: " << standardError();
        return nullptr;
    }
    // The process dies when its nsenter is killed.
    std::vector<std::string> arguments{
        "nsenter", "--target", std::to_string(*target), "--mount", "--pid",
        "--",      "setpriv",  "--pdeathsig",           "KILL",    "--"};
    arguments.insert(arguments.end(), command.begin(), command.end());
    return std::make_unique<ChildProcess>(arguments);
}

std::unique_ptr<ChildProcess> NamespaceProcess::enterWitness() const {
    std::unique_ptr<ChildProcess> witness = enter({"sh", "-c", "echo ready; exec sleep infinity"});
    if (witness != nullptr) {
        EXPECT_TRUE(witness->waitForOutput("ready"));
    }
    return witness;
}

}  // namespace test_support

// A command that a test runs in PID and mount namespaces of its own inside the sandbox.
#include "tests/support/process/namespace_process.h"

#include <algorithm>
#include <sstream>

#include "tests/support/files/paths.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

constexpr const char* kWitnessReady = "the witness runs";

std::vector<std::string> insideNamespace(const std::vector<std::string>& command) {
    std::vector<std::string> arguments{"--report", std::to_string(ChildProcess::kReportFd), "--"};
    arguments.insert(arguments.end(), command.begin(), command.end());
    return runnable(buildPath("pid-namespace"), arguments);
}

struct ReportLine {
    std::string what;
    pid_t pid = 0;
    int number = 0;
};

// A line that is still being written has no line end yet and is left out.
std::vector<ReportLine> parseReport(const std::string& report) {
    std::istringstream text(report.substr(0, report.rfind('\n') + 1));
    std::vector<ReportLine> lines;
    for (std::string line; std::getline(text, line);) {
        std::istringstream words(line);
        ReportLine parsed;
        words >> parsed.what >> parsed.pid >> parsed.number;
        lines.push_back(parsed);
    }
    return lines;
}

std::vector<NamespaceEnd> endsIn(const std::string& report) {
    std::vector<NamespaceEnd> ends;
    for (const ReportLine& line : parseReport(report)) {
        if (line.what == "exit") {
            ends.push_back({line.pid, exited(line.number)});
        } else if (line.what == "signal") {
            ends.push_back({line.pid, killedBy(line.number)});
        }
    }
    return ends;
}

}  // namespace

NamespaceProcess::NamespaceProcess(const std::vector<std::string>& command,
                                   const ChildOptions& options)
    : outer_(insideNamespace(command), options) {}

std::optional<pid_t> NamespaceProcess::commandInside() {
    outer_.streams().waitFor(ChildProcess::kReportStream,
                             [](auto& text) { return !parseReport(text).empty(); });
    const std::vector<ReportLine> lines = parseReport(outer_.report());
    return lines.empty() ? std::nullopt : std::optional(lines.front().pid);
}

std::optional<pid_t> NamespaceProcess::init() const {
    const std::vector<pid_t> children = childrenOf(outer_.id());
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

std::vector<NamespaceEnd> NamespaceProcess::ends() const {
    return endsIn(outer_.report());
}

std::optional<ProcessEnd> NamespaceProcess::waitForEndOf(pid_t inside) {
    std::optional<ProcessEnd> result;
    outer_.streams().waitFor(ChildProcess::kReportStream, [&](const std::string& report) {
        for (const NamespaceEnd& one : endsIn(report)) {
            if (one.insideId == inside) {
                result = one.end;
            }
        }
        return result.has_value();
    });
    return result;
}

std::optional<ProcessEnd> NamespaceProcess::waitForCommandEnd() {
    const std::optional<pid_t> command = commandInside();
    return command ? waitForEndOf(*command) : std::nullopt;
}

void NamespaceProcess::kill() {
    // A process whose first thread has ended may still have others, and with them its locks: gone
    // is what the process table does not know any more.
    const std::vector<pid_t> inhabitants = processesOutside();
    outer_.kill();
    const auto isKnown = [](pid_t pid) { return statusField(pid, "State").has_value(); };
    waitUntil([&] { return std::none_of(inhabitants.begin(), inhabitants.end(), isKnown); });
}

std::vector<ProcessEnd> NamespaceProcess::waitForAllEnds() {
    EXPECT_TRUE(waitForEmpty().has_value()) << "the namespace does not end";
    EXPECT_TRUE(waitForOutputEnd()) << "the namespace's streams do not end";
    std::vector<ProcessEnd> result;
    for (const NamespaceEnd& one : ends()) {
        result.push_back(one.end);
    }
    return result;
}

std::unique_ptr<ChildProcess> NamespaceProcess::enter(const std::vector<std::string>& command) {
    const std::optional<pid_t> target = commandInside() ? init() : std::nullopt;
    if (!target) {
        ADD_FAILURE() << "there is no namespace to enter: " << standardError();
        return nullptr;
    }
    // Ended here, the process must not stay behind in the namespace: it dies with its nsenter.
    std::vector<std::string> arguments{
        "nsenter", "--target", std::to_string(*target), "--mount", "--pid",
        "--",      "setpriv",  "--pdeathsig",           "KILL",    "--"};
    arguments.insert(arguments.end(), command.begin(), command.end());
    return std::make_unique<ChildProcess>(arguments);
}

std::unique_ptr<ChildProcess> NamespaceProcess::enterWitness() {
    const std::string script = std::string("echo ") + kWitnessReady + "; exec sleep infinity";
    std::unique_ptr<ChildProcess> witness = enter({"sh", "-c", script});
    if (witness != nullptr) {
        EXPECT_TRUE(witness->waitForOutput(kWitnessReady));
    }
    return witness;
}

}  // namespace test_support

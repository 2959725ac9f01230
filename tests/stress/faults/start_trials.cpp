// Starts during which something fails.
#include "tests/stress/faults/start_trials.h"

#include <chrono>
#include <cstdio>
#include <set>

#include "tests/stress/faults/call_faults.h"
#include "tests/stress/faults/request_trials.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/start_semaphores.h"
#include "tests/support/process/waiting.h"

namespace faults {
namespace {

using test_support::Reply;
using test_support::ServiceOptions;
using test_support::ServiceProcess;
using test_support::StartSemaphores;

// The documented statuses; the loader's, when a library cannot be loaded; how GLib and the C
// library end a process that cannot go on; a bus connection that GLib has given up.
const std::set<std::string> kDefinedEnds{"status 1",   "status 2", "status 3", "status 255",
                                         "status 127", "SIGABRT",  "SIGTRAP",  "SIGTERM"};

using namespace std::chrono_literals;

// Far longer than a start takes, also one that has to ask for threads for ten seconds; then it is
// taken for one that waits for ever.
constexpr auto kStartPatience = 20s;

constexpr const char* kLauncherFails = "the launcher ends by status 1";
constexpr const char* kLauncherIsKilled = "the launcher ends by SIGKILL";
constexpr const char* kSetStays = "the semaphore set stays";

const Method& asked() {
    return methodNamed("GetDirectoryIndex");
}

Reply ask() {
    return call(test_support::SystemBus(), asked());
}

// Whether the service comes up before it ends.
bool comesUp(ServiceProcess& service) {
    bool up = false;
    test_support::waitUntil(
        [&] {
            up = service.processId() && ask().error.empty();
            return up || service.hasEnded();
        },
        kStartPatience);
    return up;
}

}  // namespace

StartTrials::StartTrials(bool asDaemon, const Scene& scene, Selection& selection, Report& report)
    : asDaemon_(asDaemon),
      group_(asDaemon ? group::kDaemon : group::kForeground),
      scene_(scene),
      selection_(selection),
      report_(report) {}

ServiceOptions StartTrials::options(const std::vector<std::string>& prefix) const {
    ServiceOptions options;
    options.environment = {"LD_LIBRARY_PATH=" + test_support::buildPath("tests/stress/faults")};
    options.prefix = prefix;
    if (asDaemon_) {
        options.arguments = {"-d"};
    }
    return options;
}

void StartTrials::run() {
    if (!selection_.mayWant(group_)) {
        return;
    }
    scene_.prepare();
    const std::vector<Fault> possible = possibleFaults();
    std::size_t tried = 0;
    for (const Fault& fault : possible) {
        if (selection_.wants(group_, fault.row, fault.name)) {
            report_.add(group_, fault.row, fault.name, tryFault(fault));
            // So that every start makes the same calls.
            StartSemaphores().remove();
            ++tried;
        }
    }
    std::printf("%s: %zu of %zu faults\n", group_.c_str(), tried, possible.size());
    std::fflush(stdout);
}

std::vector<Fault> StartTrials::possibleFaults() const {
    CallWatch watch;
    watch.arm();
    ServiceProcess service(options(watch.prefix()));
    const bool up = comesUp(service);
    const std::string fault = up ? faultOf(service) : "the service does not come up";
    watch.disarm();
    if (!fault.empty()) {
        report_.complain(group_ + ": " + fault);
    }
    return startFaultsOf(watch.calls());
}

Verdict StartTrials::tryFault(const Fault& fault) const {
    CallWatch watch;
    watch.arm(WatchedCall{fault.caller, fault.what, fault.nth}, fault.error);
    ServiceProcess service(options(watch.prefix()));
    const bool up = comesUp(service);
    const bool happened = watch.disarm();
    if (!up && !service.hasEnded()) {
        service.kill();
        const std::string next = cleanStartFault();
        return {Outcome::Wrong,
                "neither answers nor ends" + (next.empty() ? "" : ", and then " + next)};
    }
    Verdict verdict = up ? whenUp(service, fault) : whenEnded(service, fault);
    if (up && !service.processId()) {
        service.waitForEmpty();  // killed behind its first answer
        verdict = whenEnded(service, fault);
    }
    if (!happened && verdict.outcome != Outcome::Wrong) {
        verdict.outcome = Outcome::NotReached;
    }
    return verdict;
}

Verdict StartTrials::whenUp(ServiceProcess& service, const Fault& fault) const {
    const std::string wrong = faultOf(service);
    // The next start takes a set over that stays.
    const bool expected = wrong.empty() || wrong == kLauncherFails || wrong == kLauncherIsKilled ||
                          (wrong == kSetStays && fault.row == "`semctl`");
    return {expected ? Outcome::Served : Outcome::Wrong, wrong};
}

std::string StartTrials::faultOf(ServiceProcess& service) const {
    const Reply reply = ask();
    if (!reply.error.empty()) {
        return "answers " + reply.text();
    }
    if (!asDaemon_) {
        return "";
    }
    const auto end = service.waitForCommandEnd();
    if (!end) {
        return "the launcher does not end";
    }
    if (*end != test_support::exited(0)) {
        return "the launcher ends by " + endName(*end);
    }
    return test_support::waitUntil([] { return !StartSemaphores::exists(); }, kStartPatience)
               ? ""
               : kSetStays;
}

Verdict StartTrials::whenEnded(ServiceProcess& service, const Fault& fault) const {
    const auto end = service.waitForCommandEnd();
    const std::string how = (asDaemon_ ? "launcher " : "") + (end ? endName(*end) : "nothing");
    if (!end || !endIsDefined(endName(*end), fault)) {
        return {Outcome::Wrong, "ended by " + how + ": " + service.standardError()};
    }
    const std::string next = cleanStartFault();
    return next.empty() ? Verdict{Outcome::Ended, how}
                        : Verdict{Outcome::Wrong, "ended by " + how + ", and then " + next};
}

bool StartTrials::endIsDefined(const std::string& end, const Fault& fault) const {
    return kDefinedEnds.count(end) != 0 || (fault.error == kKill && end == "SIGKILL") ||
           (asDaemon_ && end == "status 0") || (fault.caller == kLoader && end == "SIGSEGV");
}

std::string StartTrials::cleanStartFault() const {
    ServiceProcess next(options());
    return comesUp(next) ? faultOf(next) : "the next start does not come up";
}

}  // namespace faults

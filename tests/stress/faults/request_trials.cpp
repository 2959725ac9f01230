// Requests during which something fails.
#include "tests/stress/faults/request_trials.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <set>
#include <stdexcept>

#include "tests/support/process/process_table.h"
#include "tests/support/process/waiting.h"

namespace faults {
namespace {

using test_support::ProcessEnd;
using test_support::Reply;

// The name that was lost with the bus; memory that GLib or a string could not have; a bus
// connection that GLib has given up.
const std::set<std::string> kDefinedEnds{"status 2", "SIGABRT", "SIGTRAP", "SIGTERM"};

using namespace std::chrono_literals;

constexpr auto kSettling = 20s;  // far longer than a job takes here

// What the bus says to a call whose answerer has gone.
bool isOfNobody(const Reply& reply) {
    static const std::set<std::string> kNobody{"org.freedesktop.DBus.Error.NoReply",
                                               "org.freedesktop.DBus.Error.NameHasNoOwner",
                                               "org.freedesktop.DBus.Error.ServiceUnknown"};
    return kNobody.count(reply.error) != 0;
}

const Method& harmlessMethod() {
    return methodNamed("GetDirectoryIndex");
}

}  // namespace

std::string endName(const ProcessEnd& end) {
    return end.bySignal ? std::string("SIG") + sigabbrev_np(end.number)
                        : "status " + std::to_string(end.number);
}

// ---- a life of the service --------------------------------------------------------------------

Life::Life(const test_support::ServiceOptions& options) : service_(options) {
    const auto started = service_.waitUntilAnswers();
    if (!started) {
        throw std::runtime_error(started.message());
    }
    process_ = service_.processId().value_or(0);
    // What is made once in a life is made now.
    for (int i = 0; i < 2; ++i) {
        for (const Method& method : methods()) {
            if (!method.startsJob && method.touches.empty()) {
                call(bus_, method);
            }
        }
    }
    threads_ = test_support::threadsOf(process_);
    descriptors_ = descriptors();
}

bool Life::runs() const {
    return test_support::isRunning(process_);
}

std::vector<std::string> Life::descriptors() const {
    std::vector<std::string> all = test_support::openDescriptorsOf(process_);
    // The system log's socket is another one after a failure: what counts is "socket:".
    for (std::string& target : all) {
        target.erase(std::min(target.find('['), target.size()));
    }
    std::sort(all.begin(), all.end());
    return all;
}

bool Life::isSettled() const {
    const std::vector<std::string> open = descriptors();
    return test_support::threadsOf(process_) <= threads_ &&
           std::includes(descriptors_.begin(), descriptors_.end(), open.begin(), open.end());
}

std::string Life::settle() const {
    if (test_support::waitUntil([this] { return !runs() || isSettled(); }, kSettling)) {
        return "";
    }
    std::string left = std::to_string(test_support::threadsOf(process_)) + " threads, " +
                       std::to_string(threads_) + " before, descriptors:";
    for (const std::string& descriptor : descriptors()) {
        left += " " + descriptor;
    }
    return left;
}

std::string Life::end() {
    const auto ended = service_.waitForCommandEnd();
    return ended ? endName(*ended) : "";
}

// ---- the trials -------------------------------------------------------------------------------

RequestTrials::RequestTrials(std::string group, Injector& injector, const Scene& scene,
                             Selection& selection, Report& report)
    : group_(std::move(group)),
      injector_(injector),
      scene_(scene),
      selection_(selection),
      report_(report) {}

void RequestTrials::run(const std::vector<Method>& wanted) {
    for (const Method& method : wanted) {
        if (selection_.mayWant(group_ + " " + method.name)) {
            tryMethod(method);
        }
    }
    life_.reset();
}

Life& RequestTrials::life() {
    if (!life_) {
        life_ = std::make_unique<Life>(injector_.serviceOptions());
    }
    return *life_;
}

// A job works on the texts of those before it, so each has a life of its own.
void RequestTrials::prepare(const Method& method) {
    if (method.startsJob) {
        life_.reset();
    }
    scene_.prepare();
    life();
}

void RequestTrials::tryMethod(const Method& method) {
    const std::vector<Fault> possible = possibleFaults(method);
    std::size_t tried = 0;
    for (const Fault& fault : possible) {
        const std::string name = std::string(method.name) + " " + fault.name;
        if (selection_.wants(group_, fault.row, name)) {
            report_.add(group_, fault.row, name, tryFault(method, fault));
            ++tried;
        }
    }
    std::printf("%s %s: %zu of %zu faults\n", group_.c_str(), method.name, tried, possible.size());
    std::fflush(stdout);
}

std::vector<Fault> RequestTrials::possibleFaults(const Method& method) {
    prepare(method);
    injector_.arm(nullptr);
    usual_ = call(life().bus(), method);
    life().settle();
    injector_.disarm();
    return injector_.noted();
}

Verdict RequestTrials::tryFault(const Method& method, const Fault& fault) {
    prepare(method);
    injector_.arm(&fault);
    const Reply reply = call(life().bus(), method);
    const std::string left = life().settle();
    const bool happened = injector_.disarm();
    if (!life().runs() || isOfNobody(reply)) {
        return afterEnd(method);
    }
    Verdict verdict = left.empty() ? afterRequest(method, reply) : Verdict{Outcome::Wrong, left};
    if (verdict.outcome == Outcome::Served && !happened) {
        verdict.outcome = Outcome::NotReached;
    }
    if (verdict.outcome == Outcome::Wrong) {
        life_.reset();
    }
    return verdict;
}

Verdict RequestTrials::afterRequest(const Method& method, const Reply& reply) {
    Verdict verdict = judge(method, usual_, reply);
    const std::string damage = scene_.damage(method);
    if (!damage.empty()) {
        return {Outcome::Wrong, damage};
    }
    if (!injector_.misuse().empty()) {
        return {Outcome::Wrong, injector_.misuse()};
    }
    const bool contradiction = contradictsDeeds(method, reply);
    const Method& nextMethod = method.startsJob ? harmlessMethod() : method;
    const Reply next = callAgain(nextMethod);
    if (isOfNobody(next)) {
        return afterEnd(method);  // what failed came behind the answer
    }
    if (contradiction) {
        return {Outcome::Wrong, "answered " + reply.text() + " against what was done"};
    }
    if (!isUsual(nextMethod, next)) {
        return {Outcome::Wrong, "the next call is answered by " + next.text()};
    }
    return verdict;
}

bool RequestTrials::contradictsDeeds(const Method& method, const Reply& reply) const {
    if (method.name == std::string("DeleteFile")) {
        return (reply.text() == "(true,)") == scene_.has("gone.txt");
    }
    const std::optional<bool> began = method.startsJob ? injector_.jobBegan() : std::nullopt;
    return began && *began != (reply.text() == "(0,)");
}

// The next start has to be clean: the same sticks, the same answer.
Verdict RequestTrials::afterEnd(const Method& method) {
    const std::string how = life().end();
    life_.reset();
    const std::string damage = scene_.damage(method);
    if (!damage.empty()) {
        return {Outcome::Wrong, "ended by " + how + "; " + damage};
    }
    if (injector_.definedEnds().count(how) == 0) {
        return {Outcome::Wrong, "ended by " + how};
    }
    const Reply next = callAgain(method);
    if (!isUsual(method, next)) {
        return {Outcome::Wrong, "ended by " + how + "; the next start answers " + next.text()};
    }
    return {Outcome::Ended, how};
}

Reply RequestTrials::callAgain(const Method& method) {
    scene_.prepare();
    Reply reply = call(life().bus(), method);
    life().settle();
    return reply;
}

bool RequestTrials::isUsual(const Method& method, const Reply& reply) const {
    return answerOf(reply) == answerOf(usual_) ||
           (method.name == harmlessMethod().name && reply.type() == "(av)");
}

}  // namespace faults

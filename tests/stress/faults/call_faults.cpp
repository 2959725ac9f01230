// System calls that fail.
#include "tests/stress/faults/call_faults.h"

#include <algorithm>
#include <cerrno>

#include "tests/stress/faults/system_calls.h"
#include "tests/support/files/paths.h"

namespace faults {
namespace {

Fault faultOf(const WatchedCall& call, int error) {
    const std::string name = systemCallName(call.number);
    const std::string what = error == kKill ? "SIGKILL" : errorName(error);
    const std::string row = error == kKill ? "SIGKILL at any call" : "`" + name + "`";
    return {call.caller + " " + name + " " + std::to_string(call.nth) + " " + what,
            row,
            call.caller,
            call.number,
            call.nth,
            error};
}

// An event descriptor has nothing behind it that could fail.
const std::vector<int>& errorsAt(const WatchedCall& call) {
    static const std::vector<int> kInterruptedOnly{EINTR};
    return call.wakes ? kInterruptedOnly : errorsOf(call.number);
}

}  // namespace

std::vector<Fault> faultsOf(const std::vector<WatchedCall>& calls) {
    std::vector<Fault> faults;
    for (const WatchedCall& call : calls) {
        for (const int error : errorsAt(call)) {
            faults.push_back(faultOf(call, error));
        }
    }
    return faults;
}

std::vector<Fault> startFaultsOf(const std::vector<WatchedCall>& calls) {
    std::vector<Fault> faults;
    for (const WatchedCall& call : calls) {
        for (const int error : errorsAt(call)) {
            faults.push_back(faultOf(call, error));
            if (call.caller == kLoader) {
                break;
            }
        }
        faults.push_back(faultOf(call, kKill));
    }
    return faults;
}

test_support::ServiceOptions FailingCalls::serviceOptions() {
    watch_ = std::make_unique<CallWatch>();
    test_support::ServiceOptions options;
    options.environment = {"LD_LIBRARY_PATH=" + test_support::buildPath("tests/stress/faults")};
    options.prefix = watch_->prefix();
    return options;
}

std::optional<bool> FailingCalls::jobBegan() const {
    const std::vector<WatchedCall> calls = watch_->calls();
    return std::any_of(calls.begin(), calls.end(),
                       [](const WatchedCall& call) { return call.caller == kJob; });
}

void FailingCalls::arm(const Fault* fault) {
    if (fault == nullptr) {
        watch_->arm();
    } else {
        watch_->arm(WatchedCall{fault->caller, fault->what, fault->nth}, fault->error);
    }
}

}  // namespace faults

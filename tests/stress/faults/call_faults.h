// System calls that fail.
#pragma once

#include <memory>

#include "tests/stress/faults/call_watch.h"
#include "tests/stress/faults/injector.h"

namespace faults {

// Every error of every call among `calls`.
std::vector<Fault> faultsOf(const std::vector<WatchedCall>& calls);

// Every error of every call, but for the loader the likeliest; and that the caller is killed there.
std::vector<Fault> startFaultsOf(const std::vector<WatchedCall>& calls);

// One system call of the service fails.
class FailingCalls : public Injector {
public:
    test_support::ServiceOptions serviceOptions() override;
    void arm(const Fault* fault) override;
    bool disarm() override { return watch_->disarm(); }
    std::vector<Fault> noted() const override { return faultsOf(watch_->calls()); }

    std::optional<bool> jobBegan() const override;
    // The name that was lost with the bus.
    std::set<std::string> definedEnds() const override { return {"status 2"}; }

private:
    std::unique_ptr<CallWatch> watch_;  // of the last service started
};

}  // namespace faults

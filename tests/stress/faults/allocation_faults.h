// Allocations that fail.
#pragma once

#include <memory>

#include "tests/stress/faults/allocation_page.h"
#include "tests/stress/faults/call_watch.h"
#include "tests/stress/faults/injector.h"
#include "tests/support/files/files.h"

namespace faults {

// One allocation of the service fails: its own, the C++ library's, GLib's, the C library's.
class FailingAllocations : public Injector {
public:
    FailingAllocations();
    ~FailingAllocations() override;

    test_support::ServiceOptions serviceOptions() override;
    void arm(const Fault* fault) override;
    bool disarm() override;
    std::vector<Fault> noted() const override;
    std::optional<bool> jobBegan() const override { return page_->counts[kOtherThread] > 0; }
    // By the C++ library and by GLib.
    std::set<std::string> definedEnds() const override { return {"SIGABRT", "SIGTRAP"}; }

private:
    test_support::TemporaryDirectory folder_;
    AllocationPage* page_ = nullptr;
    std::unique_ptr<CallWatch> watch_;  // makes the sleep of a job's launch short
};

}  // namespace faults

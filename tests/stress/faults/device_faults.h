// Device libraries that fail.
#pragma once

#include "tests/stress/faults/injector.h"
#include "tests/support/device/device_double.h"

namespace faults {

// One operation of the doubles of both libraries fails, answers nonsense, takes its time or ends
// the process.
class FailingDevice : public Injector {
public:
    test_support::ServiceOptions serviceOptions() override;
    void arm(const Fault* fault) override;
    bool disarm() override;
    std::vector<Fault> noted() const override;
    std::string misuse() const override;
    std::set<std::string> definedEnds() const override;

private:
    std::vector<std::string> operations() const;

    test_support::DeviceDouble device_;
    std::vector<std::string> noted_;  // operations
    std::string expected_;  // the operation that is to fail
};

}  // namespace faults

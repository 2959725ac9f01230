// Starts during which something fails.
#pragma once

#include <string>
#include <vector>

#include "tests/stress/faults/call_watch.h"
#include "tests/stress/faults/injector.h"
#include "tests/stress/faults/report.h"
#include "tests/stress/faults/scene.h"
#include "tests/support/process/service_process.h"

namespace faults {

// One way of starting the service: in the foreground, or as a daemon behind its launcher.
class StartTrials {
public:
    // All outlive it.
    StartTrials(bool asDaemon, const Scene& scene, Selection& selection, Report& report);

    // Each system call fails in each way, and the process is killed at each.
    void run();

private:
    test_support::ServiceOptions options(const std::vector<std::string>& prefix = {}) const;
    std::vector<Fault> possibleFaults() const;
    Verdict tryFault(const Fault& fault) const;
    Verdict whenUp(test_support::ServiceProcess& service, const Fault& fault) const;
    Verdict whenEnded(test_support::ServiceProcess& service, const Fault& fault) const;
    bool endIsDefined(const std::string& end, const Fault& fault) const;
    // What is wrong with a start in which nothing fails; empty when nothing is.
    std::string cleanStartFault() const;
    // The same of a service that is up.
    std::string faultOf(test_support::ServiceProcess& service) const;

    bool asDaemon_;
    std::string group_;
    const Scene& scene_;
    Selection& selection_;
    Report& report_;
};

}  // namespace faults

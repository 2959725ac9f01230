// Requests during which something fails.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/stress/faults/injector.h"
#include "tests/stress/faults/report.h"
#include "tests/stress/faults/scene.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/process/service_process.h"

namespace faults {

// One life of the service, from its start to the fault that ends it.
class Life {
public:
    // Throws std::runtime_error when the service does not come up.
    explicit Life(const test_support::ServiceOptions& options);

    const test_support::SystemBus& bus() const { return bus_; }
    bool runs() const;

    // Waits until threads and descriptors are those of the beginning, or the process has ended.
    // Returns what is left over; empty when nothing is.
    std::string settle() const;

    // How the process ended, such as "status 2" or "SIGABRT"; "" when it does not end.
    std::string end();

private:
    std::vector<std::string> descriptors() const;
    bool isSettled() const;

    test_support::ServiceProcess service_;
    test_support::SystemBus bus_;
    pid_t process_ = 0;
    int threads_ = 0;
    std::vector<std::string> descriptors_;
};

std::string endName(const test_support::ProcessEnd& end);

class RequestTrials {
public:
    // Faults of `group` in the requests of `wanted`, brought about by `injector`. All outlive it.
    RequestTrials(std::string group, Injector& injector, const Scene& scene, Selection& selection,
                  Report& report);

    void run(const std::vector<Method>& wanted);

private:
    void tryMethod(const Method& method);
    std::vector<Fault> possibleFaults(const Method& method);
    Verdict tryFault(const Method& method, const Fault& fault);
    Verdict afterRequest(const Method& method, const test_support::Reply& reply);
    bool contradictsDeeds(const Method& method, const test_support::Reply& reply) const;
    Verdict afterEnd(const Method& method);
    test_support::Reply callAgain(const Method& method);
    bool isUsual(const Method& method, const test_support::Reply& reply) const;
    Life& life();
    void prepare(const Method& method);

    std::string group_;
    Injector& injector_;
    const Scene& scene_;
    Selection& selection_;
    Report& report_;
    std::unique_ptr<Life> life_;
    test_support::Reply usual_;
};

}  // namespace faults

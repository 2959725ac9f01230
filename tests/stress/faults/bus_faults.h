// A message bus that dies, misbehaves, or carries what nobody should send.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/stress/faults/fake_bus.h"
#include "tests/stress/faults/report.h"
#include "tests/stress/faults/scene.h"
#include "tests/support/process/service_process.h"

namespace faults {

class BusTrials {
public:
    // All outlive it.
    BusTrials(const Scene& scene, Selection& selection, Report& report);

    void run();

private:
    void tryOne(const std::string& row, const std::string& name,
                const std::function<Verdict()>& trial);

    // A bus that is killed, at three moments, and comes back.
    void killBus();
    // Strangers on the real bus.
    void sendAsStranger();
    // A bus of our own in the place of the real one.
    void misbehave();

    Verdict killWhileRunning(bool asDaemon) const;
    Verdict killDuringStart(bool asDaemon) const;
    Verdict startWithoutBus(bool asDaemon) const;
    Verdict sendBytes(const std::string& bytes) const;
    Verdict sendSignal(const std::string& path, const std::string& interface,
                       const std::string& name, GVariant* arguments) const;
    // The service on a bus with these manners, which sends it `bytes` once it is up; `wanted` is
    // how it may end.
    Verdict misbehaveOnce(const Manners& manners, const std::string& bytes = "",
                          const char* wanted = "status 2") const;
    Verdict ended(const std::string& how, const std::string& wanted) const;

    const Scene& scene_;
    Selection& selection_;
    Report& report_;
};

}  // namespace faults

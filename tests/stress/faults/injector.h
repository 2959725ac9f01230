// What brings a fault about in the service.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/support/process/service_process.h"

namespace faults {

struct Fault {
    std::string name;  // such as "main openat 2 EMFILE"; the same in every run
    std::string row;  // of the table, such as "openat"
    std::string caller;  // the rest is what its injector makes of it
    long what = 0;
    unsigned nth = 0;
    int error = 0;
};

// A service that was started with serviceOptions() is under its power. Used from one thread.
class Injector {
public:
    Injector() = default;
    virtual ~Injector() = default;
    Injector(const Injector&) = delete;
    Injector& operator=(const Injector&) = delete;

    // Called once for each start of the service.
    virtual test_support::ServiceOptions serviceOptions() = 0;

    // From here to disarm() `fault` happens, once; null: nothing happens, but what could is noted.
    virtual void arm(const Fault* fault) = 0;

    // Returns whether the fault has happened.
    virtual bool disarm() = 0;

    // What could have happened between the last arm(nullptr) and disarm(), in a fixed order.
    virtual std::vector<Fault> noted() const = 0;

    // Whether a thread beside those of GLib has worked since arm(), that is a job; nothing where
    // that is not known.
    virtual std::optional<bool> jobBegan() const { return std::nullopt; }

    // What the service has done since arm() that it may not do; empty when nothing is known.
    virtual std::string misuse() const { return ""; }

    // How the service may end for it, such as "status 2" or "SIGABRT".
    virtual std::set<std::string> definedEnds() const = 0;
};

}  // namespace faults

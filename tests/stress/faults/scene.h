// The sticks that the requests work on, the requests, and what may be answered to them.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/stress/faults/report.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/persistent_record.h"
#include "tests/support/device/stick.h"

namespace faults {

struct Method {
    const char* name;
    const char* arguments;  // in GVariant's text form
    std::set<std::string> touches;  // paths that may come or go with it
    bool control = false;  // of the control interface
    bool startsJob = false;  // once in a life of the service
};

// All 17 methods of the service.
const std::vector<Method>& methods();
const Method& methodNamed(const std::string& name);

test_support::Reply call(const test_support::SystemBus& bus, const Method& method);

// The answer in a form that does not change from one call to the next: times have no digits.
std::string answerOf(const test_support::Reply& reply);

// Whether `reply` is the answer `usual`, a failure that the interface defines, or neither.
Verdict judge(const Method& method, const test_support::Reply& usual,
              const test_support::Reply& reply);

// Two sticks.
class Scene {
public:
    Scene();

    // Makes them what they were at the beginning.
    void prepare() const;

    // What has come, gone or changed on them that the method does not touch; empty when nothing
    // has.
    std::string damage(const Method& method) const;

    // Whether a path of the first stick is there.
    bool has(const std::string& path) const;

private:
    using Tree = std::map<std::string, std::string>;  // contents by path

    Tree look() const;
    void fill() const;

    test_support::Stick first_{1};
    test_support::Stick second_{2, {"16m", "/dev/sdb1", false}};
    test_support::PersistentRecord record_;
    Tree prepared_;
};

}  // namespace faults

// Device libraries that fail.
#include "tests/stress/faults/device_faults.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace faults {
namespace {

struct Kind {
    const char* name;
    const char* key;
    const char* value;
    const char* operations;  // a part of the names of those that can do this
};

constexpr const char* kEndStatus = "7";

constexpr Kind kKinds[] = {
    {"returns null", "null", "", ".create"},
    {"returns null", "absent", "", ".getSingleton"},
    {"fails", "status", "1", "."},
    {"fails with a status beyond 32 bits", "status", "4294967296", "R."},
    {"fails with a status beyond 32 bits", "status", "4294967296", "U."},
    {"gives the largest size", "bytes", "18446744073709551615", ".getBackupSize"},
    {"gives what is no text", "value", "\xFF\xFE%n%s", ".getValue"},
    {"takes 100 ms", "delay", "100", "."},
    {"ends the process", "exit", kEndStatus, "."},
};

bool givesNoStatus(const std::string& operation) {
    for (const char* part :
         {".create", ".destroy", ".disconnect", ".set", ".getSingleton", ".stopTransaction"}) {
        if (operation.find(part) != std::string::npos) {
            return true;
        }
    }
    return false;
}

bool canDo(const std::string& operation, const Kind& kind) {
    if (operation == "Vesk.getSingleton" && std::strcmp(kind.key, "absent") != 0) {
        return false;
    }
    return operation.find(kind.operations) != std::string::npos &&
           !(std::strcmp(kind.key, "status") == 0 && givesNoStatus(operation));
}

// "BR1.connect(...)" is of BR.connect, "BRCreateController() = BR1" of BR.create.
std::string operationOf(const std::string& call) {
    const std::string name = call.substr(0, call.find('('));
    if (name.find("Controller") != std::string::npos) {
        return name.substr(0, 2) +
               (name.find("Create") != std::string::npos ? ".create" : ".destroy");
    }
    std::string operation;
    std::copy_if(name.begin(), name.end(), std::back_inserter(operation),
                 [](unsigned char c) { return std::isdigit(c) == 0; });
    return operation;
}

}  // namespace

test_support::ServiceOptions FailingDevice::serviceOptions() {
    test_support::ServiceOptions options;
    options.environment = device_.environment();
    return options;
}

void FailingDevice::arm(const Fault* fault) {
    device_.clearOrders();
    device_.clearRecord();
    expected_.clear();
    if (fault != nullptr) {
        const Kind& kind = kKinds[fault->what];
        expected_ = fault->caller;
        device_.order(expected_, kind.key, kind.value);
    }
}

bool FailingDevice::disarm() {
    noted_ = operations();
    device_.clearOrders();
    return std::find(noted_.begin(), noted_.end(), expected_) != noted_.end() ||
           expected_ == "Vesk.getSingleton";  // which is not recorded
}

std::vector<std::string> FailingDevice::operations() const {
    std::vector<std::string> all;
    for (const std::string& call : device_.calls()) {
        const std::string operation = operationOf(call);
        if (operation == "Vesk.startTransaction") {
            all.emplace_back("Vesk.getSingleton");
        }
        if (std::find(all.begin(), all.end(), operation) == all.end()) {
            all.push_back(operation);
        }
    }
    return all;
}

std::vector<Fault> FailingDevice::noted() const {
    std::vector<Fault> faults;
    for (const std::string& operation : noted_) {
        for (const Kind& kind : kKinds) {
            if (canDo(operation, kind)) {
                faults.push_back({operation + " " + kind.name, "`" + operation + "`", operation,
                                  &kind - kKinds, 0, 0});
            }
        }
    }
    return faults;
}

std::string FailingDevice::misuse() const {
    const std::vector<std::string> violations = device_.violations();
    return violations.empty() ? "" : violations.front();
}

std::set<std::string> FailingDevice::definedEnds() const {
    return {std::string("status ") + kEndStatus};
}

}  // namespace faults

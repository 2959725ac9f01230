// Tells the doubles of the device libraries what to do and reads what was done to them.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/files/files.h"
#include "tests/support/process/waiting.h"

namespace test_support {

// One line of the record. Thread ids are those that the recording process sees; "main" is the
// thread whose id is the process's.
struct DoubleRecord {
    std::string kind;  // "call", "log" or "violation"
    int thread = 0;
    bool onMainThread = false;
    std::string entry;
};

// For a service started with environment(), and at the same time for doubles linked into the test
// itself. Create it before the service and let it outlive it. Unless violations were expected, one
// in the record fails the test at the end.
//
// Operations: BR.create BR.connect BR.disconnect BR.setLog BR.backup BR.restore BR.getBackupSize
// BR.checkBackupFile BR.setWorkDirectory BR.destroy, FU.create FU.connect FU.disconnect FU.setLog
// FU.update FU.checkFirmwareFile FU.setWorkDirectory FU.destroy, Vesk.startTransaction
// Vesk.getValue Vesk.stopTransaction, and "*" for all. Vesk.getSingleton knows "absent"
// alone.
//
// Keys: "status N" result; "null" creation fails; "absent" there is no object; "bytes N" size that
// getBackupSize gives (untouched without); "value TEXT" setting that getValue gives; "reject TEXT"
// a check of a path that holds TEXT fails, may stand several times; "write N" backup writes a file
// of N bytes; "log DIGITS" log slots to call, "012345" unless said, 6 is readCredential and
// recorded; "hang PATH" until the file exists; "misuse" reads freed memory.
class DeviceDouble {
public:
    // Every operation succeeds, the device's name is "DEVICE".
    DeviceDouble();
    ~DeviceDouble();
    DeviceDouble(const DeviceDouble&) = delete;
    DeviceDouble& operator=(const DeviceDouble&) = delete;

    // Adds a line to the script; it counts from the next call on. Later lines win over earlier.
    void order(const std::string& operation, const std::string& key, const std::string& value = "");
    void orderStatus(const std::string& operation, std::int64_t status) {
        order(operation, "status", std::to_string(status));
    }

    // Back to the script of a new double.
    void clearOrders();

    // What puts the doubles in place of the stub libraries in a started service.
    std::vector<std::string> environment() const;

    // The calls by now, such as `BR1.connect("127.0.0.1:5001", "")`, in order.
    std::vector<std::string> calls() const { return entriesOf("call"); }
    // What log objects answered, such as `BR1.readCredential() = 0 "text"`.
    std::vector<std::string> logAnswers() const { return entriesOf("log"); }
    std::vector<std::string> violations() const { return entriesOf("violation"); }
    std::vector<DoubleRecord> records() const;
    void clearRecord();

    // Waits until a call holds `part`; says on failure what was called instead.
    testing::AssertionResult waitForCall(const std::string& part) const {
        return eventuallyHolds([this] { return calls(); }, part);
    }

    // A path that an order "hang" can name; openGate() makes it exist.
    std::string gate() const { return folder_.path("gate"); }
    void openGate() const;

    void expectViolations() { violationsExpected_ = true; }

private:
    std::vector<std::string> entriesOf(const std::string& kind) const;

    TemporaryDirectory folder_;
    const std::string scriptPath_ = folder_.path("script");
    const std::string recordPath_ = folder_.path("record");
    std::string script_;
    bool violationsExpected_ = false;
};

}  // namespace test_support

// Tells the doubles of the device libraries what to do and reads what was done to them.
#include "tests/support/device/device_double.h"

#include <cstdlib>
#include <sstream>

#include "tests/doubles/double_script.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/waiting.h"

namespace test_support {

DeviceDouble::DeviceDouble() {
    clearOrders();
    clearRecord();
    // For doubles in this process; a started service has its own copies.
    setenv(device_double::kScriptVariable, scriptPath_.c_str(), 1);
    setenv(device_double::kRecordVariable, recordPath_.c_str(), 1);
}

DeviceDouble::~DeviceDouble() {
    if (!violationsExpected_ && !violations().empty()) {
        ADD_FAILURE() << "the device libraries were misused: "
                      << testing::PrintToString(violations());
    }
    unsetenv(device_double::kScriptVariable);
    unsetenv(device_double::kRecordVariable);
}

void DeviceDouble::order(const std::string& operation, const std::string& key,
                         const std::string& value) {
    script_ += operation + " " + key + " " + value + '\0';
    writeFile(scriptPath_, script_);
}

void DeviceDouble::clearOrders() {
    script_.clear();
    order("Vesk.getValue", "value", "DEVICE");
}

void DeviceDouble::clearRecord() {
    writeFile(recordPath_, "");
}

std::vector<std::string> DeviceDouble::environment() const {
    return {"LD_LIBRARY_PATH=" + buildPath("tests/doubles"),
            std::string(device_double::kScriptVariable) + "=" + scriptPath_,
            std::string(device_double::kRecordVariable) + "=" + recordPath_};
}

std::vector<DoubleRecord> DeviceDouble::records() const {
    std::istringstream lines(readFile(recordPath_));
    std::vector<DoubleRecord> records;
    DoubleRecord record;
    std::string role;
    while (lines >> record.kind >> record.thread >> role && lines.get() == ' ' &&
           std::getline(lines, record.entry, '\0')) {
        record.onMainThread = role == "main";
        records.push_back(record);
    }
    return records;
}

std::vector<std::string> DeviceDouble::entriesOf(const std::string& kind) const {
    std::vector<std::string> entries;
    for (const DoubleRecord& record : records()) {
        if (record.kind == kind) {
            entries.push_back(record.entry);
        }
    }
    return entries;
}

void DeviceDouble::openGate() const {
    writeFile(gate(), "");
}

}  // namespace test_support

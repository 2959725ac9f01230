// Tells the doubles of the device libraries what to do and reads what was done to them.
#include "tests/support/device/device_double.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "tests/doubles/double_script.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

constexpr const char* kStartScript = "Vesk.getValue value DEVICE\n";

std::string scriptPath(const TemporaryDirectory& folder) {
    return folder.path("script");
}
std::string recordPath(const TemporaryDirectory& folder) {
    return folder.path("record");
}

DoubleRecord parseRecord(const std::string& line) {
    std::istringstream words(line);
    DoubleRecord record;
    std::string role;
    words >> record.kind >> record.thread >> role;
    words.get();  // the blank before the text
    std::getline(words, record.text);
    record.text = device_double::unescaped(record.text);
    record.onMainThread = role == "main";
    return record;
}

}  // namespace

DeviceDouble::DeviceDouble() {
    clearOrders();
    clearRecord();
    // For doubles in this process; a started service has its own copies.
    setenv(device_double::kScriptVariable, scriptPath(folder_).c_str(), 1);
    setenv(device_double::kRecordVariable, recordPath(folder_).c_str(), 1);
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
    script_ += operation + " " + key + " " + device_double::escaped(value) + "\n";
    writeFile(scriptPath(folder_), script_);
}

void DeviceDouble::clearOrders() {
    script_ = kStartScript;
    writeFile(scriptPath(folder_), script_);
}

void DeviceDouble::clearRecord() {
    writeFile(recordPath(folder_), "");
}

std::vector<std::string> DeviceDouble::environment() const {
    return {"LD_LIBRARY_PATH=" + buildPath("tests/doubles"),
            std::string(device_double::kScriptVariable) + "=" + scriptPath(folder_),
            std::string(device_double::kRecordVariable) + "=" + recordPath(folder_)};
}

std::vector<DoubleRecord> DeviceDouble::records() const {
    std::vector<DoubleRecord> result;
    for (const std::string& line : readLines(recordPath(folder_))) {
        result.push_back(parseRecord(line));
    }
    return result;
}

std::vector<std::string> DeviceDouble::textsOf(const std::string& kind) const {
    std::vector<std::string> texts;
    for (const DoubleRecord& record : records()) {
        if (record.kind == kind) {
            texts.push_back(record.text);
        }
    }
    return texts;
}

testing::AssertionResult DeviceDouble::waitForCall(const std::string& text) const {
    const bool found = waitUntil([&] {
        const std::vector<std::string> all = calls();
        return std::any_of(all.begin(), all.end(),
                           [&](auto& call) { return call.compare(0, text.size(), text) == 0; });
    });
    if (found) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "no call begins with " << text << "\nbut there were "
                                       << testing::PrintToString(calls());
}

void DeviceDouble::openGate() const {
    writeFile(gate(), "");
}

}  // namespace test_support

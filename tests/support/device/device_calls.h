// What the device libraries see of the service's operations: whole sequences of calls, in the form
// of DeviceDouble::calls().
#pragma once

#include <string>
#include <vector>

namespace test_support {

using Calls = std::vector<std::string>;

Calls operator+(Calls first, const Calls& second);

// One operation on a controller of its own: backup and restore ("BR") or update ("FU").
struct OneShot {
    std::string kind;
    int number = 0;  // counts the controllers of that kind
    std::string operation;  // such as `restore("/file")`
    bool setsWorkDirectory = true;
};

// From creation to destruction.
Calls completed(const OneShot& shot);
// Where the device manager does not take the connection.
Calls refused(const OneShot& shot);

// The operations of the service. `number` counts the controllers of the kind that is used.
OneShot sizeQuery(int number, const std::string& word);
OneShot backupTo(int number, const std::string& target, const std::string& word);
OneShot restoreFrom(int number, const std::string& target);
OneShot updateFrom(int number, const std::string& target);

// Reading the device's name from its settings.
Calls nameReading();

}  // namespace test_support

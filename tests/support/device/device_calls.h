// What the device libraries see of the service's operations: whole sequences of calls, in the form
// of DeviceDouble::calls().
#pragma once

#include <string>
#include <vector>

namespace test_support {

using Calls = std::vector<std::string>;

inline Calls operator+(Calls first, const Calls& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// One operation on a controller of its own: backup and restore ("BR") or update ("FU").
struct OneShot {
    std::string kind;
    int number = 0;  // counts the controllers of that kind
    std::string operation;  // such as `restore("/file")`
    bool setsWorkDirectory = true;

    std::string name() const { return kind + std::to_string(number); }
};

// Where the device manager does not take the connection.
inline Calls refused(const OneShot& shot) {
    const Calls creation{shot.kind + "CreateController() = " + shot.name()};
    const Calls directory{shot.name() + R"(.setWorkDirectory("/tmp"))"};
    const Calls connection{shot.name() + ".setLog(log)",
                           shot.name() + R"(.connect("127.0.0.1:5001", ""))"};
    const Calls destruction{shot.kind + "DestroyController(" + shot.name() + ")"};
    return creation + (shot.setsWorkDirectory ? directory : Calls()) + connection + destruction;
}

// From creation to destruction.
inline Calls completed(const OneShot& shot) {
    Calls calls = refused(shot);
    calls.insert(calls.end() - 1,
                 {shot.name() + "." + shot.operation, shot.name() + ".disconnect()"});
    return calls;
}

// The operations of the service. `number` counts the controllers of the kind that is used.
inline OneShot sizeQuery(int number, const std::string& word) {
    return {"BR", number, "getBackupSize(\"" + word + "\", 0)", false};
}
inline OneShot backupTo(int number, const std::string& target, const std::string& word) {
    return {"BR", number, "backup(\"" + target + "\", \"" + word + "\")"};
}
inline OneShot restoreFrom(int number, const std::string& target) {
    return {"BR", number, "restore(\"" + target + "\")"};
}
inline OneShot updateFrom(int number, const std::string& target) {
    return {"FU", number, "update(\"" + target + "\")"};
}

// Reading the device's name from its settings.
inline Calls nameReading() {
    return {"Vesk.startTransaction(true, true)", R"(Vesk.getValue("DEVICE_INFO/transfername"))",
            "Vesk.stopTransaction()"};
}

}  // namespace test_support

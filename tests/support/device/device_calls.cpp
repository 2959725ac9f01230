// What the device libraries see of the service's operations.
#include "tests/support/device/device_calls.h"

#include "tests/doubles/double_script.h"

namespace test_support {
namespace {

using device_double::quoted;

std::string quotedText(const std::string& text) {
    return quoted(text.c_str());
}

std::string nameOf(const OneShot& shot) {
    return shot.kind + std::to_string(shot.number);
}

Calls opening(const OneShot& shot) {
    Calls calls{shot.kind + "CreateController() = " + nameOf(shot)};
    if (shot.setsWorkDirectory) {
        calls.push_back(nameOf(shot) + R"(.setWorkDirectory("/tmp"))");
    }
    calls.push_back(nameOf(shot) + ".setLog(log)");
    calls.push_back(nameOf(shot) + R"(.connect("127.0.0.1:5001", ""))");
    return calls;
}

Calls destruction(const OneShot& shot) {
    return {shot.kind + "DestroyController(" + nameOf(shot) + ")"};
}

}  // namespace

Calls operator+(Calls first, const Calls& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Calls completed(const OneShot& shot) {
    const Calls work{nameOf(shot) + "." + shot.operation, nameOf(shot) + ".disconnect()"};
    return opening(shot) + work + destruction(shot);
}

Calls refused(const OneShot& shot) {
    return opening(shot) + destruction(shot);
}

OneShot sizeQuery(int number, const std::string& word) {
    return {"BR", number, "getBackupSize(" + quotedText(word) + ", 0)", false};
}

OneShot backupTo(int number, const std::string& target, const std::string& word) {
    return {"BR", number, "backup(" + quotedText(target) + ", " + quotedText(word) + ")"};
}

OneShot restoreFrom(int number, const std::string& target) {
    return {"BR", number, "restore(" + quotedText(target) + ")"};
}

OneShot updateFrom(int number, const std::string& target) {
    return {"FU", number, "update(" + quotedText(target) + ")"};
}

Calls nameReading() {
    return {"Vesk.startTransaction(true, true)", R"(Vesk.getValue("DEVICE_INFO/transfername"))",
            "Vesk.stopTransaction()"};
}

}  // namespace test_support

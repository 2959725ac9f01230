// The script that the test doubles of the device libraries follow, and the record of their calls.
//
// Script: lines "OPERATION KEY VALUE", read again at every call, so that a test may change it while
// the service runs. OPERATION is as in the record ("BR.connect") or "*" for all; the last line that
// fits wins. Record: lines "KIND THREAD main|worker ENTRY", each written at once. Lines of both end
// with a zero byte, as values and strings may hold line ends.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace device_double {

inline constexpr const char* kScriptVariable = "MORVANE_DOUBLE_SCRIPT";
inline constexpr const char* kRecordVariable = "MORVANE_DOUBLE_RECORD";

// The string in quotes, or null.
std::string quoted(const char* string);

// The part of the script that concerns one operation.
class Orders {
public:
    explicit Orders(const std::string& operation);

    bool has(const std::string& key) const;
    std::string value(const std::string& key, const std::string& otherwise = "") const;
    std::int64_t number(const std::string& key) const;  // 0 without

    // All values of a key that may stand several times.
    std::vector<std::string> all(const std::string& key) const;

    // Does what "misuse" and "hang" ask for, in that order.
    void misuseOrWait() const;

private:
    std::vector<std::pair<std::string, std::string>> orders_;  // keys and values
};

// Where the record is written; another place means that a new record has begun.
std::string recordPath();

// Adds one line to the record. Kinds: "call", "log" (what a log object answered), "violation".
void record(const std::string& kind, const std::string& entry);

}  // namespace device_double

// The script that the test doubles of the device libraries follow, and the record of their calls.
//
// Script: lines "OPERATION KEY VALUE", read again at every call, so that a test may change it while
// the service runs. OPERATION is as in the record ("BR.connect") or "*" for all; the last line that
// fits wins. Record: lines "KIND THREAD main|worker TEXT", each written at once. In values and
// strings "\n" and "\\" stand for a line end and a backslash.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace device_double {

inline constexpr const char* kScriptVariable = "MORVANE_DOUBLE_SCRIPT";
inline constexpr const char* kRecordVariable = "MORVANE_DOUBLE_RECORD";

std::string escaped(const std::string& text);
std::string unescaped(const std::string& text);

// "text" in quotes, or null.
std::string quoted(const char* text);

// The part of the script that concerns one operation.
class Orders {
public:
    explicit Orders(const std::string& operation);

    bool has(const std::string& key) const;
    std::string text(const std::string& key, const std::string& otherwise = "") const;
    std::int64_t number(const std::string& key, std::int64_t otherwise = 0) const;
    std::uint64_t size(const std::string& key, std::uint64_t otherwise = 0) const;

    // All values of a key that may stand several times.
    std::vector<std::string> all(const std::string& key) const;

    // Does what "misuse", "delay" and "hang" ask for, in that order.
    void misuseOrWait() const;

private:
    struct Order {
        std::string key;
        std::string value;
    };
    std::vector<Order> orders_;
};

// Where the record is written; another place means that a new record has begun.
std::string recordPath();

// Adds one line to the record. Kinds: "call", "log" (what a log object answered), "violation".
void record(const std::string& kind, const std::string& text);

}  // namespace device_double

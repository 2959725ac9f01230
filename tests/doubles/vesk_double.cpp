// A double of libVesk.so: the settings library's exported members, scripted and recorded.
#include <string>

#include "tests/doubles/double_script.h"

using device_double::Orders;
using device_double::record;

namespace {

constexpr const char* kSingleton = "Vesk.getSingleton";

const char* asText(bool value) {
    return value ? "true" : "false";
}

}  // namespace

// The library's class as its exported symbols give it; getSingleton, which a caller may use as
// often as it likes, is not recorded.
class VeskServiceInterface {
public:
    static VeskServiceInterface* getSingleton();
    int startTransaction(bool first, bool second);
    int getValue(const std::string& key, std::string& value);
    void stopTransaction();
};

VeskServiceInterface* VeskServiceInterface::getSingleton() {
    static VeskServiceInterface theOnlyOne;
    return Orders(kSingleton).has("absent") ? nullptr : &theOnlyOne;
}

int VeskServiceInterface::startTransaction(bool first, bool second) {
    record("call",
           std::string("Vesk.startTransaction(") + asText(first) + ", " + asText(second) + ")");
    if (Orders(kSingleton).has("absent")) {
        record("violation", "Vesk.startTransaction without an object");
    }
    const Orders orders("Vesk.startTransaction");
    orders.misuseOrWait();
    return static_cast<int>(orders.number("status"));
}

int VeskServiceInterface::getValue(const std::string& key, std::string& value) {
    record("call", "Vesk.getValue(\"" + key + "\")");
    const Orders orders("Vesk.getValue");
    orders.misuseOrWait();
    if (orders.has("value")) {
        value = orders.value("value");
    }
    return static_cast<int>(orders.number("status"));
}

void VeskServiceInterface::stopTransaction() {
    record("call", "Vesk.stopTransaction()");
    Orders("Vesk.stopTransaction").misuseOrWait();
}

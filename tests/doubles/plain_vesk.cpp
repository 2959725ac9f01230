// The settings library at its plainest.
#include "tests/doubles/plain_vesk.h"

#include <string>

#include "transfer/platform/vesk_service_interface.h"

std::string_view plain_vesk::deviceName = "DEVICE";

VeskServiceInterface* VeskServiceInterface::getSingleton() {
    static VeskServiceInterface settings;
    return &settings;
}

int VeskServiceInterface::startTransaction(bool /*first*/, bool /*second*/) {
    return 0;
}

int VeskServiceInterface::getValue(const std::string& /*key*/, std::string& value) {
    value = plain_vesk::deviceName;
    return 0;
}

void VeskServiceInterface::stopTransaction() {}

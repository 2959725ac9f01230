// The closed settings library of the device (libVesk.so), as this service binds to it: declarations
// only.
#pragma once

#include <string>

// Reads the device's settings inside transactions. One object for the process, owned by the
// library. A std::string crosses this boundary: see the CMake option MORVANE_CXX11_ABI.
class VeskServiceInterface {
public:
    static VeskServiceInterface* getSingleton();

    // Opens a transaction; returns 0 on success. The service passes true twice; what the two mean
    // is the library's.
    int startTransaction(bool /*first*/, bool /*second*/);

    // Stores the setting named `key` in `value`; returns 0 on success.
    int getValue(const std::string& key, std::string& value);

    // Closes the transaction.
    void stopTransaction();
};

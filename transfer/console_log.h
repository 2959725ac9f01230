// The log object that the service hands to the device-manager client library.
#pragma once

#include "transfer/platform/device_manager_client.h"

// Discards every message and reads the device's credential on demand. Owned by whoever creates the
// controller it is given to, and outlives that controller. The library may call it on any thread,
// but one object serves one controller at a time: readCredential fills a buffer of the object.
class CConsoleLog : public IBRLog {
public:
    void log(const char* format, ...) override;
    void reserved1() override;
    void reserved2() override;
    void reserved3() override;
    void logError(const char* format, ...) override;
    void reserved5() override;

    // Stores the second half of the device's 128-byte persistent record, as a string owned by this
    // object, in *out and returns 0. Returns -1 when the record cannot be opened and -2 when it is
    // shorter, leaving *out untouched.
    int readCredential(const char** out) override;

    // Clears the record, so that no copy of the credential stays behind.
    ~CConsoleLog() override;

private:
    static constexpr unsigned kRecordSize = 128;
    char record_[kRecordSize + 1];  // filled on demand; the last byte ends the string
};

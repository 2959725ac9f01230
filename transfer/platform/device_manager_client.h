// The closed device-manager client library (libDeviceManagerClient.so), as this service binds to
// it.
//
// Only declarations. Behind them is the manufacturer's library on the device, the stub library of
// simulator/ on a PC, a test double in tests. Binding is by virtual-table slot, so the order of the
// operations is the interface; operations that the service never calls are reserved, to keep every
// other one in its slot. Every status is 64 bits wide and 0 means success. Strings end in a zero
// byte and are borrowed for the call.
#pragma once

#include <cstdint>

// The log interface that the library calls back into. It may do so on any of its threads, at any
// time between setLog() and the destruction of the controller, so a log object outlives its
// controller. Which slot it calls for which event is unknown: `log` and `logError` are our names.
class IDeviceClientLog {
public:
    virtual void log(const char* format, ...) = 0;  // slot 0
    virtual void reserved1() = 0;  // slot 1
    virtual void reserved2() = 0;  // slot 2
    virtual void reserved3() = 0;  // slot 3
    virtual void logError(const char* format, ...) = 0;  // slot 4
    virtual void reserved5() = 0;  // slot 5

protected:
    ~IDeviceClientLog() = default;
};

class IBRLog : public IDeviceClientLog {
public:
    // Stores in *out the credential text, owned by the log object, and returns 0; any other result
    // is a failure that leaves *out untouched.
    virtual int readCredential(const char** out) = 0;  // slot 6
    virtual ~IBRLog() = default;  // slots 7 and 8
};

// Backup and restore. Created and destroyed by the library only, hence no virtual destructor.
class IBRController {
public:
    virtual std::int64_t connect(const char* endpoint, const char* credential) = 0;  // slot 0
    virtual void disconnect() = 0;  // slot 1
    virtual void setLog(IBRLog* log) = 0;  // slot 2
    virtual std::int64_t backup(const char* path, const char* kind) = 0;  // slot 3
    virtual std::int64_t restore(const char* path) = 0;  // slot 4
    virtual std::int64_t getBackupSize(const char* kind, std::uint64_t* bytes) = 0;  // slot 5
    virtual std::int64_t checkBackupFile(const char* path) = 0;  // slot 6
    virtual void reserved7(const char* text) = 0;  // slot 7
    virtual void reserved8() = 0;  // slot 8
    virtual void setWorkDirectory(const char* path) = 0;  // slot 9

protected:
    ~IBRController() = default;
};

// Operating-system update. Created and destroyed by the library only, hence no virtual destructor.
class IFUController {
public:
    virtual std::int64_t connect(const char* endpoint, const char* credential) = 0;  // slot 0
    virtual void disconnect() = 0;  // slot 1
    virtual std::int64_t update(const char* path) = 0;  // slot 2
    virtual void reserved3() = 0;  // slot 3
    virtual void reserved4() = 0;  // slot 4
    virtual void setLog(IBRLog* log) = 0;  // slot 5
    virtual void reserved6(const char* text) = 0;  // slot 6
    virtual void reserved7() = 0;  // slot 7
    virtual void setWorkDirectory(const char* path) = 0;  // slot 8
    virtual void reserved9() = 0;  // slot 9
    virtual void reserved10() = 0;  // slot 10
    virtual void reserved11() = 0;  // slot 11
    virtual void reserved12() = 0;  // slot 12
    virtual std::int64_t checkFirmwareFile(const char* path) = 0;  // slot 13

protected:
    ~IFUController() = default;
};

// The factories. Creation returns null on failure. FUDestroyController accepts null, its
// counterpart does not.
extern "C" {
IBRController* BRCreateController();
void BRDestroyController(IBRController* controller);
IFUController* FUCreateController();
void FUDestroyController(IFUController* controller);
}

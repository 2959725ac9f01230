// What the simulated device manager answers when it does not do what it is asked.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

// The values that the operations of the client library return.
enum class DeviceManagerStatus : std::int64_t {
    done = 0,
    notConnected = 1,  // a call before a successful connect
    unreachable = 2,  // nobody listens, or the connection broke
    refused = 3,  // the connection or its credential is refused
    unknownKind = 4,  // no backup kind of that name
    unusableFile = 5,  // missing, truncated, altered, of another kind, or not newer
    busy = 6,  // another job is running
    failed = 7,  // the job itself failed, for example for want of space
};

constexpr std::int64_t number(DeviceManagerStatus status) {
    return static_cast<std::int64_t>(status);
}

// Why the device did not do what it was asked; what() says it in words.
class DeviceError : public std::runtime_error {
public:
    DeviceError(DeviceManagerStatus statusValue, const std::string& text)
        : std::runtime_error(text), status(statusValue) {}
    DeviceManagerStatus status;
};

// The status values of the simulated device manager; 0 is success, as at every operation of its
// client library.
#pragma once

#include <cstdint>

enum class DeviceManagerStatus : std::int64_t {
    done = 0,
    notConnected = 1,  // a call before a successful connect
    unreachable = 2,  // nobody listens, or the connection broke
    refused = 3,  // the simulator turns the connection or its credential down
    unknownKind = 4,  // no backup kind of that name
    unusableFile = 5,  // missing, truncated, altered, of another kind, or not newer
    busy = 6,  // another job is running
    failed = 7,  // the job itself failed, for example for want of space
};

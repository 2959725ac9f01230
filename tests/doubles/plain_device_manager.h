// The device manager's library at its plainest: every operation succeeds at once, without a system
// call, and nothing is recorded.
#pragma once

#include <atomic>
#include <functional>
#include <string>

namespace plain_device_manager {

// Asked for each file to check; at first all are accepted.
extern std::function<bool(const std::string& path)> accepts;

// Controllers that are created and not destroyed.
extern std::atomic<int> controllers;

// Whether connecting reads the credential, as the library may.
extern bool readsCredential;

}  // namespace plain_device_manager

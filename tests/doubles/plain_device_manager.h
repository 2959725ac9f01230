// The device manager's library at its plainest: it answers at once and records nothing.
#pragma once

#include <functional>
#include <string>

namespace plain_device_manager {

// Asked for each file to check; at first all are accepted.
extern std::function<bool(const std::string& path)> accepts;

// Controllers that are created and not destroyed.
extern int controllers;

}  // namespace plain_device_manager

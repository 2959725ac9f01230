// The device manager's library inside a fuzz target: answers at once and keeps no record.
#pragma once

#include <functional>
#include <string>

namespace fuzz {

struct FakeDevice {
    static std::function<bool(const std::string& path)> accepts;  // asked for each file to check
    static int controllers;  // created and not yet destroyed
};

}  // namespace fuzz
